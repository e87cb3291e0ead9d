// Ethernet frames of a guest that asks for its due, as bytes; pure.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

using Mac = std::array<uint8_t, 6>;
using Frame = std::vector<uint8_t>;

inline constexpr Mac BROADCAST_MAC = {0xff, 0xff, 0xff, 0xff, 0xff, 0xff};

struct Place {
    Mac mac = {};
    uint32_t address = 0;
};

Frame DhcpDiscover(const Mac &mac, uint32_t transaction);
// The address that is offered.
std::optional<uint32_t> DhcpOffer(std::span<const uint8_t> frame, uint32_t transaction);

Frame ArpRequest(const Place &from, uint32_t address);
std::optional<Mac> ArpReply(std::span<const uint8_t> frame, uint32_t address);

// For "localhost"; whoever answers knows it or says that it has no server to ask.
Frame DnsQuestion(const Place &from, const Place &to, uint16_t number);
// The response code.
std::optional<unsigned> DnsAnswer(std::span<const uint8_t> frame, uint16_t number);

// `to` has the router's MAC address and the final address.
Frame EchoRequest(const Place &from, const Place &to, uint16_t number);
bool IsEchoReply(std::span<const uint8_t> frame, uint16_t number);
