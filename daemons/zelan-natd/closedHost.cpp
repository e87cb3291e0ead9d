#include "daemons/zelan-natd/closedHost.h"

#include <arpa/inet.h>
#include <linux/netfilter.h>
#include <linux/netfilter/nf_tables.h>
#include <linux/netfilter/nfnetlink.h>

#include <cstring>
#include <string>

#include "daemons/common/complain.h"
#include "daemons/common/rtnetlink.h"

namespace {

struct ChainInfo {
    std::string table;
    uint32_t hook = NF_INET_NUMHOOKS;
    uint32_t policy = NF_ACCEPT;
};

uint32_t HookNumber(const rtattr *hook) {
    auto left = static_cast<int>(RTA_PAYLOAD(hook));
    auto *attribute = static_cast<const rtattr *>(RTA_DATA(hook));
    for (; RTA_OK(attribute, left); attribute = RTA_NEXT(attribute, left)) {
        if ((attribute->rta_type & NLA_TYPE_MASK) == NFTA_HOOK_HOOKNUM) {
            return ntohl(Rt_Value32(attribute));
        }
    }
    return NF_INET_NUMHOOKS;
}

ChainInfo ReadChain(const nlmsghdr *message) {
    ChainInfo chain;
    Rt_ForEachAttribute(message, sizeof(nfgenmsg), [&chain](const rtattr *attribute) {
        const char *data = static_cast<const char *>(RTA_DATA(attribute));
        switch (attribute->rta_type & NLA_TYPE_MASK) {
            case NFTA_CHAIN_TABLE:
                chain.table.assign(data, strnlen(data, RTA_PAYLOAD(attribute)));
                break;
            case NFTA_CHAIN_HOOK:
                chain.hook = HookNumber(attribute);
                break;
            case NFTA_CHAIN_POLICY:
                chain.policy = ntohl(Rt_Value32(attribute));
                break;
            default:
                break;
        }
    });
    return chain;
}

}  // namespace

void ClosedHost_Warn(int network, const char *uplink) {
    RtSocket socket;
    nfgenmsg header = {};
    RtRequest request(NFNL_SUBSYS_NFTABLES << 8 | NFT_MSG_GETCHAIN, NLM_F_DUMP, &header, sizeof header);
    if (!socket.Open(RtSocket::NO_GROUPS, NETLINK_NETFILTER)) {
        return;
    }
    socket.Ask(&request, [network, uplink](const nlmsghdr *message) {
        auto family = static_cast<const nfgenmsg *>(NLMSG_DATA(message))->nfgen_family;
        ChainInfo chain = ReadChain(message);
        if ((family == NFPROTO_IPV4 || family == NFPROTO_INET) && chain.hook == NF_INET_FORWARD &&
            chain.policy == NF_DROP) {
            Complain(
                "the host's table %s drops forwarded packets by default: guests of network %d get out "
                "only if it accepts what comes in and goes out by %s",
                chain.table.c_str(), network, uplink);
        }
    });
}
