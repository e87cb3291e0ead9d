#include "daemons/firewall/guestPorts.h"

#include <net/if.h>
#include <netinet/in.h>

// Behind those of the C library that have the same names in them.
#include <linux/if_ether.h>
#include <linux/netfilter.h>
#include <linux/netfilter_bridge.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <utility>
#include <vector>

#include "daemons/common/complain.h"
#include "daemons/common/linkGroup.h"
#include "daemons/common/switch.h"
#include "daemons/firewall/attributes.h"
#include "daemons/firewall/frameStatements.h"
#include "daemons/firewall/transaction.h"

namespace {

constexpr NftTable TABLE = {NFPROTO_BRIDGE, "zelan"};

// Sets: of switches' names or guests' ports; of ports, with what each has sent; of ports and their clients.
constexpr const char *GUESTS = "guests";
constexpr const char *SENDERS = "senders";
constexpr const char *NEWCOMERS = "newcomers";
constexpr const char *CLIENTS = "clients";

// Chains besides the one that sees all frames.
constexpr const char *OF_GUESTS = "of-guests";
constexpr const char *DATAGRAMS = "datagrams";
constexpr const char *REQUESTS = "requests";
constexpr const char *QUESTIONS = "questions";

constexpr uint16_t DHCP_SERVER = 67;
constexpr uint16_t DNS = 53;
constexpr uint8_t ROUTER_ADVERTISEMENT = 134;

constexpr uint64_t SECOND = 1;
constexpr uint64_t HOUR = 3600;
constexpr uint64_t MILLISECONDS = 1000;

// DHCP clients behind one port: so many at once, as where a guest has guests, and then so many more an hour.
// With leases of two hours, the longest usual ones, one port gets no further than half of a usual range.
constexpr uint32_t CLIENTS_AT_ONCE = 32;
constexpr uint64_t CLIENTS_AN_HOUR = 16;
// Longer than most leases, which clients renew when half of their time is over.
constexpr uint64_t CLIENT_TIMEOUT = 24 * HOUR * MILLISECONDS;
// Requests of all clients behind one port together, so that the server has time for other ports.
constexpr uint32_t REQUESTS_AT_ONCE = 128;
constexpr uint64_t REQUESTS_A_SECOND = 10;
// A port that is silent for that long has all of its share again anyhow.
constexpr uint64_t PORT_TIMEOUT = 2 * HOUR * MILLISECONDS;

constexpr uint32_t MAX_PORTS = 16384;
constexpr uint32_t MAX_CLIENTS = 65536;

// Each client is told by its hardware address, as the server tells it; the first word of one that is not
// known costs the port a part of its share.
void AddRequests(NftTransaction *transaction) {
    transaction->AddSet(
        {.name = SENDERS, .keyTypes = {NFT_TYPE_INDEX}, .dynamicSize = MAX_PORTS, .timeout = PORT_TIMEOUT});
    transaction->AddSet(
        {.name = NEWCOMERS, .keyTypes = {NFT_TYPE_INDEX}, .dynamicSize = MAX_PORTS, .timeout = PORT_TIMEOUT});
    transaction->AddSet({.name = CLIENTS,
                         .keyTypes = {NFT_TYPE_INDEX, NFT_TYPE_MAC},
                         .dynamicSize = MAX_CLIENTS,
                         .timeout = CLIENT_TIMEOUT});
    transaction->AddChain({.name = REQUESTS});
    transaction->AddRule(REQUESTS, {IsNoEthernetClients(), Drop()});
    transaction->AddRule(REQUESTS, {ClientIsIn(CLIENTS), RememberClient(CLIENTS), Accept()});
    transaction->AddRule(REQUESTS, {PortSendsNoMoreThan(CLIENTS_AN_HOUR, HOUR, CLIENTS_AT_ONCE, NEWCOMERS),
                                    RememberClient(CLIENTS), Accept()});
    transaction->AddRule(REQUESTS, {Drop()});
}

void AddDatagrams(NftTransaction *transaction, bool limits) {
    transaction->AddChain({.name = DATAGRAMS});
    transaction->AddRule(DATAGRAMS, {IsFromUdpPort(DHCP_SERVER), Drop()});
    transaction->AddRule(DATAGRAMS, {IsForUdpPort(DNS), Jump(QUESTIONS)});
    if (limits) {
        transaction->AddRule(
            DATAGRAMS,
            {IsForUdpPort(DHCP_SERVER),
             PortSendsNoMoreThan(REQUESTS_A_SECOND, SECOND, REQUESTS_AT_ONCE, SENDERS), Jump(REQUESTS)});
        transaction->AddRule(DATAGRAMS, {IsForUdpPort(DHCP_SERVER), Drop()});
    }
}

// Whoever answers them can count the questions of each port then.
void AddQuestions(NftTransaction *transaction) {
    transaction->AddChain({.name = QUESTIONS});
    transaction->AddRule(QUESTIONS, {FrameIsOf(ETH_P_IP), HasIpv4Options(), Drop()});
    transaction->AddRule(QUESTIONS, {FrameIsOf(ETH_P_IP), MarkWithPort()});
}

// What would be taken apart only by who receives it stays out of sight here: a tag behind a tag without a
// VLAN, and the form of frames that IEEE 802.2 has for Ethernet's protocols.
void AddDisguises(NftTransaction *transaction) {
    constexpr uint16_t TAGS[] = {ETH_P_8021Q, ETH_P_8021AD};
    for (uint16_t tag : TAGS) {
        transaction->AddRule(OF_GUESTS, {FrameIsOf(tag), TagIsOfNoVlan(), Drop()});
    }
    transaction->AddRule(OF_GUESTS, {IsEncapsulatedEthernet(), Drop()});
}

// What the rules are made of: whether a guest is told by the name of its switch, or by its port, which is
// known only a moment after it was attached; and whether there are limits. By what a kernel has of it, the
// best first.
struct Means {
    bool names;
    bool limits;
};
constexpr Means ALL_MEANS[] = {{true, true}, {false, true}, {true, false}, {false, false}};

// What tells most frames apart comes first.
void AddTable(NftTransaction *transaction, const Means &means) {
    constexpr const char *CHAIN = "frames";
    transaction->AddTable();
    transaction->AddSet({.name = GUESTS, .keyTypes = {means.names ? NFT_TYPE_NAME : NFT_TYPE_INDEX}});
    AddQuestions(transaction);
    if (means.limits) {
        AddRequests(transaction);
    }
    AddDatagrams(transaction, means.limits);
    transaction->AddChain({.name = OF_GUESTS});
    transaction->AddRule(OF_GUESTS, {IsProtocol(IPPROTO_UDP), Jump(DATAGRAMS)});
    transaction->AddRule(OF_GUESTS, {IsForTcpPort(DNS), Jump(QUESTIONS)});
    transaction->AddRule(OF_GUESTS, {IsIcmpv6Type(ROUTER_ADVERTISEMENT), Drop()});
    AddDisguises(transaction);
    transaction->AddChain({CHAIN, "filter", NF_BR_PRE_ROUTING, NF_BR_PRI_FILTER_BRIDGED});
    transaction->AddRule(CHAIN, {InGroup(LINK_GROUP_CARRIER, Match::IS_NOT),
                                 means.names ? InBridgeIsIn(GUESTS) : InIndexIsIn(GUESTS), Jump(OF_GUESTS)});
}

std::vector<NftElement> ElementsOf(const std::set<std::string> &keys) {
    std::vector<NftElement> elements;
    for (const std::string &key : keys) {
        elements.push_back({key});
    }
    return elements;
}

std::set<std::string> Without(const std::set<std::string> &all, const std::set<std::string> &some) {
    std::set<std::string> rest;
    std::set_difference(all.begin(), all.end(), some.begin(), some.end(), std::inserter(rest, rest.end()));
    return rest;
}

}  // namespace

bool GuestPorts_MarkQuestions() {
    RtSocket socket;
    return socket.Open(RtSocket::NO_GROUPS, NETLINK_NETFILTER) && Nft_Find(&socket, TABLE, QUESTIONS) == 0;
}

void GuestPorts::Guard(const GuardedNetworks &guarded) {
    if (guarded_ == guarded) {
        return;
    }
    bool exists = guarded_ && !guarded_->networks.empty();
    int error = exists && !guarded.networks.empty() ? Change(guarded) : Rebuild(guarded);
    if (error != 0) {
        error = Rebuild(guarded);
    }
    guarded_ = guarded;
    if (error != 0 && !std::exchange(hasComplained_, true)) {
        Complain("nftables does not keep guests from posing as routers or DHCP servers: %s", strerror(error));
    }
}

std::set<std::string> GuestPorts::KeysOf(const GuardedNetworks &guarded) const {
    std::set<std::string> keys;
    if (ALL_MEANS[means_].names) {
        for (int network : guarded.networks) {
            std::string name = Switch_Name(network);
            name.resize(IFNAMSIZ);
            keys.insert(name);
        }
    } else {
        for (int guest : guarded.guests) {
            keys.insert(BytesOf(guest));
        }
    }
    return keys;
}

int GuestPorts::Change(const GuardedNetworks &guarded) {
    const std::set<std::string> before = KeysOf(*guarded_);
    const std::set<std::string> now = KeysOf(guarded);
    const std::vector<NftElement> added = ElementsOf(Without(now, before));
    const std::vector<NftElement> removed = ElementsOf(Without(before, now));
    if (added.empty() && removed.empty()) {
        return 0;
    }
    RtSocket socket;
    NftTransaction transaction(TABLE);
    transaction.AddElements(GUESTS, added);
    transaction.DeleteElements(GUESTS, removed);
    return socket.Open(RtSocket::NO_GROUPS, NETLINK_NETFILTER) ? transaction.Commit(&socket) : EIO;
}

// What a kernel lacks it is not asked for again.
int GuestPorts::Rebuild(const GuardedNetworks &guarded) {
    RtSocket socket;
    if (!socket.Open(RtSocket::NO_GROUPS, NETLINK_NETFILTER)) {
        return EIO;
    }
    int error = TryRebuild(&socket, guarded);
    for (size_t next = means_ + 1; Nft_IsLack(error) && next < std::size(ALL_MEANS); next++) {
        means_ = next;
        error = TryRebuild(&socket, guarded);
        if (error == 0 && !ALL_MEANS[means_].limits) {
            Complain("this kernel lacks what would limit guests' DHCP requests");
        }
    }
    return error;
}

int GuestPorts::TryRebuild(RtSocket *socket, const GuardedNetworks &guarded) const {
    NftTransaction transaction(TABLE);
    bool exists = Nft_Find(socket, TABLE) == 0;
    if (exists) {
        transaction.DeleteTable();
    }
    if (!guarded.networks.empty()) {
        AddTable(&transaction, ALL_MEANS[means_]);
        transaction.AddElements(GUESTS, ElementsOf(KeysOf(guarded)));
    }
    return exists || !guarded.networks.empty() ? transaction.Commit(socket) : 0;
}
