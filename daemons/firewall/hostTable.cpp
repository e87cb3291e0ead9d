#include "daemons/firewall/hostTable.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <functional>
#include <set>
#include <utility>

#include "daemons/common/address.h"
#include "daemons/common/complain.h"
#include "daemons/common/link.h"
#include "daemons/common/linkGroup.h"
#include "daemons/firewall/flowObjects.h"
#include "daemons/firewall/hostForwarding.h"
#include "daemons/firewall/hostRules.h"

namespace {

using Clock = std::chrono::steady_clock;

bool Refused(int error) {
    if (error != 0) {
        Complain("nftables refuses the host's rules: %s", strerror(error));
    }
    return error != 0;
}

std::vector<NatShare> LivingShares(int except = -1) {
    std::vector<NatShare> shares;
    NatShare share;
    for (int network : HostFiles_NatNetworks()) {
        std::string name = HostFiles_OfNat(network);
        if (network != except && HostFiles_IsHeld(name) && NatShare_Parse(HostFiles_Read(name), &share)) {
            shares.push_back(share);
        }
    }
    return shares;
}

void AddFlowChains(NftTransaction *transaction, std::span<const NatShare> shares) {
    std::set<std::string> timeouts;
    bool ftp = false;
    for (const NatShare &share : shares) {
        if (share.ownTimeout && timeouts.insert(FlowObjects_TimeoutChain(share.udpTimeout)).second) {
            FlowObjects_AddTimeout(transaction, share.udpTimeout);
        }
        if (share.activeFtp && !std::exchange(ftp, true)) {
            FlowObjects_AddFtp(transaction);
        }
    }
}

// Replaces the table, or whatever is left of it, in one step.
int Rebuild(RtSocket *socket) {
    std::vector<NatShare> shares = LivingShares();
    NftTransaction transaction(HostRules_Table());
    if (Nft_Find(socket, HostRules_Table()) == 0) {
        transaction.DeleteTable();
    }
    HostRules_AddTable(&transaction);
    AddFlowChains(&transaction, shares);
    for (const NatShare &share : shares) {
        HostRules_AddShare(&transaction, share);
    }
    HostRules_AddAdapters(&transaction, HostForwarding_Noted());
    return transaction.Commit(socket);
}

// Adds a chain that the kernel may lack what it takes for, which a line in the log then tells and *wanted
// afterwards. False after a line in the log.
bool EnsureFlowChain(RtSocket *socket, const std::string &chain, const char *what,
                     const std::function<void(NftTransaction *)> &add, bool *wanted) {
    int error = *wanted ? Nft_Find(socket, HostRules_Table(), chain.c_str()) : 0;
    if (error != ENOENT) {
        return !Refused(error);
    }
    NftTransaction transaction(HostRules_Table());
    add(&transaction);
    error = transaction.Commit(socket);
    *wanted = error == 0;
    if (Nft_IsLack(error)) {
        Complain("this kernel lacks %s", what);
        return true;
    }
    return !Refused(error);
}

// Leaves out of the share what this kernel lacks. False after a line in the log.
bool AddFlowChainsFor(RtSocket *socket, NatShare *share) {
    auto addTimeout = [share](NftTransaction *transaction) {
        FlowObjects_AddTimeout(transaction, share->udpTimeout);
    };
    return EnsureFlowChain(socket, FlowObjects_TimeoutChain(share->udpTimeout), "time-outs for single flows",
                           addTimeout, &share->ownTimeout) &&
           EnsureFlowChain(socket, FTP_CHAIN, "the FTP helper", FlowObjects_AddFtp, &share->activeFtp);
}

// Takes out what other networks forward already.
void LeaveOut(const std::vector<NatShare> &others, NatShare *share) {
    std::erase_if(share->forwards, [&others](const HostPort &port) {
        bool taken = std::any_of(others.begin(), others.end(), [&port](const NatShare &other) {
            return std::find(other.forwards.begin(), other.forwards.end(), port) != other.forwards.end();
        });
        if (taken) {
            Complain("%s port %u is not forwarded: another network does so already", port.tcp ? "TCP" : "UDP",
                     port.port);
        }
        return taken;
    });
    std::erase_if(share->kept, [share](const HostEndpoint &endpoint) {
        return std::find(share->forwards.begin(), share->forwards.end(), endpoint.port) ==
               share->forwards.end();
    });
}

// Removes the shares of the dead from the table, and their files.
int RemoveDead(RtSocket *socket) {
    NftTransaction transaction(HostRules_Table());
    NatShare share;
    bool any = false;
    for (int network : HostFiles_NatNetworks()) {
        std::string name = HostFiles_OfNat(network);
        if (!HostFiles_IsHeld(name)) {
            if (NatShare_Parse(HostFiles_Read(name), &share)) {
                HostRules_DeleteShare(&transaction, share);
                any = true;
            }
            HostFiles_Remove(name);
        }
    }
    return any ? transaction.Commit(socket) : 0;
}

int RemoveAdapters(RtSocket *socket, std::span<const int> adapters) {
    NftTransaction transaction(HostRules_Table());
    HostRules_DeleteAdapters(&transaction, adapters);
    return transaction.Commit(socket);
}

// Turns the switch of an adapter on, after the rules that keep it from forwarding for others. False after a
// line in the log.
bool UseAdapter(RtSocket *nftables, const LinkInfo &link) {
    if (HostForwarding_IsOn(link.name)) {
        return true;
    }
    NftTransaction transaction(HostRules_Table());
    HostRules_AddAdapters(&transaction, std::span(&link.index, 1));
    if (!HostForwarding_Note(link.index, link.name) ||
        (transaction.Commit(nftables) != 0 && Refused(Rebuild(nftables)))) {
        return false;
    }
    // An adapter may go at any moment.
    bool on = HostForwarding_TurnOn(link.name) || errno == ENOENT;
    if (!on) {
        Complain("cannot let the host forward what comes in by %s: %s", link.name.c_str(), strerror(errno));
    }
    return on;
}

bool IsAdapter(const LinkInfo &link) {
    return (link.flags & IFF_LOOPBACK) == 0 && !LinkGroup_IsOurs(link.group);
}

bool IsNatUsed() {
    return HostFiles_IsHeld(NAT_FILE);
}

bool IsUsed() {
    return HostFiles_IsHeld(HOST_TABLE_FILE);
}

}  // namespace

bool HostTable::Ensure() {
    HostEdit edit;
    RtSocket socket;
    if (!edit.held() || !socket.Open(RtSocket::NO_GROUPS, NETLINK_NETFILTER)) {
        return false;
    }
    // What the dead have left may be another version's.
    bool isFirst = !IsUsed();
    use_ = HostFiles_Hold(HOST_TABLE_FILE);
    return use_ && ((!isFirst && Nft_Find(&socket, HostRules_Table()) == 0) || !Refused(Rebuild(&socket)));
}

bool HostTable::ClaimNat(int network) {
    constexpr std::chrono::milliseconds PREDECESSOR_TIME{2000};
    constexpr int POLL_MILLISECONDS = 5;
    const std::string name = HostFiles_OfNat(network);
    for (Clock::time_point end = Clock::now() + PREDECESSOR_TIME; Clock::now() < end;
         poll(nullptr, 0, POLL_MILLISECONDS)) {
        HostEdit edit;
        if (!edit.held()) {
            return false;
        }
        if (!HostFiles_IsHeld(name)) {
            nat_ = HostFiles_Hold(name);
            network_ = network;
            return static_cast<bool>(nat_);
        }
    }
    Complain("another daemon serves this network");
    return false;
}

bool HostTable::AddNat(NatShare share) {
    HostEdit edit;
    RtSocket socket;
    if (!edit.held() || !socket.Open(RtSocket::NO_GROUPS, NETLINK_NETFILTER)) {
        return false;
    }
    if (Nft_Find(&socket, HostRules_Table()) != 0 && Refused(Rebuild(&socket))) {
        return false;
    }
    if (!AddFlowChainsFor(&socket, &share)) {
        return false;
    }
    isFirstNat_ = !IsNatUsed();
    natUse_ = HostFiles_Hold(NAT_FILE);
    const std::string name = HostFiles_OfNat(network_);
    NftTransaction transaction(HostRules_Table());
    NatShare predecessors;
    if (NatShare_Parse(HostFiles_Read(name), &predecessors)) {
        HostRules_DeleteShare(&transaction, predecessors);
    }
    HostRules_AddShare(&transaction, share);
    if (!natUse_ || !HostFiles_Write(name, NatShare_Text(share))) {
        return false;
    }
    if (transaction.Commit(&socket) == 0) {
        return true;
    }
    LeaveOut(LivingShares(network_), &share);
    return HostFiles_Write(name, NatShare_Text(share)) && !Refused(Rebuild(&socket));
}

void HostTable_Sweep() {
    HostEdit edit;
    RtSocket socket;
    if (!edit.held() || !socket.Open(RtSocket::NO_GROUPS, NETLINK_NETFILTER)) {
        return;
    }
    int error = RemoveDead(&socket);
    if (!IsNatUsed()) {
        std::vector<int> adapters = HostForwarding_Noted();
        HostForwarding_TakeBack();
        error = std::max(error, adapters.empty() ? 0 : RemoveAdapters(&socket, adapters));
    }
    if (!IsUsed()) {
        NftTransaction transaction(HostRules_Table());
        transaction.DeleteTable();
        transaction.Commit(&socket);
    } else if (error != 0) {
        Refused(Rebuild(&socket));
    }
}

std::vector<std::pair<int, HostPort>> HostTable_Awaited() {
    std::vector<std::pair<int, HostPort>> awaited;
    HostEdit edit;
    NatShare share;
    for (int network : edit.held() ? HostFiles_NatNetworks() : std::vector<int>()) {
        if (NatShare_Parse(HostFiles_Read(HostFiles_OfNat(network)), &share)) {
            for (const HostPort &port : share.awaited) {
                awaited.emplace_back(network, port);
            }
        }
    }
    return awaited;
}

bool HostTable_TakeUp(int network, const HostPort &port) {
    const std::string name = HostFiles_OfNat(network);
    HostEdit edit;
    RtSocket socket;
    NatShare share;
    if (!edit.held() || !HostFiles_IsHeld(name) || !NatShare_Parse(HostFiles_Read(name), &share) ||
        std::erase(share.awaited, port) == 0 || !socket.Open(RtSocket::NO_GROUPS, NETLINK_NETFILTER)) {
        return false;
    }
    NatShare more;
    more.router = share.router;
    more.forwards = {port};
    share.forwards.push_back(port);
    NftTransaction transaction(HostRules_Table());
    HostRules_AddShare(&transaction, more);
    return transaction.Commit(&socket) == 0 && HostFiles_Write(name, NatShare_Text(share));
}

void HostTable_Restore() {
    HostEdit edit;
    RtSocket socket;
    if (edit.held() && IsUsed() && socket.Open(RtSocket::NO_GROUPS, NETLINK_NETFILTER)) {
        Refused(Rebuild(&socket));
    }
}

void HostTable_RestoreWhenMissing() {
    RtSocket socket;
    if (socket.Open(RtSocket::NO_GROUPS, NETLINK_NETFILTER) &&
        Nft_Find(&socket, HostRules_Table()) == ENOENT) {
        HostTable_Restore();
    }
}

bool HostTable_UseAdapters(const std::vector<int> &links) {
    RtSocket routes;
    LinkInfo link;
    std::vector<LinkInfo> adapters;
    if (!routes.Open()) {
        return false;
    }
    for (int index : links) {
        if (Link_Get(&routes, index, &link) == 0 && IsAdapter(link)) {
            adapters.push_back(link);
        }
    }
    // Most of what a start of many networks announces is ours.
    if (adapters.empty()) {
        return true;
    }
    HostEdit edit;
    RtSocket nftables;
    if (!edit.held() || !nftables.Open(RtSocket::NO_GROUPS, NETLINK_NETFILTER)) {
        return false;
    }
    bool all = true;
    for (size_t i = 0; i < adapters.size() && IsNatUsed(); i++) {
        all = UseAdapter(&nftables, adapters[i]) && all;
    }
    return all;
}

bool HostTable_UseAllAdapters() {
    RtSocket routes;
    std::set<int> links;
    if (!IsNatUsed()) {
        return true;
    }
    if (!routes.Open()) {
        return false;
    }
    int error = Address_ForEach(&routes, [&links](int link) { links.insert(link); });
    if (error == 0 || error == EAGAIN) {
        error = Link_ForEach(&routes, 0, [&links](const LinkInfo &link) {
            if (link.group == LINK_GROUP_UPLINK) {
                HostForwarding_TurnOn(link.name);
            }
            if (!IsAdapter(link)) {
                links.erase(link.index);
            }
        });
    }
    // What comes while they are listed is announced.
    if (error != 0 && error != EAGAIN) {
        Complain("cannot list the host's adapters: %s", strerror(error));
        return false;
    }
    return HostTable_UseAdapters({links.begin(), links.end()});
}

void HostTable_LeaveAdapters() {
    HostEdit edit;
    RtSocket socket;
    if (edit.held() && HostForwarding_IsOnForAll() && socket.Open(RtSocket::NO_GROUPS, NETLINK_NETFILTER)) {
        std::vector<int> adapters = HostForwarding_Noted();
        HostForwarding_Forget();
        RemoveAdapters(&socket, adapters);
    }
}
