// The links that only a packet can prove.
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "apps/zelan/posix/harbrelctl/probes/finding.h"
#include "apps/zelan/posix/harbrelctl/probes/guestPort.h"

namespace {

constexpr unsigned SERVER_FAILURE = 2;
constexpr int CONNECT_MILLISECONDS = 2000;

std::string RestartCommand(int network) {
    return "harbrelctl restart " + NetworkName(network);
}

// The guest's address: what DHCP offers, else the last one of the subnet. A DISCOVER alone takes nothing, so
// there is nothing to give back.
std::optional<Finding> AskForAddress(const GuestPort &port, const NetworkConfig &config, int network,
                                     uint32_t *address) {
    *address = config.NetworkSubnet()->Last() - 1;
    if (!config.IsOn(FIELD_DHCP)) {
        return std::nullopt;
    }
    const auto transaction = static_cast<uint32_t>(getpid());
    const bool offered = port.Ask(DhcpDiscover(port.mac(), transaction), [&](std::span<const uint8_t> frame) {
        const std::optional<uint32_t> offer = DhcpOffer(frame, transaction);
        *address = offer.value_or(*address);
        return offer.has_value();
    });
    return offered ? std::nullopt
                   : std::optional(Finding{network, "dhcp-silent",
                                           "no DHCP server answers a DISCOVER on " + SwitchName(network),
                                           RestartCommand(network)});
}

std::optional<uint32_t> NextHop(const KernelView &kernel) {
    for (const Route &route : kernel.routes) {
        if (route.destination.mask == 0 && route.gateway != 0) {
            return route.gateway;
        }
    }
    return std::nullopt;
}

std::optional<Finding> AskGateway(const Patient &patient, const GuestPort &port, int network,
                                  uint32_t address) {
    const NetworkConfig &config = patient.host.config.networks[network];
    const uint32_t gateway = EffectiveAddress(network, config, FIELD_GATEWAY).value_or(0);
    const Place self = {port.mac(), address};
    Place router = {{}, gateway};
    const bool found = port.Ask(ArpRequest(self, gateway), [&](std::span<const uint8_t> frame) {
        const std::optional<Mac> mac = ArpReply(frame, gateway);
        router.mac = mac.value_or(router.mac);
        return mac.has_value();
    });
    if (!found) {
        return Finding{network, "gateway-silent", "nobody has the gateway's address " + AddressText(gateway),
                       RestartCommand(network)};
    }
    const auto number = static_cast<uint16_t>(getpid());
    unsigned code = 0;
    const bool answered = port.Ask(DnsQuestion(self, router, number), [&](std::span<const uint8_t> frame) {
        const std::optional<unsigned> answer = DnsAnswer(frame, number);
        code = answer.value_or(0);
        return answer.has_value();
    });
    if (!answered || code == SERVER_FAILURE) {
        return Finding{network, answered ? "dns-no-server" : "dns-silent",
                       answered ? "the gateway finds no name server: see /etc/resolv.conf"
                                : "the gateway does not answer questions for names",
                       answered ? "" : RestartCommand(network)};
    }
    const std::optional<uint32_t> target = NextHop(patient.kernel);
    router.address = target.value_or(0);
    const auto isReply = [&](std::span<const uint8_t> frame) { return IsEchoReply(frame, number); };
    if (target && !port.Ask(EchoRequest(self, router, number), isReply)) {
        return Finding{network, "no-way-out",
                       "no echo comes back from " + AddressText(*target) + ", the host's next hop", ""};
    }
    return std::nullopt;
}

struct Attempt {
    const Forward *forward;
    FileDescriptor socket;
    int error = EINPROGRESS;
};

Attempt Connect(const Forward &forward) {
    Attempt attempt = {&forward,
                       FileDescriptor(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0))};
    sockaddr_in guest = {};
    guest.sin_family = AF_INET;
    guest.sin_addr.s_addr = htonl(forward.guest);
    guest.sin_port = htons(forward.guestPort);
    if (connect(attempt.socket.get(), reinterpret_cast<const sockaddr *>(&guest), sizeof guest) == 0) {
        attempt.error = 0;
    } else {
        attempt.error = errno;
    }
    return attempt;
}

void AwaitConnection(Attempt *attempt) {
    pollfd ready = {attempt->socket.get(), POLLOUT, 0};
    socklen_t size = sizeof attempt->error;
    if (attempt->error != EINPROGRESS) {
        return;
    }
    if (poll(&ready, 1, CONNECT_MILLISECONDS) != 1) {
        attempt->error = ETIMEDOUT;
    } else {
        getsockopt(attempt->socket.get(), SOL_SOCKET, SO_ERROR, &attempt->error, &size);
    }
}

}  // namespace

std::optional<Finding> ProbeAsGuest(const Patient &patient, int network) {
    const NetworkConfig &config = patient.host.config.networks[network];
    if (!config.NetworkSubnet() || !(config.IsOn(FIELD_DHCP) || config.IsOn(FIELD_NAT))) {
        return std::nullopt;
    }
    const GuestPort port(SwitchName(network), network);
    if (!port) {
        return Finding{network, "probe-refused",
                       "no port can be plugged into " + SwitchName(network) + ": " + strerror(port.error()),
                       ""};
    }
    uint32_t address = 0;
    std::optional<Finding> finding = AskForAddress(port, config, network, &address);
    if (!finding && config.IsOn(FIELD_NAT)) {
        finding = AskGateway(patient, port, network, address);
    }
    return finding;
}

// From the host's own address on the network, which forwards take to the guest too. UDP says nothing by
// silence.
std::optional<Finding> ProbeForwards(const Patient &patient, int network) {
    const NetworkConfig &config = patient.host.config.networks[network];
    if (!config.IsOn(FIELD_NAT) || !config.IsOn(FIELD_ADAPTER)) {
        return std::nullopt;
    }
    std::vector<Attempt> attempts;
    for (const Forward &forward : config.forwards) {
        if (forward.tcp) {
            attempts.push_back(Connect(forward));
        }
    }
    for (Attempt &attempt : attempts) {
        AwaitConnection(&attempt);
        if (attempt.error != 0) {
            const Forward &forward = *attempt.forward;
            return Finding{network, "forward-dead",
                           "tcp port " + std::to_string(forward.hostPort) + " leads to " +
                               AddressText(forward.guest) + ":" + std::to_string(forward.guestPort) +
                               ", where nobody listens: " + strerror(attempt.error),
                           "harbrelctl forward remove " + NetworkName(network) + " tcp " +
                               std::to_string(forward.hostPort)};
        }
    }
    return std::nullopt;
}
