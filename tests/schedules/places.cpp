#include "tests/schedules/places.h"

#include <cstdio>

#include "lib/harbrel/harbrel.h"
#include "tests/schedules/history.h"

namespace {

constexpr const char *NETWORK = "zelan40";

// The first places are domain names, which are answers; the others are forwards.
bool TakesLock(uint32_t place) {
    return place >= PLACES_WITHOUT_LOCK;
}

std::string Key(uint32_t place) {
    return std::string("VNET_").append(std::to_string(20 + place)).append("_DHCP_PARAM_DOMAIN_NAME");
}

uint16_t Port(uint32_t place) {
    return static_cast<uint16_t>(8000 + place);
}

std::string Address(uint32_t value) {
    char text[16];
    snprintf(text, sizeof text, "10.%u.%u.%u", value >> 16 & 0xff, value >> 8 & 0xff, value & 0xff);
    return text;
}

uint32_t ReadForward(uint32_t place) {
    char address[16] = "";
    uint32_t length = sizeof address;
    uint16_t port = 0;
    unsigned high = 0;
    unsigned middle = 0;
    unsigned low = 0;
    return HBL_GetNATPortForward(NETWORK, true, Port(place), address, &length, &port, nullptr, nullptr) &&
                   sscanf(address, "10.%u.%u.%u", &high, &middle, &low) == 3
               ? high << 16 | middle << 8 | low
               : NO_VALUE;
}

}  // namespace

bool WritePlace(uint32_t place, uint32_t value) {
    if (TakesLock(place)) {
        return HBL_SetNATPortForward(NETWORK, true, Port(place), Address(value).c_str(), 80, "d", 1);
    }
    return value == NO_VALUE ? HBL_VnetCfgRemoveAnswer(Key(place).c_str())
                             : HBL_VnetCfgAddAnswer(Key(place).c_str(), EditorsText(value).c_str());
}

uint32_t ReadPlace(uint32_t place) {
    const char *text = "";
    unsigned value = NO_VALUE;
    if (TakesLock(place)) {
        return ReadForward(place);
    }
    return HBL_VnetCfgGetAnswer(Key(place).c_str(), &text) && sscanf(text, "v%u", &value) == 1 ? value
                                                                                               : NO_VALUE;
}

std::string EditorsText(uint32_t value) {
    return std::string("v").append(std::to_string(value));
}

std::string RecordsFrom(uint32_t first) {
    // What the editor's network needs to be one.
    std::string records =
        "answer VNET_20_HOSTONLY_SUBNET 192.168.20.0\nanswer VNET_20_HOSTONLY_NETMASK 255.255.255.0\n"
        "answer VNET_20_DHCP yes\nanswer HBL_LOGLEVEL 0\n";
    for (uint32_t place = 0; place < PLACES; place++) {
        const uint32_t value = first == FIRST_VALUE ? FIRST_VALUE : first + place;
        records += TakesLock(place) ? "add_nat_portfwd 40 tcp " : "answer " + Key(place) + " ";
        records += TakesLock(place) ? std::to_string(Port(place)) + " " + Address(value) + " 80 d"
                                    : EditorsText(value);
        records += "\n";
    }
    return records;
}
