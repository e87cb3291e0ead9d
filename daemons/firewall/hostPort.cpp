#include "daemons/firewall/hostPort.h"

#include <netinet/in.h>
#include <sys/socket.h>

FileDescriptor HostPort_Hold(const HostPort &port) {
    FileDescriptor handle(socket(AF_INET, (port.tcp ? SOCK_STREAM : SOCK_DGRAM) | SOCK_CLOEXEC, 0));
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(port.port);
    int on = 1;
    // What is left of a server's old connections does not make a port taken.
    bool taken = handle &&
                 (!port.tcp || setsockopt(handle.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) == 0) &&
                 bind(handle.get(), reinterpret_cast<sockaddr *>(&address), sizeof address) == 0 &&
                 (!port.tcp || listen(handle.get(), 0) == 0);
    if (!taken) {
        handle.reset();
    }
    return handle;
}

const char *HostPort_Protocol(const HostPort &port) {
    return port.tcp ? "TCP" : "UDP";
}
