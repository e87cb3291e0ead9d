// The file with a network's leases, made ready for the server that is about to run.
#pragma once

#include <vector>

#include "daemons/confinement/ownUser.h"
#include "daemons/zelan-dhcpd/leases.h"
#include "lib/misc/owners.h"

// What the next server is to find there.
struct LeasePlan {
    LeaseFormat format = LeaseFormat::DNSMASQ;
    OwnUser owner;                 // the server's user
    std::vector<DhcpLease> fixed;  // of fixed addresses, which only dnsmasq has in its file
};

// Makes the file, or turns the other server's leases into the ones of the plan: whole or not at all, with
// what is not understood left as it is. The file then belongs to the server's user. Returns it, open for
// reading; empty after a line in the log.
FileDescriptor LeaseFile_Prepare(const char *path, const LeasePlan &plan);
