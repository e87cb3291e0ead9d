// forward and reserve.
#include <algorithm>

#include "apps/zelan/posix/harbrelctl/commands/change.h"
#include "apps/zelan/posix/harbrelctl/commands/commands.h"
#include "apps/zelan/posix/harbrelctl/output/report.h"

namespace {

struct PortRange {
    uint16_t first = 0, last = 0;
};

std::optional<uint16_t> ParsePort(std::string_view text) {
    const std::optional<uint32_t> port = ParseNumber(text, UINT16_MAX);
    return port && *port > 0 ? std::optional(static_cast<uint16_t>(*port)) : std::nullopt;
}

// "8888" or "8000-8010".
std::optional<PortRange> ParsePorts(const std::string &text) {
    const size_t dash = text.find('-');
    const auto first = ParsePort(text.substr(0, dash));
    const auto last = dash == std::string::npos ? first : ParsePort(text.substr(dash + 1));
    if (!first || !last || *first > *last) {
        Complain("\"%s\" is no port: 1 to 65535, or FIRST-LAST", text.c_str());
        return std::nullopt;
    }
    return PortRange{*first, *last};
}

std::optional<bool> ParseProtocol(const std::string &text) {
    if (text != "tcp" && text != "udp") {
        Complain("\"%s\" is no protocol: tcp or udp", text.c_str());
        return std::nullopt;
    }
    return text == "tcp";
}

// "192.168.8.10:80"; ports of a range follow each other on the guest too.
bool ParseTarget(const std::string &text, Forward *forward) {
    const size_t colon = text.find(':');
    const auto address = ParseAddress(text.substr(0, colon));
    const auto port = colon == std::string::npos ? std::nullopt : ParsePort(text.substr(colon + 1));
    if (!address || !port) {
        Complain("\"%s\" is no place of a guest: ADDRESS:PORT, as 192.168.8.10:80", text.c_str());
        return false;
    }
    forward->guest = *address;
    forward->guestPort = *port;
    return true;
}

Forward *FindForward(NetworkConfig *config, bool tcp, uint16_t port) {
    for (Forward &forward : config->forwards) {
        if (forward.tcp == tcp && forward.hostPort == port) {
            return &forward;
        }
    }
    return nullptr;
}

int AddForwards(const Arguments &arguments, int network, Forward first, const PortRange &ports, Wish *wish) {
    NetworkConfig *const config = &wish->after.networks[network];
    if (!config->IsOn(FIELD_NAT)) {
        Complain("%s has no NAT, so that no port can lead there: set %s nat=on", NetworkName(network).c_str(),
                 NetworkName(network).c_str());
        return STATUS_USAGE;
    }
    const unsigned count = ports.last - ports.first;
    if (first.guestPort + count > UINT16_MAX) {
        Complain("the range does not fit behind port %u of the guest", first.guestPort);
        return STATUS_USAGE;
    }
    for (unsigned index = 0; index <= count; index++) {
        Forward forward = first;
        forward.hostPort = static_cast<uint16_t>(ports.first + index);
        forward.guestPort = static_cast<uint16_t>(first.guestPort + index);
        if (const Forward *taken = FindForward(config, forward.tcp, forward.hostPort); taken != nullptr) {
            Complain("%s port %u is forwarded by %s to %s:%u already", arguments.protocol.c_str(),
                     forward.hostPort, NetworkName(network).c_str(), AddressText(taken->guest).c_str(),
                     taken->guestPort);
            return STATUS_CONFLICT;
        }
        config->forwards.push_back(forward);
    }
    return STATUS_DONE;
}

int RemoveForwards(int network, bool tcp, const PortRange &ports, Wish *wish) {
    std::vector<Forward> *const forwards = &wish->after.networks[network].forwards;
    const size_t removed = std::erase_if(*forwards, [&](const Forward &forward) {
        return forward.tcp == tcp && forward.hostPort >= ports.first && forward.hostPort <= ports.last;
    });
    if (removed == 0) {
        Complain("%s forwards no such port; forward list %s names them", NetworkName(network).c_str(),
                 NetworkName(network).c_str());
        return STATUS_USAGE;
    }
    return STATUS_DONE;
}

// A guest by its MAC address, or by its name in the leases.
std::optional<Reservation> FindGuest(const Editor &editor, int network, const std::string &guest) {
    const std::vector<Lease> leases = ReadLeases(editor.context.host, network);
    const std::optional<std::string> mac = StandardMac(guest);
    for (const Lease &lease : leases) {
        if (mac ? lease.mac == *mac : lease.name == guest) {
            return Reservation{lease.mac, lease.address};
        }
    }
    if (mac) {
        return Reservation{*mac};
    }
    Complain("\"%s\" is no MAC address, and no lease of %s has that name", guest.c_str(),
             NetworkName(network).c_str());
    return std::nullopt;
}

int AddReservation(const Arguments &arguments, const Editor &editor, int network, Wish *wish) {
    std::optional<Reservation> tie = FindGuest(editor, network, arguments.guest);
    if (!tie) {
        return STATUS_USAGE;
    }
    tie->address = ParseAddress(arguments.target).value_or(tie->address);
    if (tie->address == 0) {
        Complain("%s has no lease whose address could be kept: name the ADDRESS, as 192.168.8.10",
                 arguments.guest.c_str());
        return STATUS_USAGE;
    }
    std::vector<Reservation> *const ties = &wish->after.networks[network].reservations;
    std::erase_if(*ties, [&](const Reservation &one) { return one.mac == tie->mac; });
    ties->push_back(*tie);
    return STATUS_DONE;
}

int RemoveReservation(const Arguments &arguments, const Editor &editor, int network, Wish *wish) {
    const std::optional<uint32_t> address = ParseAddress(arguments.guest);
    const std::optional<Reservation> tie =
        address ? Reservation{"", *address} : FindGuest(editor, network, arguments.guest);
    if (!tie) {
        return STATUS_USAGE;
    }
    const size_t removed = std::erase_if(
        wish->after.networks[network].reservations,
        [&](const Reservation &one) { return address ? one.address == *address : one.mac == tie->mac; });
    if (removed == 0) {
        Complain("%s keeps no address for \"%s\"", NetworkName(network).c_str(), arguments.guest.c_str());
        return STATUS_USAGE;
    }
    return STATUS_DONE;
}

}  // namespace

int RunForwardAdd(const Arguments &arguments) {
    const auto tcp = ParseProtocol(arguments.protocol);
    const auto ports = tcp ? ParsePorts(arguments.ports) : std::nullopt;
    Forward first;
    if (!ports || !ParseTarget(arguments.target, &first)) {
        return STATUS_USAGE;
    }
    first.tcp = *tcp;
    first.note = arguments.note;
    return Change(arguments, [&](const Editor &, Wish *wish) {
        return AddForwards(arguments, wish->networks.front(), first, *ports, wish);
    });
}

int RunForwardRemove(const Arguments &arguments) {
    const auto tcp = ParseProtocol(arguments.protocol);
    const auto ports = tcp ? ParsePorts(arguments.ports) : std::nullopt;
    if (!ports) {
        return STATUS_USAGE;
    }
    return Change(arguments, [&](const Editor &, Wish *wish) {
        return RemoveForwards(wish->networks.front(), *tcp, *ports, wish);
    });
}

int RunReserveAdd(const Arguments &arguments) {
    if (!arguments.target.empty() && !ParseAddress(arguments.target)) {
        Complain("\"%s\" is no address, as 192.168.8.10", arguments.target.c_str());
        return STATUS_USAGE;
    }
    return Change(arguments, [&](const Editor &editor, Wish *wish) {
        return AddReservation(arguments, editor, wish->networks.front(), wish);
    });
}

int RunReserveRemove(const Arguments &arguments) {
    return Change(arguments, [&](const Editor &editor, Wish *wish) {
        return RemoveReservation(arguments, editor, wish->networks.front(), wish);
    });
}
