// zelan-natd -s W -d PIDFILE -m MACFILE -c CONFIGURATION
//
// Gives the guests of a network a way out under the host's addresses, and hands ports of the host to them.
// The kernel does the work: a network namespace is the router, see router.h and ruleset.h. This process keeps
// it in being, passes the guests' DNS questions on, and watches the host's addresses come.
#include <linux/capability.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "daemons/common/address.h"
#include "daemons/common/complain.h"
#include "daemons/common/daemon.h"
#include "daemons/common/file.h"
#include "daemons/common/namespace.h"
#include "daemons/common/options.h"
#include "daemons/common/switch.h"
#include "daemons/zelan-natd/closedHost.h"
#include "daemons/zelan-natd/dns.h"
#include "daemons/zelan-natd/firewall.h"
#include "daemons/zelan-natd/hostForwarding.h"
#include "daemons/zelan-natd/hostPorts.h"
#include "daemons/zelan-natd/macFile.h"
#include "daemons/zelan-natd/natConf.h"
#include "daemons/zelan-natd/router.h"
#include "daemons/zelan-natd/ruleset.h"

namespace {

using Clock = std::chrono::steady_clock;

// How long a dying predecessor may keep the table of its network.
constexpr std::chrono::milliseconds PREDECESSOR_TIME{2000};
constexpr int PREDECESSOR_POLL_MILLISECONDS = 5;

// SYS_ADMIN for the namespace.
constexpr int CAPABILITIES[] = {CAP_NET_ADMIN, CAP_SYS_ADMIN, CAP_NET_BIND_SERVICE, CAP_SETUID, CAP_SETGID};

struct Arguments {
    DaemonContract contract;
    const char *macFile = nullptr;
    int network = -1;
    NatConf conf;
};

bool ReadConfiguration(const char *path, NatConf *conf) {
    std::string text;
    NatConfFault fault;
    if (!File_Read(path, &text)) {
        Complain("%s: %s", path, strerror(errno));
        return false;
    }
    if (!NatConf_Parse(text, conf, &fault)) {
        Complain("%s:%d: %s", path, fault.line, fault.reason.c_str());
        return false;
    }
    return true;
}

// A configuration without a device leaves the network to the MAC file's name, .../zelan-natd-<N>.mac.
bool FindNetwork(Arguments *arguments) {
    std::string_view name = arguments->macFile;
    name.remove_prefix(name.rfind('/') + 1);
    name = name.substr(0, name.rfind('.'));
    name.remove_prefix(name.rfind('-') + 1);
    arguments->network = arguments->conf.network;
    if (arguments->network >= 0 || Options_Number(name, SWITCH_MAX_NETWORK, &arguments->network)) {
        return true;
    }
    Complain("neither the configuration nor the MAC file's name tells the network");
    return false;
}

bool ReadArguments(char **argv, Arguments *arguments) {
    const char *configuration = nullptr;
    const OptionRule rules[] = {{"-s", &arguments->contract.statusText},
                                {"-d", &arguments->contract.pidFile},
                                {"-m", &arguments->macFile},
                                {"-c", &configuration}};
    std::vector<const char *> operands;
    if (!Options_Read(argv, rules, &operands)) {
        return false;
    }
    if (!operands.empty()) {
        Complain("usage: -s DESCRIPTOR -d PIDFILE -m MACFILE -c CONFIGURATION");
        return false;
    }
    return Daemon_TakeContract(&arguments->contract, CAPABILITIES) &&
           ReadConfiguration(configuration, &arguments->conf) && FindNetwork(arguments) &&
           Daemon_Claim(&arguments->contract, Service::NAT, arguments->network);
}

// Applies a table. One that is still a dying predecessor's is waited for.
int ApplyUntil(Firewall *firewall, const std::string &commands, Clock::time_point end, std::string *refusal) {
    int error = firewall->Apply(commands, refusal);
    while (error == EPERM && Clock::now() < end) {
        poll(nullptr, 0, PREDECESSOR_POLL_MILLISECONDS);
        error = firewall->Apply(commands, refusal);
    }
    return error;
}

// Applies a table with as many of its features as the kernel has, and takes the others out of *features.
bool ApplyTable(Firewall *firewall, NatFeatures *features,
                const std::function<std::string(const NatFeatures &)> &compose) {
    std::string refusal;
    Clock::time_point end = Clock::now() + PREDECESSOR_TIME;
    int error = ApplyUntil(firewall, compose(*features), end, &refusal);
    for (bool *feature : {&features->ftp, &features->udpTimeout}) {
        if (error != 0 && error != EPERM && *feature) {
            *feature = false;
            error = ApplyUntil(firewall, compose(*features), end, &refusal);
            if (error == 0) {
                Complain("this kernel lacks %s",
                         feature == &features->ftp ? "the FTP helper" : "time-outs for single flows");
            }
        }
    }
    if (error != 0) {
        Complain("%s: %s",
                 error == EPERM ? "another daemon serves this network" : "nftables refuses the rules",
                 refusal.c_str());
    }
    return error == 0;
}

class NatDaemon {
  public:
    explicit NatDaemon(const Arguments &arguments) : arguments_(arguments), conf_(arguments.conf) {}

    // False after a line in the log; *cleanUp tells what was made.
    bool Begin(CleanUp *cleanUp);

    [[noreturn]] void Run();

  private:
    bool ApplyHostTable();
    bool ApplyRouterTable();
    bool ServeDns();
    bool AllowForwarding();
    void TakeAnnouncements();

    const Arguments &arguments_;
    const NatConf &conf_;
    Router router_;
    HostPorts ports_;
    NatFeatures features_;
    Firewall firewall_;
    HostForwarding forwarding_;
    RtSocket announcements_;
    NameServers nameServers_;
    DnsOverUdp dnsOverUdp_;
    DnsOverTcp dnsOverTcp_;
};

bool NatDaemon::ApplyHostTable() {
    HostSide side = {arguments_.network, router_.uplink, router_.address};
    return firewall_.Open() && ApplyTable(&firewall_, &features_, [&](const NatFeatures &features) {
               return Ruleset_Host(side, conf_, ports_.forwards, features);
           });
}

bool NatDaemon::ApplyRouterTable() {
    NamespaceVisit visit(router_.space);
    Firewall inside;
    return visit.entered() && inside.Open() &&
           ApplyTable(&inside, &features_, [&](const NatFeatures &features) {
               return Ruleset_Router(conf_, ports_.forwards, features);
           });
}

bool NatDaemon::ServeDns() {
    NamespaceVisit visit(router_.space);
    return visit.entered() && dnsOverUdp_.Listen(conf_.gateway) && dnsOverTcp_.Listen(conf_.gateway);
}

bool NatDaemon::AllowForwarding() {
    RtSocket socket;
    return forwarding_.Begin() && announcements_.Open(RTMGRP_IPV4_IFADDR) && socket.Open() &&
           Address_ForEach(&socket, [this](int link) { forwarding_.Allow(link); }) == 0;
}

bool NatDaemon::Begin(CleanUp *cleanUp) {
    RtSocket socket;
    if (!socket.Open()) {
        return false;
    }
    cleanUp->rest = HostForwarding::EndWhenUnused;
    ports_ = HostPorts_Take(conf_);
    // The host's table first: only one daemon of a network gets it, and none but that may touch the rest.
    return Router_Plan(&socket, arguments_.network, conf_, &router_) && ApplyHostTable() &&
           Router_Make(&socket, arguments_.network, conf_, MacFile_Obtain(arguments_.macFile), &router_,
                       cleanUp) &&
           ApplyRouterTable() && ServeDns() && AllowForwarding();
}

void NatDaemon::TakeAnnouncements() {
    bool complete = announcements_.TakeAnnouncements([this](const nlmsghdr *message) {
        int link = Address_LinkOfNew(message);
        if (link != 0) {
            forwarding_.Allow(link);
        }
    });
    RtSocket socket;
    if (!complete && socket.Open()) {
        Address_ForEach(&socket, [this](int link) { forwarding_.Allow(link); });
    }
}

int MillisecondsUntil(DnsClock::time_point deadline, DnsClock::time_point now) {
    if (deadline == DnsClock::time_point::max()) {
        return -1;
    }
    auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - now).count();
    return static_cast<int>(std::max<long>(left, 0));
}

void NatDaemon::Run() {
    ClosedHost_Warn(arguments_.network, router_.uplink);
    std::vector<pollfd> waits;
    for (;;) {
        waits.assign(1, {announcements_.descriptor(), POLLIN, 0});
        dnsOverUdp_.Collect(&waits);
        size_t tcpPlace = waits.size();
        dnsOverTcp_.Collect(&waits);
        auto deadline = std::min(dnsOverUdp_.Deadline(), dnsOverTcp_.Deadline());
        if (poll(waits.data(), waits.size(), MillisecondsUntil(deadline, DnsClock::now())) < 0) {
            continue;
        }
        auto now = DnsClock::now();
        std::span<const pollfd> all = waits;
        dnsOverUdp_.Serve(all.subspan(1, tcpPlace - 1), now, &nameServers_);
        dnsOverTcp_.Serve(all.subspan(tcpPlace), now, &nameServers_);
        if (waits[0].revents != 0) {
            TakeAnnouncements();
        }
    }
}

}  // namespace

int main(int, char **argv) {
    Arguments arguments;
    if (!ReadArguments(argv, &arguments)) {
        return EXIT_FAILURE;
    }
    CleanUp cleanUp;
    NatDaemon daemon(arguments);
    if (!daemon.Begin(&cleanUp)) {
        Daemon_GiveUp(&arguments.contract, cleanUp);
    }
    Daemon_Detach(&arguments.contract, cleanUp);
    daemon.Run();
}
