#include "tests/schedules/places.h"

#include <cstdarg>
#include <cstdio>

#include "lib/harbrel/harbrel.h"
#include "tests/schedules/history.h"

namespace {

constexpr uint32_t MAX_VALUE = 1 << 24;
constexpr const char *NETWORK = "zelan40";

std::string Text(const char *format, ...) __attribute__((format(printf, 1, 2)));
std::string Text(const char *format, ...) {
    char text[128];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    return text;
}

std::string Address(uint32_t value) {
    return Text("10.%u.%u.%u", value >> 16, value >> 8 & 0xff, value & 0xff);
}

uint32_t ValueOf(const char *address) {
    unsigned high = 0;
    unsigned middle = 0;
    unsigned low = 0;
    return sscanf(address, "10.%u.%u.%u", &high, &middle, &low) == 3 ? high << 16 | middle << 8 | low
                                                                     : NO_VALUE;
}

// Kinds of places; `number` tells those of a kind from each other.
struct Kind {
    const char *name;
    uint32_t count;
    bool (*write)(uint32_t number, uint32_t value);
    uint32_t (*read)(uint32_t number);
    std::string (*record)(uint32_t number, uint32_t value);
};

// Answers are changed without the lock.
std::string DomainKey(uint32_t number) {
    return Text("VNET_%u_DHCP_PARAM_DOMAIN_NAME", 20 + number);
}

bool WriteDomain(uint32_t number, uint32_t value) {
    return HBL_VnetCfgAddAnswer(DomainKey(number).c_str(), EditorsText(value).c_str());
}

uint32_t ReadDomain(uint32_t number) {
    const char *text = "";
    unsigned value = NO_VALUE;
    return HBL_VnetCfgGetAnswer(DomainKey(number).c_str(), &text) && sscanf(text, "v%u", &value) == 1
               ? value
               : NO_VALUE;
}

std::string DomainRecord(uint32_t number, uint32_t value) {
    return Text("answer %s v%u\n", DomainKey(number).c_str(), value);
}

std::string SubnetNetwork(uint32_t number) {
    return Text("zelan%u", 30 + number);
}

bool WriteSubnet(uint32_t number, uint32_t value) {
    return HBL_SetVnetSubnetAddr(SubnetNetwork(number).c_str(), Address(value).c_str());
}

uint32_t ReadSubnet(uint32_t number) {
    char address[16] = "";
    uint32_t length = sizeof address;
    return HBL_GetVnetSubnetAddr(SubnetNetwork(number).c_str(), address, &length) ? ValueOf(address)
                                                                                  : NO_VALUE;
}

std::string SubnetRecord(uint32_t number, uint32_t value) {
    return Text("answer VNET_%u_HOSTONLY_SUBNET %s\n", 30 + number, Address(value).c_str());
}

uint16_t Port(uint32_t number) {
    return static_cast<uint16_t>(8000 + number);
}

bool WriteForward(uint32_t number, uint32_t value) {
    return HBL_SetNATPortForward(NETWORK, true, Port(number), Address(value).c_str(), 80, "d", 1);
}

uint32_t ReadForward(uint32_t number) {
    char address[16] = "";
    uint32_t length = sizeof address;
    uint16_t port = 0;
    return HBL_GetNATPortForward(NETWORK, true, Port(number), address, &length, &port, nullptr, nullptr)
               ? ValueOf(address)
               : NO_VALUE;
}

std::string ForwardRecord(uint32_t number, uint32_t value) {
    return Text("add_nat_portfwd 40 tcp %u %s 80 d\n", Port(number), Address(value).c_str());
}

std::string Mac(uint32_t number) {
    return Text("02:00:00:00:00:0%u", number);
}

bool WriteMapping(uint32_t number, uint32_t value) {
    return HBL_SetDHCPIPToMAC(NETWORK, Address(value).c_str(), Mac(number).c_str());
}

uint32_t ReadMapping(uint32_t number) {
    char address[16] = "";
    uint32_t length = sizeof address;
    return HBL_GetDHCPIPToMAC(NETWORK, address, &length, Mac(number).c_str()) ? ValueOf(address) : NO_VALUE;
}

std::string MappingRecord(uint32_t number, uint32_t value) {
    return Text("add_dhcp_mac_to_ip 40 %s %s\n", Mac(number).c_str(), Address(value).c_str());
}

constexpr Kind KINDS[] = {
    {"domain", 3, WriteDomain, ReadDomain, DomainRecord},
    {"subnet", 2, WriteSubnet, ReadSubnet, SubnetRecord},
    {"forward", 3, WriteForward, ReadForward, ForwardRecord},
    {"mapping", 2, WriteMapping, ReadMapping, MappingRecord},
};
static_assert(KINDS[0].count + KINDS[1].count + KINDS[2].count + KINDS[3].count == PLACES);

const Kind &KindOf(uint32_t *place) {
    const Kind *kind = KINDS;
    while (*place >= kind->count) {
        *place -= kind->count;
        kind++;
    }
    return *kind;
}

}  // namespace

bool WritePlace(uint32_t place, uint32_t value) {
    const Kind &kind = KindOf(&place);
    return value < MAX_VALUE && kind.write(place, value);
}

uint32_t ReadPlace(uint32_t place) {
    const Kind &kind = KindOf(&place);
    return kind.read(place);
}

std::string PlaceName(uint32_t place) {
    const Kind &kind = KindOf(&place);
    return Text("%s %u", kind.name, place);
}

std::string EditorsText(uint32_t value) {
    return Text("v%u", value);
}

std::string RecordsFrom(uint32_t first) {
    // What the editor's network needs to be one.
    std::string records =
        "answer VNET_20_HOSTONLY_SUBNET 192.168.20.0\nanswer VNET_20_HOSTONLY_NETMASK 255.255.255.0\n"
        "answer VNET_20_DHCP yes\nanswer HBL_LOGLEVEL 0\n";
    for (uint32_t place = 0; place < PLACES; place++) {
        uint32_t number = place;
        const Kind &kind = KindOf(&number);
        records += kind.record(number, first == FIRST_VALUE ? FIRST_VALUE : first + place);
    }
    return records;
}
