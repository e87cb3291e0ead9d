#include "daemons/zelan-bridge/cableSet.h"

#include <poll.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <tuple>
#include <utility>

#include "daemons/common/complain.h"
#include "daemons/common/deadline.h"
#include "daemons/common/linkGroup.h"
#include "daemons/common/switch.h"

namespace {

using std::chrono::milliseconds;

// How long a new adapter is left alone before it is looked at: tools make an interface first and plug it into
// a bridge or rename it a moment later.
constexpr milliseconds SETTLE_TIME{100};

// How long a copying process that has ended is left away, should it end at once again.
constexpr milliseconds RESTART_TIME{1000};

// How long an adapter that could not be connected is left alone: each time twice as long as the last.
constexpr milliseconds FIRST_PAUSE{1000};
constexpr milliseconds LONGEST_PAUSE{600'000};

// Whether nothing has changed that a cable depends on. (An attempt to connect changes other things.)
bool IsUnchanged(const LinkInfo &before, const LinkInfo &now) {
    auto state = [](const LinkInfo &link) {
        return std::tuple(link.name, link.mtu, link.mac, link.flags & IFF_UP);
    };
    return state(before) == state(now);
}

Cable::Surroundings SurroundingsOf(int adapter, const HostLinks &links, size_t cableCount) {
    Cable::Surroundings surroundings;
    surroundings.several = cableCount > 1;
    for (uint16_t vlan : links.VlansOn(adapter)) {
        if (vlan < VLAN_COUNT) {
            surroundings.hostVlans[vlan / 64] |= uint64_t{1} << vlan % 64;
        }
    }
    return surroundings;
}

}  // namespace

bool CableSet::Begin() {
    if (!requests_.Open() || !announcements_.Open(RTMGRP_LINK) || Switch_Ensure(&requests_, network_) == 0) {
        return false;
    }
    TakeNoted();
    return true;
}

bool CableSet::MayHaveFilters() const {
    return std::none_of(cables_.begin(), cables_.end(), [](const auto &cable) { return cable->IsLinked(); });
}

void CableSet::Run() {
    paths_.copier.Start();
    Clock::time_point settled = Clock::now();
    Clock::time_point restart = settled;
    for (;;) {
        Clock::time_point next = retry_;
        if (noted_) {
            next = std::min(next, settled);
        }
        if (paths_.copier.IsWanted()) {
            next = std::min(next, restart);
        }
        std::array<pollfd, 2> waits = {
            {{announcements_.descriptor(), POLLIN, 0}, {paths_.copier.descriptor(), POLLIN, 0}}};
        poll(waits.data(), waits.size(), Deadline_Milliseconds(next));
        if (waits[1].revents != 0) {
            paths_.copier.NoteEnd();
            restart = Clock::now() + RESTART_TIME;
        }
        if (waits[0].revents != 0) {
            settled = noted_ ? settled : Clock::now() + SETTLE_TIME;
            TakeAnnouncements();
        }
        if (noted_ && Clock::now() >= settled) {
            settled = Clock::now() + SETTLE_TIME;
            TakeNoted();
        }
        if (paths_.copier.IsWanted() && Clock::now() >= restart) {
            paths_.copier.Start();
        }
        if (Clock::now() >= retry_) {
            retry_ = Clock::time_point::max();
            refused_.clear();
            TakeNoted();
        }
    }
}

void CableSet::TakeAnnouncements() {
    if (!announcements_.TakeAnnouncements([this](const nlmsghdr *message) { TakeAnnouncement(message); })) {
        noted_ = true;
    }
    HostLinks links;
    if (std::exchange(changed_, false) && HostLinks_Read(&requests_, &links)) {
        GiveUpUntaken(links);
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
        changed_ = true;
    }
    noted_ = noted_ || !LinkGroup_IsOurs(link.group);
}

void CableSet::TakeNoted() {
    HostLinks links;
    noted_ = !HostLinks_Read(&requests_, &links);
    if (!noted_) {
        GiveUpUntaken(links);
        ConnectTaken(links);
        for (const auto &cable : cables_) {
            cable->Follow(SurroundingsOf(cable->adapterIndex(), links, cables_.size()));
        }
    }
    PlanRetry();
}

void CableSet::PlanRetry() {
    if (refused_.empty()) {
        pause_ = milliseconds::zero();
        retry_ = Clock::time_point::max();
    } else if (retry_ == Clock::time_point::max()) {
        pause_ = std::clamp(2 * pause_, FIRST_PAUSE, LONGEST_PAUSE);
        retry_ = Clock::now() + pause_;
    }
}

void CableSet::GiveUpUntaken(const HostLinks &links) {
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
}

void CableSet::ConnectTaken(const HostLinks &links) {
    for (const auto &[index, link] : links.byIndex) {
        if (Find(index) == nullptr && Adapters_Takes(rule_, link, links)) {
            Connect(link, links);
        }
    }
}

void CableSet::Connect(const LinkInfo &link, const HostLinks &links) {
    auto refused = refused_.find(link.index);
    if (refused != refused_.end() && IsUnchanged(refused->second, link)) {
        return;
    }
    refused_.erase(link.index);
    auto added = std::make_unique<Cable>(&paths_);
    if (!added->Connect(&requests_, network_, link, SurroundingsOf(link.index, links, cables_.size() + 1))) {
        refused_[link.index] = link;
        return;
    }
    Tell("%s is connected to network %d", link.name.c_str(), network_);
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
