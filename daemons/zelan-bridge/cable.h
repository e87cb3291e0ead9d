// The cable from one host adapter to the switch. The adapter keeps its addresses and works for the host as
// before.
//
// Frames are handed over in the kernel (kernelPath.h). Where the kernel refuses that, a process copies them
// (frameCopier.h), which costs more and leaves out the host itself: what is sent through a packet socket
// leaves on the wire and does not enter the host's own stack. Guests cannot use an adapter that lets no
// sender but itself out, as most wireless ones do.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "daemons/common/link.h"
#include "daemons/zelan-bridge/frameCopier.h"
#include "daemons/zelan-bridge/kernelPath.h"
#include "daemons/zelan-bridge/tap.h"

// What all cables of a network share.
struct DataPaths {
    KernelTables tables;
    FrameCopier copier;
};

class Cable {
  public:
    // What the adapter's surroundings say: the VLANs on it that have an interface of the host, one bit each,
    // and whether there are other cables.
    struct Surroundings {
        std::array<uint64_t, VLAN_COUNT / 64> hostVlans = {};
        bool several = false;
    };

    explicit Cable(DataPaths *paths) : paths_(paths) {}
    Cable(const Cable &) = delete;
    Cable &operator=(const Cable &) = delete;
    ~Cable();

    // Connects the adapter to the network's switch. False after a line in the log; the object is then of no
    // use.
    bool Connect(RtSocket *socket, int network, const LinkInfo &adapter, const Surroundings &surroundings);

    // Take over a change of the adapter, and of what is around it.
    void Follow(RtSocket *socket, const LinkInfo &adapter);
    void Follow(const Surroundings &surroundings);

    int adapterIndex() const { return static_cast<int>(record_.adapter); }
    const std::string &adapterName() const { return adapterName_; }
    int tapIndex() const { return tap_.index(); }
    // Whether programs are attached by links, which a kernel has for every adapter or for none.
    bool IsLinked() const { return kernelPath_ != nullptr && kernelPath_->IsLinked(); }

  private:
    bool FillRecord(const LinkInfo &adapter, const Surroundings &surroundings);
    bool BeginPath(RtSocket *socket, int network);
    void ChangeRecord(const CableRecord &record);

    DataPaths *paths_;
    std::string adapterName_;
    CableRecord record_ = {};
    Tap tap_;
    // Keeps the adapter promiscuous; hears nothing where the kernel hands the frames over.
    FileDescriptor adapterSocket_;
    std::unique_ptr<KernelPath> kernelPath_;  // null while frames are copied
};
