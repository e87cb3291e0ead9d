// The links that only a packet can prove.
#include <fcntl.h>
#include <grp.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "apps/zelan/posix/harbrelctl/probes/finding.h"
#include "apps/zelan/posix/harbrelctl/probes/guestPort.h"

namespace {

constexpr unsigned SERVER_FAILURE = 2;
constexpr int CONNECT_MILLISECONDS = 2000;
constexpr uid_t NOBODY = 65534;

std::string RestartCommand(int network) {
    return "harbrelctl restart " + NetworkName(network);
}

// What a guest has found out; the child that asked tells no more than this.
enum Outcome : uint8_t { WELL, DHCP_SILENT, GATEWAY_SILENT, DNS_SILENT, DNS_NO_SERVER, NO_WAY_OUT, BROKEN };

struct Errand {
    int network;
    const NetworkConfig &config;
    uint32_t gateway;
    std::optional<uint32_t> nextHop;
};

// The guest's address: what DHCP offers, else the last one of the subnet. A DISCOVER alone takes nothing, so
// there is nothing to give back.
bool AskForAddress(const GuestPort &port, const Errand &errand, uint32_t *address) {
    *address = errand.config.NetworkSubnet()->Last() - 1;
    const auto transaction = static_cast<uint32_t>(getpid());
    return !errand.config.IsOn(FIELD_DHCP) ||
           port.Ask(DhcpDiscover(port.mac(), transaction), [&](std::span<const uint8_t> frame) {
               const std::optional<uint32_t> offer = DhcpOffer(frame, transaction);
               *address = offer.value_or(*address);
               return offer.has_value();
           });
}

Outcome AskGateway(const GuestPort &port, const Errand &errand, uint32_t address) {
    const Place self = {port.mac(), address};
    Place router = {{}, errand.gateway};
    const bool found = port.Ask(ArpRequest(self, errand.gateway), [&](std::span<const uint8_t> frame) {
        const std::optional<Mac> mac = ArpReply(frame, errand.gateway);
        router.mac = mac.value_or(router.mac);
        return mac.has_value();
    });
    if (!found) {
        return GATEWAY_SILENT;
    }
    const auto number = static_cast<uint16_t>(getpid());
    unsigned code = 0;
    const bool answered = port.Ask(DnsQuestion(self, router, number), [&](std::span<const uint8_t> frame) {
        const std::optional<unsigned> answer = DnsAnswer(frame, number);
        code = answer.value_or(0);
        return answer.has_value();
    });
    if (!answered || code == SERVER_FAILURE) {
        return answered ? DNS_NO_SERVER : DNS_SILENT;
    }
    router.address = errand.nextHop.value_or(0);
    const auto isReply = [&](std::span<const uint8_t> frame) { return IsEchoReply(frame, number); };
    return errand.nextHop && !port.Ask(EchoRequest(self, router, number), isReply) ? NO_WAY_OUT : WELL;
}

bool ShedPrivileges() {
    return setgroups(0, nullptr) == 0 && setresgid(NOBODY, NOBODY, NOBODY) == 0 &&
           setresuid(NOBODY, NOBODY, NOBODY) == 0 && prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0;
}

// Frames of guests are read by a process that may do nothing else.
Outcome RunErrand(const GuestPort &port, const Errand &errand) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        return BROKEN;
    }
    const FileDescriptor readEnd(ends[0]);
    FileDescriptor writeEnd(ends[1]);
    fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        uint32_t address = 0;
        Outcome outcome = BROKEN;
        if (ShedPrivileges() && prctl(PR_SET_PDEATHSIG, SIGKILL) == 0) {
            outcome = AskForAddress(port, errand, &address) ? WELL : DHCP_SILENT;
        }
        if (outcome == WELL && errand.config.IsOn(FIELD_NAT)) {
            outcome = AskGateway(port, errand, address);
        }
        (void)!write(writeEnd.get(), &outcome, sizeof outcome);
        _exit(EXIT_SUCCESS);
    }
    writeEnd.reset();
    Outcome outcome = BROKEN;
    if (child < 0 || read(readEnd.get(), &outcome, sizeof outcome) != sizeof outcome || outcome > BROKEN) {
        outcome = BROKEN;
    }
    waitpid(child, nullptr, 0);
    return outcome;
}

std::optional<Finding> FindingOf(Outcome outcome, const Errand &errand) {
    const int network = errand.network;
    const std::string restart = RestartCommand(network);
    switch (outcome) {
        case WELL:
            return std::nullopt;
        case DHCP_SILENT:
            return Finding{network, "dhcp-silent",
                           "no DHCP server answers a DISCOVER on " + SwitchName(network), restart};
        case GATEWAY_SILENT:
            return Finding{network, "gateway-silent",
                           "nobody has the gateway's address " + AddressText(errand.gateway), restart};
        case DNS_SILENT:
            return Finding{network, "dns-silent", "the gateway does not answer questions for names", restart};
        case DNS_NO_SERVER:
            return Finding{network, "dns-no-server", "the gateway finds no name server: see /etc/resolv.conf",
                           ""};
        case NO_WAY_OUT:
            return Finding{network, "no-way-out",
                           "no echo comes back from " + AddressText(errand.nextHop.value_or(0)) +
                               ", the host's next hop",
                           ""};
        case BROKEN:
            break;
    }
    return Finding{network, "probe-refused", "the program that asks as a guest could not run", ""};
}

std::optional<uint32_t> NextHop(const KernelView &kernel) {
    for (const Route &route : kernel.routes) {
        if (route.destination.mask == 0 && route.gateway != 0) {
            return route.gateway;
        }
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
    const Errand errand = {network, config, EffectiveAddress(network, config, FIELD_GATEWAY).value_or(0),
                           NextHop(patient.kernel)};
    return FindingOf(RunErrand(port, errand), errand);
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
