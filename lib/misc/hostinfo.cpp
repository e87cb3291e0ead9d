#include "lib/misc/hostinfo.h"

#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/utsname.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "lib/log/log.h"
#include "lib/misc/netInterface.h"
#include "lib/misc/owners.h"

namespace {

constexpr uint32_t HASH_START = 5381;
constexpr unsigned ETHERNET_NAMES = 8;
constexpr size_t MAC_BYTES = 6;

struct MachineIdentity {
    uint32_t hostNameHash;
    uint64_t hardwareID;
};

uint64_t HardwareIDFromMac(const char *mac) {
    uint64_t id = 0;
    for (size_t i = MAC_BYTES; i-- > 0;) {
        id = id << 8 | static_cast<unsigned char>(mac[i]);
    }
    return id;
}

// 0 or an errno value.
int ObtainHardwareID(uint64_t *hardwareID) {
    *hardwareID = 0;
    const FileDescriptor socketFd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!socketFd) {
        const int error = errno;
        Warning("%s unexpected failure: %d.\n", __func__, error);
        return error;
    }
    for (unsigned i = 0; i < ETHERNET_NAMES; i++) {
        ifreq request{};
        snprintf(request.ifr_name, sizeof request.ifr_name, "eth%u", i);
        if (NetInterface_Ioctl(socketFd.get(), SIOCGIFHWADDR, &request) == 0) {
            *hardwareID = HardwareIDFromMac(request.ifr_hwaddr.sa_data);
            return 0;
        }
        const int error = errno;
        if (error != ENODEV) {
            Warning("%s unexpected failure: %d.\n", __func__, error);
            return error;
        }
    }
    return 0;
}

uint32_t ObtainHostNameHash(const char *function) {
    utsname names;
    if (uname(&names) != 0) {
        Warning("%s Hostinfo_HostName failure; providing default.\n", function);
        return 0;
    }
    return Hostinfo_HashHostName(names.nodename);
}

MachineIdentity ObtainIdentity(const char *function) {
    MachineIdentity identity{ObtainHostNameHash(function), 0};
    const int error = ObtainHardwareID(&identity.hardwareID);
    if (error != 0) {
        char buffer[256];
        Warning("%s ObtainHardwareID failure (%s); providing default.\n", function,
                strerror_r(error, buffer, sizeof buffer));
    }
    return identity;
}

}  // namespace

uint32_t Hostinfo_HashHostName(std::string_view hostName) {
    uint32_t hash = HASH_START;
    for (const char character : hostName) {
        hash = hash * 33 + static_cast<unsigned char>(character);
    }
    return hash;
}

void Hostinfo_MachineID(uint32_t *hostNameHash, uint64_t *hardwareID) {
    static const MachineIdentity identity = ObtainIdentity(__func__);
    *hostNameHash = identity.hostNameHash;
    *hardwareID = identity.hardwareID;
}
