// zelan-netifup -s W -d PIDFILE /dev/zelan<N> ADAPTER
//
// Keeps the host's own interface on network N in being: a veth pair whose one end carries the adapter's name
// and whose other end is a port of the network's switch. The tool gives the adapter its addresses. The pair
// exists for as long as this daemon lives, and this daemon for as long as the pair exists.
#include <arpa/inet.h>
#include <linux/capability.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <vector>

#include "daemons/common/complain.h"
#include "daemons/common/daemon.h"
#include "daemons/common/options.h"
#include "daemons/common/switch.h"
#include "daemons/confinement/confinement.h"
#include "daemons/firewall/hostTable.h"

namespace {

constexpr int CAPABILITIES[] = {CAP_NET_ADMIN, CAP_NET_RAW, CAP_SETUID, CAP_SETGID, CAP_KILL};

// Afterwards it only waits.
constexpr int SYSTEM_CALLS[] = {SYS_getsockopt, SYS_ioctl};

struct Arguments {
    DaemonContract contract;
    int network = -1;
    const char *adapter = nullptr;
};

// The node's name tells the network, as it does the library; its numbers, which that one leaves as they are,
// mean nothing.
bool ReadNetwork(const char *node, int *network) {
    struct stat status = {};
    if (stat(node, &status) != 0) {
        Complain("%s: %s", node, strerror(errno));
        return false;
    }
    std::string_view name = node;
    name.remove_prefix(name.rfind('/') + 1);
    if (!S_ISCHR(status.st_mode) || !Options_Network(name, network)) {
        Complain("%s is no device node of a network", node);
        return false;
    }
    return true;
}

bool ReadArguments(char **argv, Arguments *arguments) {
    const OptionRule rules[] = {{"-s", &arguments->contract.statusText},
                                {"-d", &arguments->contract.pidFile}};
    std::vector<const char *> operands;
    if (!Options_Read(argv, rules, &operands)) {
        return false;
    }
    if (operands.size() != 2) {
        Complain("usage: -s DESCRIPTOR -d PIDFILE /dev/zelan<N> ADAPTER");
        return false;
    }
    arguments->adapter = operands[1];
    if (!Link_IsValidName(arguments->adapter)) {
        Complain("\"%s\" cannot name an interface", arguments->adapter);
        return false;
    }
    return Daemon_TakeContract(&arguments->contract, CAPABILITIES) &&
           ReadNetwork(operands[0], &arguments->network);
}

// A packet socket of its own costs nothing while nothing happens and is told when its interface goes down,
// which the port does only on its way out. False after a line in the log.
bool WatchPort(int port, FileDescriptor *watch) {
    watch->reset(socket(AF_PACKET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    sockaddr_ll address = {};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(ETH_P_802_EX1);  // nobody's frames
    address.sll_ifindex = port;
    if (!*watch || bind(watch->get(), reinterpret_cast<sockaddr *>(&address), sizeof address) != 0) {
        Complain("cannot watch the interface: %s", strerror(errno));
        return false;
    }
    return true;
}

// Nothing is forwarded to or from the interface from its first moment on.
bool MakeInterface(const Arguments &arguments, HostTable *hostTable, FileDescriptor *watch,
                   CleanUp *cleanUp) {
    char portName[IFNAMSIZ];
    snprintf(portName, sizeof portName, "zelan-if%d", arguments.network);
    RtSocket socket;
    SwitchPort port;
    if (!socket.Open() || !hostTable->Ensure()) {
        return false;
    }
    if (!Switch_MakePort(&socket, arguments.network, portName, arguments.adapter, -1, &port)) {
        return false;
    }
    // Removing one end of the pair removes both.
    cleanUp->links.push_back(port.portIndex);
    cleanUp->hostInterface = port.peerIndex;
    return WatchPort(port.portIndex, watch);
}

bool Exists(const FileDescriptor &anySocket, int link) {
    ifreq request = {};
    request.ifr_ifindex = link;
    return ioctl(anySocket.get(), SIOCGIFNAME, &request) == 0;
}

// Returns when somebody has removed the pair: without an interface there is nothing to keep, and a daemon
// that lived on would look to the tool as if all were well.
void AwaitEndOf(const FileDescriptor &watch, int port) {
    constexpr int DOWN_POLL_MILLISECONDS = 500;
    int patience = -1;
    while (Exists(watch, port)) {
        pollfd end = {watch.get(), 0, 0};
        poll(&end, 1, patience);
        int error = 0;
        socklen_t size = sizeof error;
        getsockopt(watch.get(), SOL_SOCKET, SO_ERROR, &error, &size);  // takes the event
        patience = DOWN_POLL_MILLISECONDS;
    }
}

}  // namespace

int main(int, char **argv) {
    Arguments arguments;
    if (!ReadArguments(argv, &arguments) ||
        !Daemon_Claim(&arguments.contract, Service::NETIFUP, arguments.network)) {
        return EXIT_FAILURE;
    }
    HostTable hostTable;
    FileDescriptor watch;
    CleanUp cleanUp;
    if (!MakeInterface(arguments, &hostTable, &watch, &cleanUp)) {
        Daemon_GiveUp(&arguments.contract, cleanUp);
    }
    Daemon_Detach(&arguments.contract, cleanUp);
    Confine({.systemCalls = SYSTEM_CALLS, .files = true, .tcp = true});
    AwaitEndOf(watch, cleanUp.links.front());
    Complain("%s has been removed", arguments.adapter);
    return EXIT_FAILURE;
}
