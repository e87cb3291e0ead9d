#include "daemons/zelan-bridge/cable.h"

#include <sys/random.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "daemons/common/complain.h"
#include "daemons/zelan-bridge/adapterSocket.h"

Cable::~Cable() {
    if (kernelPath_ == nullptr && adapterSocket_) {
        paths_->copier.Remove(adapterIndex());
    }
}

bool Cable::Connect(RtSocket *socket, int network, const LinkInfo &adapter,
                    const Surroundings &surroundings) {
    adapterName_ = adapter.name;
    adapterSocket_ = AdapterSocket_Open(adapter);
    return adapterSocket_ && tap_.Make(socket, network, adapter) && FillRecord(adapter, surroundings) &&
           BeginPath(socket, network) && tap_.Plug(socket, network, adapter);
}

bool Cable::FillRecord(const LinkInfo &adapter, const Surroundings &surroundings) {
    if (getrandom(&record_.token, sizeof record_.token, 0) != sizeof record_.token) {
        Complain("getrandom: %s", strerror(errno));
        return false;
    }
    record_.mac = Mac_Read(adapter.mac.data());
    record_.adapter = static_cast<uint32_t>(adapter.index);
    record_.tap = static_cast<uint32_t>(tap_.index());
    record_.several = surroundings.several ? 1 : 0;
    std::copy(surroundings.hostVlans.begin(), surroundings.hostVlans.end(), record_.hostVlans);
    return true;
}

bool Cable::BeginPath(RtSocket *socket, int network) {
    kernelPath_ = std::make_unique<KernelPath>();
    if (kernelPath_->Begin(socket, network, &paths_->tables, record_)) {
        return true;
    }
    int error = errno;
    kernelPath_.reset();
    Tell("frames of %s are copied, since the kernel does not take the programs for it: %s",
         adapterName_.c_str(), strerror(error));
    if (!AdapterSocket_Listen(adapterSocket_, adapterIndex())) {
        return false;
    }
    paths_->copier.Add(record_, tap_.descriptor(), adapterSocket_);
    return true;
}

void Cable::ChangeRecord(const CableRecord &record) {
    if (memcmp(&record, &record_, sizeof record) == 0) {
        return;
    }
    record_ = record;
    if (kernelPath_ != nullptr) {
        kernelPath_->Change(record_);
    } else {
        paths_->copier.Change(record_);
    }
}

void Cable::Follow(RtSocket *socket, const LinkInfo &adapter) {
    adapterName_ = adapter.name;
    tap_.FollowMtu(socket, adapter.mtu);
    tap_.FollowMac(socket, adapter.mac);
    CableRecord changed = record_;
    changed.mac = Mac_Read(adapter.mac.data());
    ChangeRecord(changed);
}

void Cable::Follow(const Surroundings &surroundings) {
    CableRecord changed = record_;
    changed.several = surroundings.several ? 1 : 0;
    std::copy(surroundings.hostVlans.begin(), surroundings.hostVlans.end(), changed.hostVlans);
    ChangeRecord(changed);
}
