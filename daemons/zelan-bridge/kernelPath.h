// The data path of a cable in the kernel: programs at the adapter and at the TAP that hand frames over, while
// no process takes part.
#pragma once

#include <array>

#include "daemons/zelan-bridge/bpf.h"
#include "daemons/zelan-bridge/frameRules.h"

// The tables that the cables of a network share.
class KernelTables {
  public:
    // Makes them if need be; false with errno.
    bool Ensure();
    std::vector<BpfMapName> Names() const;

  private:
    FileDescriptor guestSenders_;
    FileDescriptor sentFrames_;
};

class KernelPath {
  public:
    KernelPath() = default;
    KernelPath(const KernelPath &) = delete;
    KernelPath &operator=(const KernelPath &) = delete;
    ~KernelPath();

    // Loads the programs for the record's two interfaces and attaches them. False with errno and nothing
    // attached.
    bool Begin(RtSocket *socket, int network, KernelTables *tables, const CableRecord &record);

    // Attached by links, not by filters.
    bool IsLinked() const { return static_cast<bool>(links_[0]); }

    // Takes a changed record over.
    bool Change(const CableRecord &record);

  private:
    // The adapter's two directions and the TAP.
    static constexpr size_t PLACES = 3;

    bool Load(KernelTables *tables, const CableRecord &record);
    bool AttachByLinks();
    bool AttachByFilters(RtSocket *socket, int network);

    FileDescriptor record_;
    FileDescriptor adapterSenders_;
    std::array<FileDescriptor, PLACES> programs_;
    std::array<FileDescriptor, PLACES> links_;
    int adapter_ = 0;
    int tap_ = 0;
    // Set while filters are on the adapter.
    RtSocket *filterSocket_ = nullptr;
    int network_ = 0;
};
