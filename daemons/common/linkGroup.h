// The groups (IFLA_GROUP) that mark every interface of ours. A name proves nothing, since anybody may choose
// it; rules of the packet filter and all programs tell ours by these numbers. The kernel removes all of a
// group in one step, which costs little more than removing one.
#pragma once

#include <cstdint>

// Switches, their ports and TAPs: they carry frames and are no endpoint.
inline constexpr uint32_t LINK_GROUP_CARRIER = 1190;
// Put aside; to be removed all at once.
inline constexpr uint32_t LINK_GROUP_DEAD = 1191;
// The host's own interface on a network, made by zelan-netifup under any name.
inline constexpr uint32_t LINK_GROUP_HOST = 1192;
// The host's end of a NAT network's uplink.
inline constexpr uint32_t LINK_GROUP_UPLINK = 1193;

constexpr bool LinkGroup_IsOurs(uint32_t group) {
    return group >= LINK_GROUP_CARRIER && group <= LINK_GROUP_UPLINK;
}
