#include "daemons/zelan-bridge/cableSet.h"

#include <algorithm>

#include "daemons/common/complain.h"
#include "daemons/common/linkGroup.h"
#include "daemons/common/switch.h"

namespace {

// Whether nothing has changed that a cable depends on. (An attempt to connect changes other things.)
bool IsUnchanged(const LinkInfo &before, const LinkInfo &now) {
    return before.name == now.name && before.mtu == now.mtu && before.mac == now.mac &&
           ((before.flags ^ now.flags) & IFF_UP) == 0;
}

}  // namespace

bool CableSet::Begin() {
    if (!requests_.Open() || !announcements_.Open(RTMGRP_LINK) || Switch_Ensure(&requests_, network_) == 0) {
        return false;
    }
    TakeNoted();
    return true;
}

void CableSet::TakeAnnouncements() {
    if (!announcements_.TakeAnnouncements([this](const nlmsghdr *message) { TakeAnnouncement(message); })) {
        noted_ = true;
    }
}

void CableSet::TakeAnnouncement(const nlmsghdr *message) {
    LinkInfo link;
    if (!Link_Parse(message, &link)) {
        return;
    }
    if (message->nlmsg_type == RTM_DELLINK) {
        Remove(link.index);
        // Without its TAP a cable carries nothing, and its descriptor reports that without end.
        Remove(AdapterOf(link.index));
        noted_ = true;
        return;
    }
    if (Cable *cable = Find(link.index)) {
        cable->Follow(&requests_, link);
    }
    noted_ = noted_ || !LinkGroup_IsOurs(link.group);
}

void CableSet::TakeNoted() {
    HostLinks links;
    noted_ = !HostLinks_Read(&requests_, &links);
    if (noted_) {
        return;
    }
    std::vector<int> given;
    for (const auto &cable : cables_) {
        const LinkInfo *adapter = links.Find(cable->adapterIndex());
        if (adapter == nullptr || links.Find(cable->tapIndex()) == nullptr ||
            !Adapters_Takes(rule_, *adapter, links)) {
            given.push_back(cable->adapterIndex());
        } else {
            cable->Follow(&requests_, *adapter);
        }
    }
    std::for_each(given.begin(), given.end(), [this](int adapter) { Remove(adapter); });
    for (const auto &[index, link] : links.byIndex) {
        if (Find(index) == nullptr && Adapters_Takes(rule_, link, links)) {
            Connect(link);
        }
    }
}

void CableSet::Connect(const LinkInfo &link) {
    auto refused = refused_.find(link.index);
    if (refused != refused_.end() && IsUnchanged(refused->second, link)) {
        return;
    }
    refused_.erase(link.index);
    auto added = std::make_unique<Cable>();
    if (!added->Connect(&requests_, network_, link)) {
        refused_[link.index] = link;
        return;
    }
    Tell("%s is connected to network %d", link.name.c_str(), network_);
    onConnect(added.get());
    cables_.push_back(std::move(added));
}

void CableSet::Remove(int adapterIndex) {
    refused_.erase(adapterIndex);
    auto place = std::find_if(cables_.begin(), cables_.end(), [adapterIndex](const auto &cable) {
        return cable->adapterIndex() == adapterIndex;
    });
    if (place != cables_.end()) {
        Tell("%s is no longer connected to network %d", (*place)->adapterName().c_str(), network_);
        cables_.erase(place);
    }
}

int CableSet::AdapterOf(int tapIndex) const {
    for (const auto &cable : cables_) {
        if (cable->tapIndex() == tapIndex) {
            return cable->adapterIndex();
        }
    }
    return 0;
}

Cable *CableSet::Find(int adapterIndex) {
    for (const auto &cable : cables_) {
        if (cable->adapterIndex() == adapterIndex) {
            return cable.get();
        }
    }
    return nullptr;
}
