// The content of the host's one table, `inet zelan`: what may be forwarded between the networks, the host's
// adapters and the routers of NAT networks, and how packets are translated on the way. docs/isolation.md has
// it in words. Interfaces of ours are told by their group, so that the rules are the same for any number of
// networks; what differs stands in sets and maps.
#pragma once

#include <span>

#include "daemons/firewall/natShare.h"
#include "daemons/firewall/transaction.h"

NftTable HostRules_Table();

// Adds the table with everything that does not depend on which networks there are.
void HostRules_AddTable(NftTransaction *transaction);

// Adds and takes away a network's elements. The chains for its time-out and for FTP must be there.
void HostRules_AddShare(NftTransaction *transaction, const NatShare &share);
void HostRules_DeleteShare(NftTransaction *transaction, const NatShare &share);

// The same for adapters, by their indexes, that forward only because we have told them to.
void HostRules_AddAdapters(NftTransaction *transaction, std::span<const int> links);
void HostRules_DeleteAdapters(NftTransaction *transaction, std::span<const int> links);
