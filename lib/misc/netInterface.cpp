#include "lib/misc/netInterface.h"

#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>

namespace {

// Binding looks a name up in the socket's network namespace as the ioctls do, but loads nothing, and unlike
// rtnetlink it does not wait while interfaces are being made. A socket that only carries ioctls may be bound.
// Only ENODEV says anything: a kernel may refuse the binding itself.
bool IsAbsent(int socketFd, const ifreq &request) {
    // The ioctls take "eth0:1" for eth0.
    const auto length = static_cast<socklen_t>(strcspn(request.ifr_name, ":"));
    return length == 0 || (setsockopt(socketFd, SOL_SOCKET, SO_BINDTODEVICE, request.ifr_name, length) != 0 &&
                           errno == ENODEV);
}

}  // namespace

int NetInterface_Ioctl(int socketFd, unsigned long request, ifreq *interfaceRequest) {
    if (IsAbsent(socketFd, *interfaceRequest)) {
        errno = ENODEV;
        return -1;
    }
    return ioctl(socketFd, request, interfaceRequest);
}
