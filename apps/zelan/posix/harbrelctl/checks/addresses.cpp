#include <algorithm>
#include <initializer_list>

#include "apps/zelan/posix/harbrelctl/checks/checks.h"

namespace {

bool IsHostAddress(const Subnet &subnet, uint32_t address) {
    return subnet.Contains(address) && address != subnet.address && address != subnet.Last();
}

std::string Allowed(const Subnet &subnet) {
    return AddressText(subnet.address + 1) + " to " + AddressText(subnet.Last() - 1);
}

// A stored address has to be one of the subnet that a host may have.
void CheckInside(const NetworkConfig &settings, const Subnet &subnet, int network, Field field,
                 Problems *problems) {
    if (!settings.Has(field)) {
        return;
    }
    const std::optional<uint32_t> address = ParseAddress(*settings.stored[field]);
    if (!address || !IsHostAddress(subnet, *address)) {
        problems->push_back({"address-outside-subnet", PROBLEM_VALUE, network,
                             std::string(FIELDS[field].name) + " " + *settings.stored[field] +
                                 " is not inside the subnet: " + Allowed(subnet)});
    }
}

struct Special {
    const char *name;
    uint32_t address;
};

// The addresses that the network itself takes, when it takes them.
std::vector<Special> SpecialAddresses(const NetworkConfig &settings, int network) {
    std::vector<Special> special;
    const auto add = [&](Field feature, Field field, const char *name) {
        const std::optional<uint32_t> address = EffectiveAddress(network, settings, field);
        if (settings.IsOn(feature) && address) {
            special.push_back({name, *address});
        }
    };
    add(FIELD_ADAPTER, FIELD_ADAPTER_ADDRESS, "the host's address");
    add(FIELD_NAT, FIELD_GATEWAY, "the gateway");
    return special;
}

void CheckRange(const NetworkConfig &settings, int network, const std::vector<Special> &special,
                Problems *problems) {
    const std::optional<uint32_t> first = EffectiveAddress(network, settings, FIELD_RANGE_FIRST);
    const std::optional<uint32_t> last = EffectiveAddress(network, settings, FIELD_RANGE_LAST);
    if (!settings.IsOn(FIELD_DHCP) || !first || !last) {
        return;
    }
    const std::string range = AddressText(*first) + "-" + AddressText(*last);
    if (*first > *last) {
        problems->push_back(
            {"range-backwards", PROBLEM_VALUE, network, "the range " + range + " ends before it begins"});
    }
    for (const Special &one : special) {
        if (*first <= one.address && one.address <= *last) {
            problems->push_back(
                {"range-takes-address", PROBLEM_VALUE, network,
                 "the range " + range + " has " + one.name + " " + AddressText(one.address) + " in it"});
        }
    }
}

}  // namespace

void CheckAddresses(const NetworkConfig &settings, int network, Problems *problems) {
    const std::optional<Subnet> subnet = settings.NetworkSubnet();
    if (!subnet) {
        return;
    }
    for (const Field field :
         {FIELD_ADAPTER_ADDRESS, FIELD_GATEWAY, FIELD_RANGE_FIRST, FIELD_RANGE_LAST, FIELD_ROUTERS}) {
        CheckInside(settings, *subnet, network, field, problems);
    }
    const std::vector<Special> special = SpecialAddresses(settings, network);
    if (special.size() == 2 && special[0].address == special[1].address) {
        problems->push_back({"gateway-is-host", PROBLEM_VALUE, network,
                             "the gateway has the host's own address " + AddressText(special[0].address)});
    }
    CheckRange(settings, network, special, problems);
}

void CheckReservations(const NetworkConfig &settings, int network, Problems *problems) {
    const std::optional<Subnet> subnet = settings.NetworkSubnet();
    const std::vector<Special> special = SpecialAddresses(settings, network);
    const std::vector<Reservation> &ties = settings.reservations;
    for (size_t index = 0; index < ties.size(); index++) {
        const std::string address = AddressText(ties[index].address);
        if (!subnet || !IsHostAddress(*subnet, ties[index].address)) {
            problems->push_back({"reservation-outside-subnet", PROBLEM_VALUE, network,
                                 "the reserved address " + address + " is not inside the subnet" +
                                     (subnet ? ": " + Allowed(*subnet) : "")});
        }
        for (const Special &one : special) {
            if (one.address == ties[index].address) {
                problems->push_back({"reservation-takes-address", PROBLEM_CONFLICT, network,
                                     "the reserved address " + address + " is " + one.name});
            }
        }
        if (index > 0 && ties[index].address == ties[index - 1].address) {  // they stand by address
            problems->push_back(
                {"reservation-twice", PROBLEM_CONFLICT, network,
                 address + " is reserved for " + ties[index - 1].mac + " and for " + ties[index].mac});
        }
    }
}
