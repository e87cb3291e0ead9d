// What a daemon does, and for whom.
#pragma once

#include <compare>
#include <cstdint>
#include <string>
#include <string_view>

// One of each kind serves a network at a time.
enum class Service : uint8_t { BRIDGE, NETIFUP, DHCP, NAT, DETECT };

struct Duty {
    Service service = Service::DETECT;
    int network = -1;  // -1 for the host as a whole

    auto operator<=>(const Duty &) const = default;
};

// A duty as a word, like "netifup-8", and back; false for a word that names none.
std::string Duty_Text(const Duty &duty);
bool Duty_Parse(std::string_view text, Duty *duty);
