// zelan-natd -s W -d PIDFILE -m MACFILE -c CONFIGURATION
//
// Gives the guests of a network a way out under the host's addresses, and hands ports of the host to them.
// The kernel does the work: a network namespace is the router, see router.h and ruleset.h. This process keeps
// it in being, passes the guests' DNS questions on, and watches the host's addresses come.
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
#include "daemons/common/text.h"
#include "daemons/zelan-natd/dns.h"
#include "daemons/zelan-natd/firewall.h"
#include "daemons/zelan-natd/hostForwarding.h"
#include "daemons/zelan-natd/hostPorts.h"
#include "daemons/zelan-natd/macFile.h"
#include "daemons/zelan-natd/natConf.h"
#include "daemons/zelan-natd/router.h"
#include "daemons/zelan-natd/ruleset.h"

namespace {

// How long a dying predecessor may keep the table of its network.
constexpr std::chrono::milliseconds PREDECESSOR_TIME{2000};
constexpr int PREDECESSOR_POLL_MILLISECONDS = 5;

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
    const char *status = nullptr;
    const char *pidFile = nullptr;
    const char *configuration = nullptr;
    const OptionRule rules[] = {{"-s", &status, nullptr},
                                {"-d", &pidFile, nullptr},
                                {"-m", &arguments->macFile, nullptr},
                                {"-c", &configuration, nullptr}};
    std::vector<const char *> operands;
    if (!Options_Read(argv, rules, &operands)) {
        return false;
    }
    if (!operands.empty()) {
        Complain("usage: -s DESCRIPTOR -d PIDFILE -m MACFILE -c CONFIGURATION");
        return false;
    }
    return Daemon_ReadContract(status, pidFile, &arguments->contract) &&
           ReadConfiguration(configuration, &arguments->conf) && FindNetwork(arguments);
}

// Applies a table with as many of its features as the kernel has, and takes the others out of *features.
bool ApplyTable(Firewall *firewall, NatFeatures *features,
                const std::function<std::string(const NatFeatures &)> &compose) {
    std::string refusal;
    if (firewall->Apply(compose(*features), &refusal) == 0) {
        return true;
    }
    for (bool *feature : {&features->ftp, &features->udpTimeout}) {
        if (!*feature) {
            continue;
        }
        *feature = false;
        if (firewall->Apply(compose(*features), &refusal) == 0) {
            Complain("this kernel lacks %s",
                     feature == &features->ftp ? "the FTP helper" : "time-outs for single flows");
            return true;
        }
    }
    Complain("nftables refuses the rules: %s", refusal.c_str());
    return false;
}

class NatDaemon {
  public:
    explicit NatDaemon(const Arguments &arguments) : arguments_(arguments), conf_(arguments.conf) {}

    // False after a line in the log; *cleanUp tells what was made.
    bool Begin(CleanUp *cleanUp);

    [[noreturn]] void Run();

  private:
    bool ClaimTable();
    bool ApplyTables();
    bool ServeDns();
    bool AllowForwarding();
    void TakeAnnouncements();
    void WarnOfClosedHost();

    const Arguments &arguments_;
    const NatConf &conf_;
    SwitchUse use_;
    Router router_;
    // Before the firewall: a successor that gets the table finds the ports free, as they are closed in order.
    HostPorts ports_;
    Firewall firewall_;
    HostForwarding forwarding_;
    RtSocket announcements_;
    NameServers nameServers_;
    DnsOverUdp dnsOverUdp_;
    DnsOverTcp dnsOverTcp_;
};

// The owner's flag makes the table the daemon's own until it dies: no other daemon can serve the network, and
// nobody else can change the rules.
bool NatDaemon::ClaimTable() {
    auto end = std::chrono::steady_clock::now() + PREDECESSOR_TIME;
    std::string refusal;
    int error = EPERM;
    while (error == EPERM) {
        error = firewall_.Apply(Ruleset_Claim(arguments_.network), &refusal);
        if (error == EPERM && std::chrono::steady_clock::now() >= end) {
            break;
        }
        poll(nullptr, 0, error == EPERM ? PREDECESSOR_POLL_MILLISECONDS : 0);
    }
    if (error == EPERM) {
        Complain("another daemon serves network %d", arguments_.network);
    } else if (error != 0) {
        Complain("nftables gives no table: %s", refusal.c_str());
    }
    return error == 0;
}

bool NatDaemon::ApplyTables() {
    NatFeatures features;
    HostSide side = {arguments_.network, router_.uplink, router_.address};
    if (!ApplyTable(&firewall_, &features, [&](const NatFeatures &present) {
            return Ruleset_Host(side, conf_, ports_.forwards, present);
        })) {
        return false;
    }
    NamespaceVisit visit(router_.space);
    Firewall inside;
    return visit.entered() && inside.Open() &&
           ApplyTable(&inside, &features, [&](const NatFeatures &present) {
               return Ruleset_Router(conf_, ports_.forwards, present);
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
    SwitchLock lock(arguments_.network);
    RtSocket socket;
    if (!lock.held() || !socket.Open() || !firewall_.Open() || !ClaimTable() ||
        !use_.Begin(arguments_.network)) {
        return false;
    }
    ports_ = HostPorts_Take(conf_);
    cleanUp->network = arguments_.network;
    cleanUp->rest = HostForwarding::EndWhenUnused;
    return Router_Plan(&socket, arguments_.network, conf_, &router_) &&
           Router_Make(&socket, arguments_.network, conf_, MacFile_Obtain(arguments_.macFile), &router_,
                       cleanUp) &&
           ApplyTables() && ServeDns() && AllowForwarding();
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

// A packet that one table drops is lost, whatever another table says, so nothing here can help where the
// host's own rules forward nothing by default.
void NatDaemon::WarnOfClosedHost() {
    Firewall firewall;
    std::string chains = firewall.Open() ? firewall.Ask("list chains") : "";
    std::string_view rest = chains;
    std::string_view table;
    std::string_view line;
    while (Text_TakeLine(&rest, &line)) {
        if (line.starts_with("table")) {
            table = line.substr(0, line.find(" {"));
        }
        if (line.find("hook forward") != line.npos && line.find("policy drop") != line.npos) {
            Complain(
                "the host's %.*s drops forwarded packets by default: guests of network %d get out only "
                "if it accepts what comes in and goes out by %s",
                static_cast<int>(table.size()), table.data(), arguments_.network, router_.uplink);
        }
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
    WarnOfClosedHost();
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
    Daemon_ShedInherited(arguments.contract);
    CleanUp cleanUp;
    NatDaemon daemon(arguments);
    if (!daemon.Begin(&cleanUp)) {
        Daemon_CleanUpAfterFailure(cleanUp);
        return EXIT_FAILURE;
    }
    Daemon_Detach(arguments.contract, cleanUp);
    daemon.Run();
}
