// The host's table of the packet filter: one for all networks, there as long as a daemon needs it.
//
// It has no owner in the kernel's sense, whose end costs the kernel milliseconds for each network. Instead it
// follows from the files of living daemons (hostFiles.h), so that whoever finds it missing or out of date can
// make it anew, and a daemon's share vanishes whichever process notices its death.
#pragma once

#include <utility>
#include <vector>

#include "daemons/firewall/hostFiles.h"
#include "daemons/firewall/natShare.h"

// A daemon's claim to the table, for as long as the daemon lives: kept across fork.
class HostTable {
  public:
    // Puts the table in place, with which host-only networks and NAT networks are apart from everything else.
    // Call before an interface of a network comes up. False after a line in the log.
    bool Ensure();

    // Makes the calling daemon the network's only NAT daemon. A dying predecessor is waited for. False after
    // a line in the log.
    bool ClaimNat(int network);

    // Adds what the network needs. Forwards that another network has already are left out, and what the
    // kernel lacks, each with a line in the log. False after a line in the log.
    bool AddNat(NatShare share);

    // Whether no other network had a share when this one's was added, so that the host's adapters are still
    // to be turned on.
    bool isFirstNat() const { return isFirstNat_; }

  private:
    FileDescriptor use_;
    FileDescriptor nat_;     // the share of the network,
    FileDescriptor natUse_;  // and that there is any
    int network_ = -1;
    bool isFirstNat_ = false;
};

// Removes the shares of NAT daemons that are dead; after the last one turns off what forwarding it has turned
// on, and after the last daemon that needs it the table.
void HostTable_Sweep();

// Makes the table anew as the living daemons need it, if there are any: somebody has removed it or its rules.
void HostTable_Restore();
// The same when there is no table at all.
void HostTable_RestoreWhenMissing();

// The ports whose forwards living networks wait for, with the networks.
std::vector<std::pair<int, HostPort>> HostTable_Awaited();
// Forwards one of them. False when that cannot be, as when another network forwards it by now.
bool HostTable_TakeUp(int network, const HostPort &port);

// Lets the host forward, while there is a NAT network, what comes in by these adapters, by their indexes, or
// by all that have an address, the uplinks of the networks included. Those that do already, loopback and the
// other interfaces of networks are left alone. False after a line in the log, when one of them does not.
bool HostTable_UseAdapters(const std::vector<int> &links);
bool HostTable_UseAllAdapters();

// Somebody has told the whole host to forward: none does so on our account any more.
void HostTable_LeaveAdapters();
