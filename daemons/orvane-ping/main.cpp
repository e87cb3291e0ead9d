// orvane-ping [-q] [-b] ADDRESS -t SECONDS -i SECONDS
//
// Tells whether anybody answers at an address, or with -b on the /24 subnet of that address, by ICMP echo:
// one request every -i seconds until -t seconds have passed. Ends with
//
//   0  something answered
//   1  nothing answered
//   2  the address cannot be reached at all: this host has no route there, or a router on the way says that
//      it has none, which proves that the subnet is free
//   3  it could not be found out, with the reason on standard error
//
// Without -q the answer is also told in words.
#include <arpa/inet.h>
#include <ifaddrs.h>
#include <linux/icmp.h>
#include <linux/if.h>
#include <netinet/in.h>
#include <netinet/ip.h>
#include <poll.h>
#include <sys/random.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "daemons/common/capabilities.h"
#include "daemons/common/complain.h"
#include "daemons/common/options.h"
#include "daemons/confinement/ownUser.h"
#include "lib/misc/owners.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
using std::chrono::seconds;

enum Verdict { ANSWERED = 0, SILENT = 1, UNREACHABLE = 2, FAILED = 3 };

constexpr int MAX_SECONDS = 86400;

struct Arguments {
    bool quiet = false;
    bool broadcast = false;
    in_addr address = {};
    seconds timeout{0};
    seconds interval{0};
};

// What we send, and what an answer must bring back: many of these programs run at once and each sees the
// answers to all. The cookie is random.
struct EchoRequest {
    icmphdr header;
    std::array<char, 16> cookie;
};
static_assert(sizeof(EchoRequest) == 24);

bool ReadSeconds(const char *option, const char *text, seconds *value) {
    int number = 0;
    if (!Options_Number(text, MAX_SECONDS, &number) || number == 0) {
        Complain("option %s needs a number of seconds from 1 to %d, not \"%s\"", option, MAX_SECONDS, text);
        return false;
    }
    *value = seconds(number);
    return true;
}

// The two switches have no argument and so no place in the table of options.
std::vector<char *> TakeSwitches(char **argv, Arguments *arguments) {
    std::vector<char *> rest;
    for (; *argv != nullptr; argv++) {
        if (strcmp(*argv, "-q") == 0) {
            arguments->quiet = true;
        } else if (strcmp(*argv, "-b") == 0) {
            arguments->broadcast = true;
        } else {
            rest.push_back(*argv);
        }
    }
    rest.push_back(nullptr);
    return rest;
}

bool ReadArguments(char **argv, Arguments *arguments) {
    const char *timeout = nullptr;
    const char *interval = nullptr;
    const OptionRule rules[] = {{"-t", &timeout}, {"-i", &interval}};
    std::vector<const char *> operands;
    std::vector<char *> rest = TakeSwitches(argv, arguments);
    if (!Options_Read(rest.data(), rules, &operands)) {
        return false;
    }
    if (operands.size() != 1) {
        Complain("usage: [-q] [-b] ADDRESS -t SECONDS -i SECONDS");
        return false;
    }
    if (inet_pton(AF_INET, operands[0], &arguments->address) != 1) {
        Complain("\"%s\" is no IPv4 address", operands[0]);
        return false;
    }
    return ReadSeconds("-t", timeout, &arguments->timeout) &&
           ReadSeconds("-i", interval, &arguments->interval);
}

sockaddr_in SocketAddress(in_addr address) {
    sockaddr_in result = {};
    result.sin_family = AF_INET;
    result.sin_addr = address;
    return result;
}

// Asks the routing table alone: connecting a datagram socket sends nothing. A route that refuses
// (unreachable, prohibit, blackhole) is as good as none.
Verdict LookUpRoute(in_addr address) {
    FileDescriptor probe(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    int on = 1;
    sockaddr_in target = SocketAddress(address);
    if (!probe || setsockopt(probe.get(), SOL_SOCKET, SO_BROADCAST, &on, sizeof on) != 0) {
        Complain("socket: %s", strerror(errno));
        return FAILED;
    }
    if (connect(probe.get(), reinterpret_cast<sockaddr *>(&target), sizeof target) == 0) {
        return SILENT;
    }
    if (errno == ENETUNREACH || errno == EHOSTUNREACH || errno == EACCES || errno == EINVAL) {
        return UNREACHABLE;
    }
    Complain("route: %s", strerror(errno));
    return FAILED;
}

using InterfaceAddresses = std::unique_ptr<ifaddrs, decltype(&freeifaddrs)>;

InterfaceAddresses ListOwnAddresses() {
    ifaddrs *list = nullptr;
    (void)getifaddrs(&list);
    return {list, freeifaddrs};
}

in_addr_t Ipv4Of(const sockaddr *address) {
    return address != nullptr && address->sa_family == AF_INET
               ? reinterpret_cast<const sockaddr_in *>(address)->sin_addr.s_addr
               : INADDR_ANY;
}

// Whether the address belongs to an interface of this host that is down. The host answers itself there,
// although nothing else can reach it: an interface of a network that was just stopped must not make its
// subnet look taken.
bool IsOwnOfInterfaceDown(const ifaddrs *list, in_addr address) {
    bool down = false;
    for (const ifaddrs *entry = list; entry != nullptr; entry = entry->ifa_next) {
        if (Ipv4Of(entry->ifa_addr) == address.s_addr) {
            if ((entry->ifa_flags & IFF_UP) != 0) {
                return false;
            }
            down = true;
        }
    }
    return down;
}

// Where to send. The kernel takes a subnet's own address for a plain one, so that for a subnet that this host
// is attached to the broadcast address of the interface is asked as well.
std::vector<sockaddr_in> FindTargets(const Arguments &arguments, const ifaddrs *list) {
    std::vector<sockaddr_in> targets = {SocketAddress(arguments.address)};
    for (const ifaddrs *entry = list; arguments.broadcast && entry != nullptr; entry = entry->ifa_next) {
        in_addr_t own = Ipv4Of(entry->ifa_addr);
        in_addr_t mask = Ipv4Of(entry->ifa_netmask);
        bool attached = own != INADDR_ANY && mask != INADDR_ANY && mask != INADDR_BROADCAST;
        if (attached && ((own ^ arguments.address.s_addr) & mask) == 0) {
            targets.push_back(SocketAddress({own | ~mask}));
        }
    }
    return targets;
}

uint16_t Checksum(const EchoRequest &request) {
    std::array<uint16_t, sizeof(EchoRequest) / 2> words;
    memcpy(words.data(), &request, sizeof request);
    uint32_t sum = 0;
    for (uint16_t word : words) {
        sum += word;
    }
    sum = (sum >> 16) + (sum & 0xffff);
    sum += sum >> 16;
    return static_cast<uint16_t>(~sum);
}

bool MakeRequest(EchoRequest *request) {
    *request = {};
    request->header.type = ICMP_ECHO;
    request->header.un.echo.id = htons(static_cast<uint16_t>(getpid()));
    if (getrandom(request->cookie.data(), request->cookie.size(), 0) !=
        static_cast<ssize_t>(request->cookie.size())) {
        Complain("random numbers: %s", strerror(errno));
        return false;
    }
    request->header.checksum = Checksum(*request);
    return true;
}

FileDescriptor OpenIcmp() {
    FileDescriptor icmp(socket(AF_INET, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, IPPROTO_ICMP));
    int on = 1;
    icmp_filter filter = {~(1U << ICMP_ECHOREPLY | 1U << ICMP_DEST_UNREACH)};
    if (!icmp || setsockopt(icmp.get(), SOL_SOCKET, SO_BROADCAST, &on, sizeof on) != 0 ||
        setsockopt(icmp.get(), SOL_RAW, ICMP_FILTER, &filter, sizeof filter) != 0) {
        Complain("ICMP socket: %s", strerror(errno));
        icmp.reset();
    }
    return icmp;
}

// The ICMP part of an IP packet; its size shrinks to what there is, 0 for a packet that is cut.
const char *SkipIpHeader(const char *packet, size_t *size) {
    size_t headerSize = *size < sizeof(iphdr) ? 0 : reinterpret_cast<const iphdr *>(packet)->ihl * size_t{4};
    bool whole = headerSize >= sizeof(iphdr) && *size >= headerSize + sizeof(icmphdr);
    *size = whole ? *size - headerSize : 0;
    return packet + headerSize;
}

// A router that has no way to the network proves it free. One that finds no such host proves nothing: it is
// attached to the subnet.
bool SaysNoNetwork(const icmphdr &header) {
    return header.type == ICMP_DEST_UNREACH &&
           (header.code == ICMP_NET_UNREACH || header.code == ICMP_NET_UNKNOWN);
}

// Judges one packet; SILENT when it is not about our request.
Verdict Judge(const char *packet, size_t size, const EchoRequest &request) {
    const char *icmp = SkipIpHeader(packet, &size);
    icmphdr header;
    if (size == 0) {
        return SILENT;
    }
    memcpy(&header, icmp, sizeof header);
    if (header.type == ICMP_ECHOREPLY) {
        bool ours = size >= sizeof request &&
                    memcmp(icmp + sizeof header, request.cookie.data(), request.cookie.size()) == 0;
        return ours ? ANSWERED : SILENT;
    }
    // The complaint quotes our packet's header and at least eight bytes more, which is as far as the id.
    size -= sizeof header;
    const char *quoted = SkipIpHeader(icmp + sizeof header, &size);
    bool ours = size != 0 && memcmp(quoted, &request.header, sizeof request.header) == 0;
    return ours && SaysNoNetwork(header) ? UNREACHABLE : SILENT;
}

Verdict TakeAnswers(int icmp, const EchoRequest &request) {
    constexpr int PACKETS_PER_TURN = 256;  // so that a flood of them does not outlast the deadline
    std::array<char, 2048> packet;
    for (int taken = 0; taken < PACKETS_PER_TURN; taken++) {
        ssize_t size = recv(icmp, packet.data(), packet.size(), 0);
        if (size < 0) {
            return SILENT;  // nothing more, or the error of an earlier request, which taking it has cleared
        }
        Verdict verdict = Judge(packet.data(), static_cast<size_t>(size), request);
        if (verdict != SILENT) {
            return verdict;
        }
    }
    return SILENT;
}

Verdict WaitForAnswer(int icmp, const EchoRequest &request, Clock::time_point end) {
    for (;;) {
        auto left = std::chrono::ceil<milliseconds>(end - Clock::now()).count();
        if (left <= 0) {
            return SILENT;
        }
        pollfd ready = {icmp, POLLIN, 0};
        if (poll(&ready, 1, static_cast<int>(left)) > 0) {
            Verdict verdict = TakeAnswers(icmp, request);
            if (verdict != SILENT) {
                return verdict;
            }
        }
    }
}

// From here on it only takes packets apart that anybody may have sent. Whoever runs it without being root
// gives up the one capability that it got from its file.
void ShedPrivileges() {
    if (geteuid() == 0) {
        OwnUser_Become(OwnUser());
    }
    Capabilities_Keep({});
}

Verdict Ping(const Arguments &arguments) {
    Verdict verdict = LookUpRoute(arguments.address);
    if (verdict != SILENT) {
        return verdict;
    }
    InterfaceAddresses own = ListOwnAddresses();
    if (IsOwnOfInterfaceDown(own.get(), arguments.address)) {
        return UNREACHABLE;
    }
    EchoRequest request;
    FileDescriptor icmp = OpenIcmp();
    if (!icmp || !MakeRequest(&request)) {
        return FAILED;
    }
    ShedPrivileges();
    std::vector<sockaddr_in> targets = FindTargets(arguments, own.get());
    Clock::time_point end = Clock::now() + arguments.timeout;
    while (verdict == SILENT && Clock::now() < end) {
        for (const sockaddr_in &target : targets) {
            // A request that cannot leave now (no neighbour, full queue) is one that nobody answers.
            sendto(icmp.get(), &request, sizeof request, 0, reinterpret_cast<const sockaddr *>(&target),
                   sizeof target);
        }
        verdict = WaitForAnswer(icmp.get(), request, std::min(end, Clock::now() + arguments.interval));
    }
    return verdict;
}

}  // namespace

int main(int, char **argv) {
    static constexpr const char *WORDS[] = {"something answers", "nothing answers", "cannot be reached"};
    Arguments arguments;
    if (!ReadArguments(argv, &arguments)) {
        return FAILED;
    }
    Verdict verdict = Ping(arguments);
    if (!arguments.quiet && verdict != FAILED) {
        char text[INET_ADDRSTRLEN];
        printf("%s: %s\n", inet_ntop(AF_INET, &arguments.address, text, sizeof text), WORDS[verdict]);
    }
    return verdict;
}
