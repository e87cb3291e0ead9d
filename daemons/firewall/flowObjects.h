// Chains that give flows what nft(8) calls stateful objects: a time-out of their own, or the kernel's help
// with FTP. A rule or a map's verdict jumps to them; a kernel may lack either. They have to be set on a
// flow's first packet before its address is translated, for which chains of translation, which see nothing
// else, are the place.
#pragma once

#include <cstdint>
#include <string>

#include "daemons/firewall/transaction.h"

inline constexpr const char *FTP_CHAIN = "ftp";

// The name of the chain for a time-out in seconds, as configured: 0 for the longest there is.
std::string FlowObjects_TimeoutChain(uint32_t seconds);

// Adds the chain and its object. A flow without an answer is forgotten early, whatever the time-out.
void FlowObjects_AddTimeout(NftTransaction *transaction, uint32_t seconds);
void FlowObjects_AddFtp(NftTransaction *transaction);
