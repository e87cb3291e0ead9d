#include "daemons/firewall/hostGuard.h"

#include <arpa/inet.h>
#include <linux/netconf.h>
#include <linux/netfilter.h>
#include <linux/netfilter/nf_tables.h>
#include <linux/netfilter/nfnetlink.h>
#include <sys/prctl.h>

#include <cstring>
#include <set>
#include <string>
#include <utility>

#include "daemons/common/address.h"
#include "daemons/firewall/hostRules.h"
#include "daemons/firewall/hostTable.h"

namespace {

constexpr uint32_t GroupBit(unsigned group) {
    return uint32_t{1} << (group - 1);
}

std::string TextOf(const rtattr *attribute) {
    const char *data = static_cast<const char *>(RTA_DATA(attribute));
    return std::string(data, strnlen(data, RTA_PAYLOAD(attribute)));
}

enum class HostSwitch : uint8_t { UNCHANGED, ON, OFF };

// What the message tells of the switch for the whole host.
HostSwitch ReadHostSwitch(const nlmsghdr *message) {
    if (message->nlmsg_type != RTM_NEWNETCONF) {
        return HostSwitch::UNCHANGED;
    }
    int link = 0;
    HostSwitch state = HostSwitch::UNCHANGED;
    Rt_ForEachAttribute(message, sizeof(netconfmsg), [&](const rtattr *attribute) {
        if (attribute->rta_type == NETCONFA_IFINDEX) {
            link = static_cast<int>(Rt_Value32(attribute));
        } else if (attribute->rta_type == NETCONFA_FORWARDING) {
            state = Rt_Value32(attribute) != 0 ? HostSwitch::ON : HostSwitch::OFF;
        }
    });
    return link == NETCONFA_IFINDEX_ALL ? state : HostSwitch::UNCHANGED;
}

std::string OwnName() {
    char name[16] = {};
    prctl(PR_GET_NAME, name);
    return name;
}

// Follows the messages of one change: what it takes away comes first, who has made it last. Not all of them
// need to be there at once.
class RuleChanges {
  public:
    // *loss keeps whether the change that is being told takes something away.
    explicit RuleChanges(bool *loss) : loss_(loss) {}

    // True when somebody else has taken something of the host's table away.
    bool Take(const nlmsghdr *message) {
        if (NFNL_SUBSYS_ID(message->nlmsg_type) != NFNL_SUBSYS_NFTABLES) {
            return false;
        }
        if (NFNL_MSG_TYPE(message->nlmsg_type) == NFT_MSG_NEWGEN) {
            return std::exchange(*loss_, false) && Author(message) != ownName_;
        }
        *loss_ = *loss_ || IsLoss(message);
        return false;
    }

  private:
    static std::string Author(const nlmsghdr *message) {
        std::string name;
        Rt_ForEachAttribute(message, sizeof(nfgenmsg), [&name](const rtattr *attribute) {
            name = attribute->rta_type == NFTA_GEN_PROC_NAME ? TextOf(attribute) : name;
        });
        return name;
    }

    static bool IsLoss(const nlmsghdr *message) {
        switch (NFNL_MSG_TYPE(message->nlmsg_type)) {
            case NFT_MSG_DELTABLE:
            case NFT_MSG_DELCHAIN:
            case NFT_MSG_DELRULE:
            case NFT_MSG_DELSET:
                break;
            default:
                return false;
        }
        auto *header = static_cast<const nfgenmsg *>(NLMSG_DATA(message));
        std::string name;
        Rt_ForEachAttribute(message, sizeof *header, [&name](const rtattr *attribute) {
            name = (attribute->rta_type & NLA_TYPE_MASK) == NFTA_TABLE_NAME ? TextOf(attribute) : name;
        });
        return name == HostRules_Table().name;
    }

    const std::string ownName_ = OwnName();
    bool *loss_;
};

}  // namespace

bool HostGuard::Begin() {
    if (!addresses_.Open(RTMGRP_IPV4_IFADDR | GroupBit(RTNLGRP_IPV4_NETCONF)) ||
        !rules_.Open(GroupBit(NFNLGRP_NFTABLES), NETLINK_NETFILTER)) {
        return false;
    }
    HostTable_RestoreWhenMissing();
    HostTable_UseAllAdapters();
    return true;
}

void HostGuard::Collect(std::vector<pollfd> *waits) const {
    waits->push_back({addresses_.descriptor(), POLLIN, 0});
    waits->push_back({rules_.descriptor(), POLLIN, 0});
}

bool HostGuard::Serve() {
    bool lost = ServeRules();
    ServeAddresses();
    return lost;
}

// The name of all tables of ours is the same.
bool HostGuard::ServeRules() {
    RuleChanges changes(&lossIsTold_);
    bool lost = false;
    bool complete =
        rules_.TakeAnnouncements([&](const nlmsghdr *message) { lost = changes.Take(message) || lost; });
    if (lost || !complete) {
        HostTable_Restore();
    }
    return lost || !complete;
}

void HostGuard::ServeAddresses() {
    std::set<int> links;
    HostSwitch state = HostSwitch::UNCHANGED;
    bool complete = addresses_.TakeAnnouncements([&](const nlmsghdr *message) {
        int link = Address_LinkOfNew(message);
        if (link != 0) {
            links.insert(link);
        }
        HostSwitch now = ReadHostSwitch(message);
        state = now != HostSwitch::UNCHANGED ? now : state;
    });
    if (state == HostSwitch::ON) {
        HostTable_LeaveAdapters();
    }
    if (state == HostSwitch::OFF || !complete) {
        HostTable_UseAllAdapters();
    } else if (!links.empty()) {
        HostTable_UseAdapters({links.begin(), links.end()});
    }
}
