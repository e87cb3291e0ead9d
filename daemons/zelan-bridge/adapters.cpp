#include "daemons/zelan-bridge/adapters.h"

#include <net/if_arp.h>
#include <strings.h>

#include <algorithm>

#include "daemons/common/complain.h"
#include "daemons/common/switch.h"

namespace {

// Without regard to case, as the library names adapters.
bool IsNamed(const AdapterRule &rule, const std::string &name) {
    return std::any_of(rule.names.begin(), rule.names.end(), [&name](const std::string &listed) {
        return strcasecmp(listed.c_str(), name.c_str()) == 0;
    });
}

}  // namespace

bool Adapters_Takes(const AdapterRule &rule, const LinkInfo &link) {
    constexpr char OWN_PREFIX[] = "zelan";
    if (link.type != ARPHRD_ETHER || (link.flags & IFF_LOOPBACK) != 0 ||
        strncasecmp(link.name.c_str(), OWN_PREFIX, sizeof OWN_PREFIX - 1) == 0) {
        return false;
    }
    bool named = IsNamed(rule, link.name);
    return rule.takesAll ? !named && link.master == 0 : named;
}

bool CableSet::Begin() {
    if (!requests_.Open() || !announcements_.Open(RTMGRP_LINK)) {
        return false;
    }
    if (Switch_Ensure(&requests_, network_) == 0) {
        return false;
    }
    ConsiderAll();
    return true;
}

void CableSet::TakeAnnouncements() {
    if (!announcements_.TakeAnnouncements([this](const nlmsghdr *message) { TakeAnnouncement(message); })) {
        std::vector<std::pair<int, int>> connected;
        for (const auto &cable : cables_) {
            connected.emplace_back(cable->adapterIndex(), cable->tapIndex());
        }
        for (const auto &[adapter, tap] : connected) {
            LinkInfo link;
            if (Link_Get(&requests_, adapter, &link) != 0 || Link_Get(&requests_, tap, &link) != 0) {
                Remove(adapter);
            }
        }
        ConsiderAll();
    }
}

void CableSet::TakeAnnouncement(const nlmsghdr *message) {
    LinkInfo link;
    if (!Link_Parse(message, &link)) {
        return;
    }
    bool connected = Find(link.index) != nullptr;
    if (message->nlmsg_type == RTM_DELLINK) {
        noted_.erase(link.index);
        Remove(link.index);
        // Without its TAP a cable carries nothing, and its descriptor reports that without end.
        const int adapter = AdapterOf(link.index);
        if (adapter != 0) {
            Remove(adapter);
            noted_.insert(adapter);
        }
    } else if (connected) {
        Consider(link);
    } else if (Adapters_Takes(rule_, link)) {
        noted_.insert(link.index);
    }
}

void CableSet::TakeNoted() {
    std::set<int> noted;
    noted.swap(noted_);
    for (int index : noted) {
        LinkInfo link;
        if (Link_Get(&requests_, index, &link) == 0) {
            Consider(link);
        }
    }
}

void CableSet::ConsiderAll() {
    Link_ForEach(&requests_, 0, [this](const LinkInfo &link) { Consider(link); });
}

void CableSet::Consider(const LinkInfo &link) {
    Cable *cable = Find(link.index);
    bool wanted = Adapters_Takes(rule_, link);
    if (cable != nullptr && wanted) {
        cable->Follow(&requests_, link);
    } else if (cable != nullptr) {
        Remove(link.index);
    } else if (wanted) {
        auto added = std::make_unique<Cable>();
        if (added->Connect(&requests_, network_, link)) {
            Tell("%s is connected to network %d", link.name.c_str(), network_);
            onConnect(added.get());
            cables_.push_back(std::move(added));
        }
    }
}

void CableSet::Remove(int adapterIndex) {
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
