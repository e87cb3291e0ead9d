// The keeper's side of copied frames: a process of its own reads and writes them, without any privilege,
// since a guest may send it whatever it likes. It is there while a cable needs it, gets each cable's
// descriptors through a socket, and ends with the keeper. Should it end before, it is begun anew.
#pragma once

#include <sys/socket.h>

#include <array>
#include <vector>

#include "daemons/zelan-bridge/frameRules.h"
#include "lib/misc/owners.h"

// What the copying process is told. An ADD comes with two descriptors, the TAP's and the adapter's.
struct CopyOrder {
    enum class Kind : uint32_t { ADD, CHANGE, REMOVE };
    Kind kind;
    CableRecord cable;
};

class FrameCopier {
  public:
    FrameCopier() = default;
    FrameCopier(const FrameCopier &) = delete;
    FrameCopier &operator=(const FrameCopier &) = delete;

    // The descriptors stay the caller's, open until Remove.
    void Add(const CableRecord &cable, const FileDescriptor &tap, const FileDescriptor &adapter);
    void Change(const CableRecord &cable);
    void Remove(int adapter);

    // From now on the process runs while there are cables. To be called by the process that stays: the
    // copying one ends with it.
    void Start();

    // Ready to be read when the process has ended; -1 while there is none.
    int descriptor() const { return orders_.get(); }
    void NoteEnd();
    bool IsWanted() const { return started_ && !orders_ && !cables_.empty(); }

  private:
    struct Copied {
        CableRecord cable;
        std::array<int, 2> descriptors;
    };

    Copied *Find(uint32_t adapter);
    void Send(CopyOrder::Kind kind, const Copied &copied);

    std::vector<Copied> cables_;
    FileDescriptor orders_;
    bool started_ = false;
};
