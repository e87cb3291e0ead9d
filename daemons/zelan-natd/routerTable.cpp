#include "daemons/zelan-natd/routerTable.h"

#include <arpa/inet.h>
#include <linux/netfilter.h>
#include <linux/netfilter/nf_conntrack_common.h>
#include <linux/netfilter_ipv4.h>
#include <netinet/in.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>

#include "daemons/common/complain.h"
#include "daemons/firewall/attributes.h"
#include "daemons/firewall/flowObjects.h"
#include "daemons/zelan-natd/nameServers.h"

namespace {

constexpr NftTable TABLE = {NFPROTO_IPV4, "zelan-natd"};

constexpr const char *FORWARDS = "forwards";  // the guest's address . port by protocol . port of the host
constexpr const char *FLOWS = "flows";        // how many each guest has

// Flows of one guest: more than a busy machine has, and few enough that a network of hostile ones does not
// fill the host's table of flows, where each stands once more.
constexpr uint32_t FLOWS_PER_GUEST = 4096;
// The kernel allots memory for the counts at once, so that no more are counted than a subnet can have guests.
constexpr uint32_t MAX_COUNTED_GUESTS = 65535;

constexpr uint32_t ANSWERS = NF_CT_STATE_BIT(IP_CT_ESTABLISHED) | NF_CT_STATE_BIT(IP_CT_RELATED);
constexpr uint32_t FIRST_PACKETS = NF_CT_STATE_BIT(IP_CT_NEW);

// A sender outside the subnet gets nothing: what the router itself answers, DNS, would leave by the uplink to
// whoever really has the address. Virtual machines and containers have locally administered MAC addresses (as
// 52:54:00 and 02:00:00) or one of the OUI 00:16:3e; any other sender is a machine that has got onto the
// switch.
void AddGuard(NftTransaction *transaction, const NatConf &conf) {
    constexpr const char *CHAIN = "guard";
    constexpr uint8_t LOCAL_BIT[6] = {0x02};
    constexpr uint8_t NONE[6] = {};
    constexpr uint8_t OUI_BITS[6] = {0xff, 0xff, 0xff};
    constexpr uint8_t XEN_OUI[6] = {0x00, 0x16, 0x3e};
    transaction->AddChain({CHAIN, "filter", NF_INET_PRE_ROUTING, NF_IP_PRI_RAW});
    transaction->AddRule(CHAIN, {InNamed(GUESTS_LINK),
                                 AddressInSubnet(PacketEnd::SOURCE, conf.subnet(), Match::IS_NOT), Drop()});
    if (!conf.allowAnyOui) {
        transaction->AddRule(CHAIN, {InNamed(GUESTS_LINK), SenderMac(LOCAL_BIT, NONE, Match::IS),
                                     SenderMac(OUI_BITS, XEN_OUI, Match::IS_NOT), Drop()});
    }
}

// Before a flow is entered anywhere, also one to the router itself.
void AddLimit(NftTransaction *transaction, const Ipv4Subnet &subnet) {
    constexpr const char *CHAIN = "flow-limit";
    transaction->AddSet({.name = FLOWS,
                         .keyTypes = {NFT_TYPE_IPV4},
                         .dynamicSize = std::min(subnet.last() - subnet.first(), MAX_COUNTED_GUESTS)});
    transaction->AddChain({CHAIN, "filter", NF_INET_PRE_ROUTING, NF_IP_PRI_MANGLE});
    Statement first = InNamed(GUESTS_LINK) + FlowState(FIRST_PACKETS);
    transaction->AddRule(CHAIN, {first, SenderHasNoMoreFlowsThan(FLOWS_PER_GUEST, FLOWS), Accept()});
    transaction->AddRule(CHAIN, {first, Drop()});
}

void AddForward(NftTransaction *transaction) {
    constexpr const char *CHAIN = "forward";
    transaction->AddChain({CHAIN, "filter", NF_INET_FORWARD, NF_IP_PRI_FILTER});
    // Questions to others than the gateway carry the switch's mark as well.
    Statement out = InNamed(GUESTS_LINK) + OutNamed(UPLINK_LINK);
    transaction->AddRule(CHAIN, {IsForUdpPort(DNS_PORT), out, ClearServiceType()});
    transaction->AddRule(CHAIN, {IsForTcpPort(DNS_PORT), out, ClearServiceType()});
    transaction->AddRule(CHAIN, {FlowState(NF_CT_STATE_INVALID_BIT), Drop()});
    transaction->AddRule(CHAIN, {FlowState(ANSWERS), Accept()});
    transaction->AddRule(CHAIN, {out, Accept()});
    transaction->AddRule(CHAIN, {FlowStatus(IPS_DST_NAT), Accept()});
    transaction->AddRule(CHAIN, {Drop()});
}

void AddForwards(NftTransaction *transaction, const std::vector<PortForward> &forwards) {
    constexpr const char *CHAIN = "forwards";
    std::vector<NftElement> elements;
    for (const PortForward &forward : forwards) {
        uint8_t protocol = forward.tcp ? IPPROTO_TCP : IPPROTO_UDP;
        elements.push_back(
            {.key = Nft_Padded(BytesOf(protocol)) + Nft_Padded(BytesOf(htons(forward.hostPort))),
             .value = BytesOf(htonl(forward.guest)) + Nft_Padded(BytesOf(htons(forward.guestPort)))});
    }
    transaction->AddSet({.name = FORWARDS,
                         .keyTypes = {NFT_TYPE_PROTOCOL, NFT_TYPE_PORT},
                         .valueTypes = {NFT_TYPE_IPV4, NFT_TYPE_PORT}});
    transaction->AddElements(FORWARDS, elements);
    transaction->AddChain({CHAIN, "nat", NF_INET_PRE_ROUTING, NF_IP_PRI_NAT_DST});
    transaction->AddRule(CHAIN, {InNamed(UPLINK_LINK), DnatToEndpointOf(FORWARDS)});
}

// A jump by a chain of a flow object, when it is there.
void AddTranslate(NftTransaction *transaction, const std::vector<std::string> &flowChains) {
    constexpr const char *CHAIN = "translate";
    transaction->AddChain({CHAIN, "nat", NF_INET_POST_ROUTING, NF_IP_PRI_NAT_SRC});
    for (const std::string &chain : flowChains) {
        transaction->AddRule(CHAIN, {Jump(chain)});
    }
    transaction->AddRule(CHAIN, {OutNamed(UPLINK_LINK), Masquerade()});
}

int Load(RtSocket *socket, const NatConf &conf, const std::vector<PortForward> &forwards, bool timeout,
         bool ftp) {
    NftTransaction transaction(TABLE);
    std::vector<std::string> flowChains;
    transaction.AddTable();
    if (timeout) {
        FlowObjects_AddTimeout(&transaction, conf.udpTimeout);
        flowChains.push_back(FlowObjects_TimeoutChain(conf.udpTimeout));
    }
    if (ftp) {
        FlowObjects_AddFtp(&transaction);
        flowChains.emplace_back(FTP_CHAIN);
    }
    AddGuard(&transaction, conf);
    AddLimit(&transaction, conf.subnet());
    AddForwards(&transaction, forwards);
    AddForward(&transaction);
    AddTranslate(&transaction, flowChains);
    return transaction.Commit(socket);
}

}  // namespace

bool RouterTable_Load(const NatConf &conf, const std::vector<PortForward> &forwards) {
    const struct {
        bool timeout;
        bool ftp;
    } attempts[] = {{true, true}, {true, false}, {false, false}};
    RtSocket socket;
    if (!socket.Open(RtSocket::NO_GROUPS, NETLINK_NETFILTER)) {
        return false;
    }
    int error = 0;
    for (const auto &attempt : attempts) {
        error = attempt.ftp && !conf.activeFtp ? ENOENT
                                               : Load(&socket, conf, forwards, attempt.timeout, attempt.ftp);
        if (!Nft_IsLack(error)) {
            break;
        }
    }
    if (error != 0) {
        Complain("nftables refuses the router's rules: %s", strerror(error));
    }
    return error == 0;
}
