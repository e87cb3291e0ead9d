#include "daemons/firewall/hostRules.h"

#include <arpa/inet.h>
#include <linux/netfilter.h>
#include <linux/netfilter/nf_conntrack_common.h>
#include <linux/netfilter_ipv4.h>
#include <netinet/in.h>

#include <vector>

#include "daemons/common/linkGroup.h"
#include "daemons/firewall/attributes.h"
#include "daemons/firewall/flowObjects.h"

namespace {

// Sets and maps. Keys: addresses of routers; protocol . port; address . protocol . port; indexes.
constexpr const char *ROUTERS = "routers";            // all of them
constexpr const char *TIMEOUTS = "timeouts";          // what to do about the time-out of a router's UDP flows
constexpr const char *HELPERS = "helpers";            // and about its FTP connections
constexpr const char *FORWARDS = "forwards";          // the router that a port of the host leads to
constexpr const char *KEPT = "kept";                  // endpoints that no forward takes from the host
constexpr const char *ADAPTERS = "adapters";          // those that forward only because we have told them to
constexpr const char *SAME_ADAPTER = "same-adapter";  // each of them paired with itself

constexpr uint32_t INVALID = NF_CT_STATE_INVALID_BIT;
constexpr uint32_t ANSWERS = NF_CT_STATE_BIT(IP_CT_ESTABLISHED) | NF_CT_STATE_BIT(IP_CT_RELATED);

constexpr Ipv4Subnet LOOPBACK = {0x7f000000, 8};

void AddSets(NftTransaction *transaction) {
    transaction->AddSet({.name = ROUTERS, .keyTypes = {NFT_TYPE_IPV4}});
    transaction->AddSet({.name = TIMEOUTS, .keyTypes = {NFT_TYPE_IPV4}, .verdicts = true});
    transaction->AddSet({.name = HELPERS, .keyTypes = {NFT_TYPE_IPV4}, .verdicts = true});
    transaction->AddSet(
        {.name = FORWARDS, .keyTypes = {NFT_TYPE_PROTOCOL, NFT_TYPE_PORT}, .valueTypes = {NFT_TYPE_IPV4}});
    transaction->AddSet({.name = KEPT, .keyTypes = {NFT_TYPE_IPV4, NFT_TYPE_PROTOCOL, NFT_TYPE_PORT}});
    transaction->AddSet({.name = ADAPTERS, .keyTypes = {NFT_TYPE_INDEX}});
    transaction->AddSet({.name = SAME_ADAPTER, .keyTypes = {NFT_TYPE_INDEX, NFT_TYPE_INDEX}});
}

// The host's own connections to its forwards may go to 127.0.0.1, so that the uplinks are allowed to carry
// such addresses; none of them may come from the guests. On hosts that show bridged frames to the packet
// filter (br_netfilter) those on a switch must not be taken for packets to the host, nor be translated.
void AddGuard(NftTransaction *transaction) {
    constexpr const char *CHAIN = "guard";
    transaction->AddChain({CHAIN, "filter", NF_INET_PRE_ROUTING, NF_IP_PRI_RAW});
    transaction->AddRule(CHAIN, {InGroup(LINK_GROUP_UPLINK), IsIpv4(Match::IS),
                                 AddressInSubnet(PacketEnd::DESTINATION, LOOPBACK, Match::IS), Drop()});
    // Answers to a sender who is elsewhere would go there, and what a guest sends under a strange address
    // might be taken for its owner's.
    transaction->AddRule(CHAIN, {InGroup(LINK_GROUP_HOST), IsIpv4(Match::IS), SenderIsElsewhere(), Drop()});
    transaction->AddRule(CHAIN, {InGroup(LINK_GROUP_CARRIER), Untracked()});
}

// A switch is no endpoint: guests reach the host by the interfaces that were configured for it.
void AddInput(NftTransaction *transaction) {
    constexpr const char *CHAIN = "input";
    transaction->AddChain({CHAIN, "filter", NF_INET_LOCAL_IN, NF_IP_PRI_FILTER});
    transaction->AddRule(CHAIN, {InGroup(LINK_GROUP_CARRIER), Drop()});
}

void AddForwardOfUplinks(NftTransaction *transaction, const char *chain) {
    Statement in = InGroup(LINK_GROUP_UPLINK);
    Statement out = OutGroup(LINK_GROUP_UPLINK);
    transaction->AddRule(chain, {in, FlowState(INVALID), Drop()});
    transaction->AddRule(chain, {out, FlowState(INVALID), Drop()});
    // What has not been translated by the router cannot be answered to its guests alone.
    transaction->AddRule(chain, {in, IsIpv4(Match::IS_NOT), Drop()});
    transaction->AddRule(
        chain, {in, IsIpv4(Match::IS), AddressInSet(PacketEnd::SOURCE, ROUTERS, Match::IS_NOT), Drop()});
    transaction->AddRule(chain, {out, FlowState(ANSWERS), Accept()});
    transaction->AddRule(chain, {out, FlowStatus(IPS_DST_NAT), Accept()});
    transaction->AddRule(chain, {out, Drop()});
    transaction->AddRule(chain, {in, Accept()});
}

// Frames between the ports of a switch show up here under br_netfilter, as packets from the switch to itself.
// The same goes for frames on a bridge that is one of the host's adapters.
void AddForward(NftTransaction *transaction) {
    constexpr const char *CHAIN = "forward";
    static_assert(LINK_GROUP_CARRIER < LINK_GROUP_DEAD && LINK_GROUP_DEAD < LINK_GROUP_HOST);
    transaction->AddChain({CHAIN, "filter", NF_INET_FORWARD, NF_IP_PRI_FILTER});
    transaction->AddRule(CHAIN, {InGroup(LINK_GROUP_CARRIER), OutGroup(LINK_GROUP_CARRIER), Accept()});
    transaction->AddRule(CHAIN, {InGroupFromTo(LINK_GROUP_CARRIER, LINK_GROUP_HOST), Drop()});
    transaction->AddRule(CHAIN, {OutGroupFromTo(LINK_GROUP_CARRIER, LINK_GROUP_HOST), Drop()});
    AddForwardOfUplinks(transaction, CHAIN);
    transaction->AddRule(CHAIN, {InIndexIsIn(ADAPTERS), InAndOutIndexesAreNotIn(SAME_ADAPTER), Drop()});
}

// Ports of the host's addresses lead to the routers, for packets from elsewhere and for the host's own.
void AddForwards(NftTransaction *transaction) {
    const NftChain chains[] = {{"forwards", "nat", NF_INET_PRE_ROUTING, NF_IP_PRI_NAT_DST},
                               {"own-forwards", "nat", NF_INET_LOCAL_OUT, NF_IP_PRI_NAT_DST}};
    for (const NftChain &chain : chains) {
        transaction->AddChain(chain);
        transaction->AddRule(chain.name, {IsIpv4(Match::IS), IsForEndpointIn(KEPT), Accept()});
        transaction->AddRule(chain.name, {IsIpv4(Match::IS), AddressIsLocal(PacketEnd::DESTINATION),
                                          DnatToAddressOf(FORWARDS)});
    }
}

// To a forward of their own network the guests come back through the uplink, and the host comes with any of
// its addresses, even one of the guests' subnet: both get the uplink's, so that answers find the way.
void AddTranslate(NftTransaction *transaction) {
    constexpr const char *CHAIN = "translate";
    Statement out = OutGroup(LINK_GROUP_UPLINK);
    Statement ipv4 = IsIpv4(Match::IS);
    transaction->AddChain({CHAIN, "nat", NF_INET_POST_ROUTING, NF_IP_PRI_NAT_SRC});
    for (const char *map : {TIMEOUTS, HELPERS}) {
        transaction->AddRule(CHAIN, {ipv4, VerdictByAddress(PacketEnd::SOURCE, map)});
        transaction->AddRule(CHAIN, {out, ipv4, VerdictByAddress(PacketEnd::DESTINATION, map)});
    }
    transaction->AddRule(CHAIN, {ipv4, AddressInSet(PacketEnd::SOURCE, ROUTERS, Match::IS), Masquerade()});
    transaction->AddRule(CHAIN, {out, AddressIsLocal(PacketEnd::SOURCE), Masquerade()});
}

std::string ProtocolAndPort(const HostPort &port) {
    uint8_t protocol = port.tcp ? IPPROTO_TCP : IPPROTO_UDP;
    return Nft_Padded(BytesOf(protocol)) + Nft_Padded(BytesOf(htons(port.port)));
}

using ChangeElements = void (NftTransaction::*)(const char *, std::span<const NftElement>);

void ChangeShare(NftTransaction *transaction, const NatShare &share, ChangeElements change) {
    const std::string router = BytesOf(htonl(share.router));
    std::vector<NftElement> forwards;
    std::vector<NftElement> kept;
    for (const HostPort &port : share.forwards) {
        forwards.push_back({.key = ProtocolAndPort(port), .value = router});
    }
    for (const HostEndpoint &endpoint : share.kept) {
        kept.push_back({.key = BytesOf(htonl(endpoint.address)) + ProtocolAndPort(endpoint.port)});
    }
    const NftElement itself = {.key = router};
    const NftElement timeout = {.key = router, .jump = FlowObjects_TimeoutChain(share.udpTimeout)};
    const NftElement ftp = {.key = router, .jump = FTP_CHAIN};
    (transaction->*change)(ROUTERS, std::span(&itself, 1));
    (transaction->*change)(TIMEOUTS, std::span(&timeout, share.ownTimeout ? 1 : 0));
    (transaction->*change)(HELPERS, std::span(&ftp, share.activeFtp ? 1 : 0));
    (transaction->*change)(FORWARDS, forwards);
    (transaction->*change)(KEPT, kept);
}

void ChangeAdapters(NftTransaction *transaction, std::span<const int> links, ChangeElements change) {
    std::vector<NftElement> adapters;
    std::vector<NftElement> pairs;
    for (int link : links) {
        adapters.push_back({.key = BytesOf(link)});
        pairs.push_back({.key = BytesOf(link) + BytesOf(link)});
    }
    (transaction->*change)(ADAPTERS, adapters);
    (transaction->*change)(SAME_ADAPTER, pairs);
}

}  // namespace

NftTable HostRules_Table() {
    return {NFPROTO_INET, "zelan"};
}

void HostRules_AddTable(NftTransaction *transaction) {
    transaction->AddTable();
    AddSets(transaction);
    AddGuard(transaction);
    AddInput(transaction);
    AddForward(transaction);
    AddForwards(transaction);
    AddTranslate(transaction);
}

void HostRules_AddShare(NftTransaction *transaction, const NatShare &share) {
    ChangeShare(transaction, share, &NftTransaction::AddElements);
}

void HostRules_DeleteShare(NftTransaction *transaction, const NatShare &share) {
    ChangeShare(transaction, share, &NftTransaction::DeleteElements);
}

void HostRules_AddAdapters(NftTransaction *transaction, std::span<const int> links) {
    ChangeAdapters(transaction, links, &NftTransaction::AddElements);
}

void HostRules_DeleteAdapters(NftTransaction *transaction, std::span<const int> links) {
    ChangeAdapters(transaction, links, &NftTransaction::DeleteElements);
}
