#include "daemons/firewall/guestPorts.h"

#include <linux/netfilter.h>
#include <linux/netfilter_bridge.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <utility>
#include <vector>

#include "daemons/common/complain.h"
#include "daemons/firewall/attributes.h"
#include "daemons/firewall/transaction.h"

namespace {

constexpr NftTable TABLE = {NFPROTO_BRIDGE, "zelan"};
constexpr const char *GUESTS = "guests";
constexpr uint16_t DHCP_SERVER = 67;
constexpr uint8_t ROUTER_ADVERTISEMENT = 134;

std::vector<NftElement> ElementsOf(const std::set<int> &ports) {
    std::vector<NftElement> elements;
    for (int port : ports) {
        elements.push_back({BytesOf(static_cast<uint32_t>(port))});
    }
    return elements;
}

// What tells most frames apart comes first, so that they cost two comparisons.
void AddTable(NftTransaction *transaction) {
    constexpr const char *CHAIN = "guests";
    transaction->AddTable();
    transaction->AddSet({.name = GUESTS, .keyTypes = {NFT_TYPE_INDEX}});
    transaction->AddChain({CHAIN, "filter", NF_BR_PRE_ROUTING, NF_BR_PRI_FILTER_BRIDGED});
    transaction->AddRule(CHAIN, {IsFromUdpPort(DHCP_SERVER), InIndexIsIn(GUESTS), Drop()});
    transaction->AddRule(CHAIN, {IsIcmpv6Type(ROUTER_ADVERTISEMENT), InIndexIsIn(GUESTS), Drop()});
}

std::set<int> Without(const std::set<int> &all, const std::set<int> &some) {
    std::set<int> rest;
    std::set_difference(all.begin(), all.end(), some.begin(), some.end(), std::inserter(rest, rest.end()));
    return rest;
}

}  // namespace

void GuestPorts::Bar(const std::set<int> &ports) {
    if (barred_ == ports) {
        return;
    }
    int error = barred_ && !barred_->empty() && !ports.empty() ? Change(ports) : Rebuild(ports);
    if (error != 0) {
        error = Rebuild(ports);
    }
    barred_ = ports;
    if (error != 0 && !std::exchange(hasComplained_, true)) {
        Complain("nftables does not keep guests from posing as routers or DHCP servers: %s", strerror(error));
    }
}

void GuestPorts::Restore() {
    std::set<int> ports = barred_.value_or(std::set<int>());
    barred_.reset();
    Bar(ports);
}

int GuestPorts::Change(const std::set<int> &ports) {
    RtSocket socket;
    NftTransaction transaction(TABLE);
    const std::vector<NftElement> added = ElementsOf(Without(ports, *barred_));
    const std::vector<NftElement> removed = ElementsOf(Without(*barred_, ports));
    if (!added.empty()) {
        transaction.AddElements(GUESTS, added);
    }
    if (!removed.empty()) {
        transaction.DeleteElements(GUESTS, removed);
    }
    return socket.Open(0, NETLINK_NETFILTER) ? transaction.Commit(&socket) : EIO;
}

int GuestPorts::Rebuild(const std::set<int> &ports) {
    RtSocket socket;
    if (!socket.Open(0, NETLINK_NETFILTER)) {
        return EIO;
    }
    NftTransaction transaction(TABLE);
    bool exists = Nft_Find(&socket, TABLE) == 0;
    if (exists) {
        transaction.DeleteTable();
    }
    if (!ports.empty()) {
        AddTable(&transaction);
        transaction.AddElements(GUESTS, ElementsOf(ports));
    }
    return exists || !ports.empty() ? transaction.Commit(&socket) : 0;
}
