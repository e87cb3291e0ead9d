// zelan-natd -s W -d PIDFILE -m MACFILE -c CONFIGURATION
//
// Gives the guests of a network a way out under the host's addresses, and hands ports of the host to them.
// The kernel does the work: a network namespace is the router, see router.h and routerTable.h. This process
// keeps it in being and passes the guests' DNS questions on, for which it needs no privilege any more.
#include <linux/capability.h>
#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <span>
#include <string>
#include <vector>

#include "daemons/common/complain.h"
#include "daemons/common/daemon.h"
#include "daemons/common/deadline.h"
#include "daemons/common/file.h"
#include "daemons/common/namespace.h"
#include "daemons/common/options.h"
#include "daemons/common/switch.h"
#include "daemons/confinement/confinement.h"
#include "daemons/firewall/guestPorts.h"
#include "daemons/firewall/hostTable.h"
#include "daemons/zelan-natd/closedHost.h"
#include "daemons/zelan-natd/dns.h"
#include "daemons/zelan-natd/hostPorts.h"
#include "daemons/zelan-natd/macFile.h"
#include "daemons/zelan-natd/natConf.h"
#include "daemons/zelan-natd/router.h"
#include "daemons/zelan-natd/routerTable.h"

namespace {

// SYS_ADMIN for the namespace.
constexpr int CAPABILITIES[] = {CAP_NET_ADMIN, CAP_SYS_ADMIN, CAP_NET_BIND_SERVICE,
                                CAP_SETUID,    CAP_SETGID,    CAP_KILL};

// To poll, to talk to guests and name servers, and to read the list of these.
constexpr int SYSTEM_CALLS[] = {
    SYS_ppoll,   SYS_socket,     SYS_connect,    SYS_accept4, SYS_sendto,
    SYS_recvmsg, SYS_recvfrom,   SYS_getsockopt, SYS_close,   SYS_openat,
    SYS_read,    SYS_newfstatat, SYS_fstat,      SYS_ioctl,   SYS_restart_syscall,
#ifdef SYS_poll
    SYS_poll,    SYS_open,       SYS_stat,
#endif
};

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

class NatDaemon {
  public:
    explicit NatDaemon(const Arguments &arguments) : arguments_(arguments), conf_(arguments.conf) {}

    // False after a line in the log; *cleanUp tells what was made.
    bool Begin(CleanUp *cleanUp);

    // Returns only when it cannot go on, after a line in the log.
    void Run();

  private:
    bool LoadRouterTable();
    bool ServeDns();
    bool JoinHost();
    static bool GiveUpPrivileges();

    const Arguments &arguments_;
    const NatConf &conf_;
    HostTable hostTable_;
    Router router_;
    HostPorts ports_;
    NameServers nameServers_;
    DnsOverUdp dnsOverUdp_;
    DnsOverTcp dnsOverTcp_;
};

bool NatDaemon::LoadRouterTable() {
    // What the host does not forward does not come this far.
    std::vector<PortForward> forwards = ports_.forwards;
    forwards.insert(forwards.end(), ports_.awaited.begin(), ports_.awaited.end());
    NamespaceVisit visit(router_.space);
    return visit.entered() && RouterTable_Load(conf_, forwards);
}

bool NatDaemon::ServeDns() {
    // Of the host's namespace, where the switches are.
    DnsGuestsBy by = GuestPorts_MarkQuestions() ? DnsGuestsBy::PORT : DnsGuestsBy::ADDRESS;
    NamespaceVisit visit(router_.space);
    return visit.entered() && dnsOverUdp_.Listen(conf_.gateway, by) && dnsOverTcp_.Listen(conf_.gateway, by);
}

// The network's share in the host's packet filter, and the host's adapters.
bool NatDaemon::JoinHost() {
    NatShare share = {.router = router_.address,
                      .ownTimeout = true,
                      .udpTimeout = conf_.udpTimeout,
                      .activeFtp = conf_.activeFtp,
                      .forwards = {},
                      .kept = ports_.kept,
                      .awaited = {}};
    for (const PortForward &forward : ports_.forwards) {
        share.forwards.push_back({forward.tcp, forward.hostPort});
    }
    for (const PortForward &forward : ports_.awaited) {
        share.awaited.push_back({forward.tcp, forward.hostPort});
    }
    if (!hostTable_.AddNat(share)) {
        return false;
    }
    // Those that come later are zelan-watch's, from the first network on.
    return !hostTable_.isFirstNat() || HostTable_UseAllAdapters();
}

bool NatDaemon::Begin(CleanUp *cleanUp) {
    RtSocket socket;
    // The host's table first: only one daemon of a network gets its share, and none but that may touch the
    // rest.
    if (!socket.Open() || !hostTable_.Ensure() || !hostTable_.ClaimNat(arguments_.network)) {
        return false;
    }
    ports_ = HostPorts_Take(conf_);
    return Router_Plan(&socket, arguments_.network, conf_, &router_) &&
           Router_Make(&socket, arguments_.network, conf_, MacFile_Obtain(arguments_.macFile), &router_,
                       cleanUp) &&
           LoadRouterTable() && ServeDns() && JoinHost();
}

// What is left reads guests' messages: it may open the list of name servers and sockets towards them, no
// more.
bool NatDaemon::GiveUpPrivileges() {
    constexpr uint16_t PORTS[] = {DNS_PORT};
    // A list that is replaced is another file of the same folder, which is often not where its name stands.
    const std::string folder = NameServers_Folder();
    const ReachablePath paths[] = {{"/etc"}, {folder.c_str()}};
    Confinement confinement;
    confinement.systemCalls = SYSTEM_CALLS;
    confinement.files = true;
    confinement.paths = paths;
    confinement.tcp = true;
    confinement.tcpPorts = PORTS;
    return Confine(confinement);
}

void NatDaemon::Run() {
    ClosedHost_Warn(arguments_.network, router_.uplink);
    if (!GiveUpPrivileges()) {
        return;
    }
    std::vector<pollfd> waits;
    for (;;) {
        waits.clear();
        dnsOverUdp_.Collect(&waits);
        size_t tcpPlace = waits.size();
        dnsOverTcp_.Collect(&waits);
        auto deadline = std::min(dnsOverUdp_.Deadline(), dnsOverTcp_.Deadline());
        if (poll(waits.data(), waits.size(), Deadline_Milliseconds(deadline)) < 0) {
            continue;
        }
        auto now = DnsClock::now();
        std::span<const pollfd> all = waits;
        dnsOverUdp_.Serve(all.first(tcpPlace), now, &nameServers_);
        dnsOverTcp_.Serve(all.subspan(tcpPlace), now, &nameServers_);
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
    return EXIT_FAILURE;
}
