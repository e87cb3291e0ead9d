// zelan-dhcpd -s W -cf CONFIGURATION -lf LEASES -pf PIDFILE zelan<N>
//
// Serves DHCP on network N. The server is dnsmasq, or ISC dhcpd for a configuration that dnsmasq has no words
// for; this program gives it a network namespace of its own with a port on the network's switch, starts it
// there and leaves it alone. Neither the host's interface on the network nor anything else of the host is
// needed for it.
#include <linux/capability.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "daemons/common/address.h"
#include "daemons/common/complain.h"
#include "daemons/common/daemon.h"
#include "daemons/common/file.h"
#include "daemons/common/namespace.h"
#include "daemons/common/options.h"
#include "daemons/common/switch.h"
#include "daemons/zelan-dhcpd/dnsmasqConf.h"
#include "daemons/zelan-dhcpd/leaseFile.h"
#include "daemons/zelan-dhcpd/server.h"
#include "daemons/zelan-dhcpd/serverAddress.h"

namespace {

// SYS_ADMIN for the namespaces, CHOWN for the lease file, KILL for a server of another user.
constexpr int CAPABILITIES[] = {CAP_NET_ADMIN, CAP_SYS_ADMIN, CAP_NET_RAW, CAP_NET_BIND_SERVICE,
                                CAP_SETUID,    CAP_SETGID,    CAP_CHOWN,   CAP_KILL};

struct Arguments {
    DaemonContract contract;
    const char *configuration = nullptr;
    const char *leases = nullptr;
    const char *name = nullptr;  // of the network, and of the server's interface in its namespace
    int network = -1;
};

// How the network is to be served.
struct Plan {
    std::vector<DhcpStatement> statements;
    const char *program = nullptr;
    bool byDnsmasq = false;
    std::string dnsmasqConf;
    LeasePlan leases;
};

bool ReadArguments(char **argv, Arguments *arguments) {
    const OptionRule rules[] = {{"-s", &arguments->contract.statusText},
                                {"-cf", &arguments->configuration},
                                {"-lf", &arguments->leases},
                                {"-pf", &arguments->contract.pidFile}};
    std::vector<const char *> operands;
    if (!Options_Read(argv, rules, &operands)) {
        return false;
    }
    if (operands.size() != 1 || !Options_Network(operands[0], &arguments->network)) {
        Complain("usage: -s DESCRIPTOR -cf CONFIGURATION -lf LEASES -pf PIDFILE zelan<N>");
        return false;
    }
    arguments->name = operands[0];
    return Daemon_TakeContract(&arguments->contract, CAPABILITIES) &&
           Daemon_Claim(&arguments->contract, Service::DHCP, arguments->network);
}

// Leases that ISC dhcpd does not write down: a fixed address belongs to its host anyhow.
void AddFixedLeases(const DhcpMeaning &meaning, LeasePlan *plan) {
    constexpr int64_t DURATION = 86400;
    int64_t end = time(nullptr) + DURATION;
    for (const DhcpHost &host : meaning.hosts) {
        if (!host.hardware.empty() && host.addresses.size() == 1) {
            plan->fixed.push_back({host.addresses[0], host.hardware, host.clientId, "", end});
        }
    }
}

bool ChooseDhcpd(const char *configuration, const DhcpProblem &problem, const char *dnsmasq, Plan *plan) {
    plan->program = Server_FindDhcpd();
    plan->leases.format = LeaseFormat::ISC;
    plan->leases.owner = {0, 0};
    if (dnsmasq == nullptr) {
        if (plan->program == nullptr) {
            Complain("there is no DHCP server: install the package dnsmasq-base");
        }
    } else if (plan->program == nullptr) {
        Complain("%s:%d: dnsmasq has no words for %s: install the package isc-dhcp-server, whose dhcpd has",
                 configuration, problem.line, problem.text.c_str());
    } else {
        Tell("%s:%d: ISC dhcpd serves, as dnsmasq has no words for %s", configuration, problem.line,
             problem.text.c_str());
    }
    return plan->program != nullptr;
}

// Reads the configuration and decides which server is to be started. False after a line in the log.
bool MakePlan(const Arguments &arguments, Plan *plan) {
    const char *path = arguments.configuration;
    std::string text;
    DhcpFault fault;
    if (!File_Read(path, &text)) {
        Complain("%s: %s", path, strerror(errno));
        return false;
    }
    if (!DhcpSyntax_Parse(text, &plan->statements, &fault)) {
        Complain("%s:%d: %s", path, fault.line, fault.reason.c_str());
        return false;
    }
    DhcpMeaning meaning;
    DhcpProblem problem = DhcpMeaning_Read(plan->statements, &meaning);
    if (problem.verdict == DhcpVerdict::SOUND) {
        problem = DnsmasqConf_Write(meaning, arguments.name, &plan->dnsmasqConf);
    }
    if (problem.verdict == DhcpVerdict::FAULTY) {
        Complain("%s:%d: %s", path, problem.line, problem.text.c_str());
        return false;
    }
    plan->program = Server_FindDnsmasq();
    plan->byDnsmasq = plan->program != nullptr && problem.verdict == DhcpVerdict::SOUND;
    if (!plan->byDnsmasq) {
        return ChooseDhcpd(path, problem, plan->program, plan);
    }
    plan->leases.owner = OwnUser_Find();
    AddFixedLeases(meaning, &plan->leases);
    return true;
}

bool GiveAddress(const Arguments &arguments, const Plan &plan, RtSocket *inside, int link) {
    ServerAddress chosen;
    const char *reason = nullptr;
    if (!ServerAddress_Choose(plan.statements, &chosen, &reason)) {
        Complain("%s: %s", arguments.configuration, reason);
        return false;
    }
    int error = Address_Add(inside, link, chosen.address, chosen.prefix);
    if (error != 0) {
        Complain("cannot take the address %s: %s", Ipv4_Text(chosen.address).c_str(), strerror(error));
    }
    return error == 0;
}

// The namespace has no program but the server, which is not to need a privilege for its port.
bool OpenPorts() {
    constexpr const char *FIRST_FREE_PORT = "/proc/sys/net/ipv4/ip_unprivileged_port_start";
    if (!File_Write(FIRST_FREE_PORT, "67")) {
        Complain("%s: %s", FIRST_FREE_PORT, strerror(errno));
        return false;
    }
    return true;
}

// Makes the server's namespace with its interface. Empty after a line in the log.
FileDescriptor MakePlace(const Arguments &arguments, const Plan &plan, CleanUp *cleanUp) {
    char portName[IFNAMSIZ];
    snprintf(portName, sizeof portName, "zelan-dh%d", arguments.network);
    FileDescriptor space = Namespace_Make();
    RtSocket outside;
    SwitchPort port;
    if (!space || !outside.Open() ||
        !Switch_MakePort(&outside, arguments.network, portName, arguments.name, space.get(), &port)) {
        return {};
    }
    cleanUp->links.push_back(port.portIndex);

    NamespaceVisit visit(space);
    RtSocket inside;
    LinkInfo link;
    if (!visit.entered() || !inside.Open() || !OpenPorts()) {
        return {};
    }
    int error = Link_Find(&inside, arguments.name, &link);
    if (error == 0) {
        if (!GiveAddress(arguments, plan, &inside, link.index)) {
            return {};
        }
        error = Link_SetFlags(&inside, link.index, IFF_UP, IFF_UP);
    }
    if (error != 0) {
        Complain("cannot bring %s up: %s", arguments.name, strerror(error));
        return {};
    }
    return space;
}

// Those that the file itself names, not those that they name again.
void FindIncluded(const std::vector<DhcpStatement> &statements, std::vector<std::string> *files) {
    for (const DhcpStatement &statement : statements) {
        if (statement.Is("include") && statement.words.size() == 2) {
            files->push_back(statement.words[1].text);
        }
        FindIncluded(statement.body, files);
    }
}

bool Start(Arguments *arguments, CleanUp *cleanUp) {
    Plan plan;
    if (!MakePlan(*arguments, &plan)) {
        return false;
    }
    ServerStart start = {.program = plan.program,
                         .name = arguments->name,
                         .configuration = File_Absolute(arguments->configuration),
                         .leases = File_Absolute(arguments->leases),
                         .included = {},
                         .leaseFile = LeaseFile_Prepare(arguments->leases, plan.leases),
                         .space = {}};
    if (!start.leaseFile) {
        return false;
    }
    FindIncluded(plan.statements, &start.included);
    Server server =
        plan.byDnsmasq ? Server_Dnsmasq(&start, plan.dnsmasqConf, plan.leases.owner) : Server_Dhcpd(start);
    start.space = server.output ? MakePlace(*arguments, plan, cleanUp) : FileDescriptor();
    return start.space && Server_Start(start, server, &arguments->contract, *cleanUp);
}

}  // namespace

int main(int, char **argv) {
    Arguments arguments;
    if (!ReadArguments(argv, &arguments)) {
        return EXIT_FAILURE;
    }
    CleanUp cleanUp;
    if (!Start(&arguments, &cleanUp)) {
        Daemon_GiveUp(&arguments.contract, cleanUp);
    }
    Daemon_Report(&arguments.contract);
}
