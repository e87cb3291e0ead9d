#include "lib/harbrel/virtualadapter/virtualAdapter.h"

#include <arpa/inet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>

#include "lib/err/errText.h"
#include "lib/harbrel/addresses/addresses.h"
#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/files/files.h"
#include "lib/harbrel/frame/apiFrame.h"
#include "lib/harbrel/networks/settings.h"
#include "lib/misc/netInterface.h"
#include "lib/misc/owners.h"

namespace {

constexpr short ENABLED_FLAGS = IFF_UP | IFF_MULTICAST;  // 0x1001

FileDescriptor OpenControlSocket() {
    return FileDescriptor(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
}

ifreq RequestFor(const char *interfaceName) {
    ifreq request{};
    memcpy(request.ifr_name, interfaceName, strnlen(interfaceName, IFNAMSIZ - 1));
    return request;
}

// The interface flags as the unsigned value that the log shows.
unsigned Flags(const ifreq &request) {
    return static_cast<unsigned short>(request.ifr_flags);
}

bool GetFlags(FunctionLog log, int socketFd, ifreq *request) {
    if (NetInterface_Ioctl(socketFd, SIOCGIFFLAGS, request) != 0) {
        const int reason = errno;
        log(LOG_ERR, "ioctl: SIOCGIFFLAGS failed, error: %s", Err_ErrnoText(reason));
        errno = reason;
        return false;
    }
    log(LOG_INFO, "ioctl: SIOCGIFFLAGS get interface flags: 0x%x for interface: %s", Flags(*request),
        request->ifr_name);
    return true;
}

bool SetFlags(FunctionLog log, int socketFd, short flags, ifreq *request) {
    request->ifr_flags = flags;
    if (NetInterface_Ioctl(socketFd, SIOCSIFFLAGS, request) != 0) {
        log(LOG_ERR, "ioctl: SIOCSIFFLAGS failed, error: %s", Err_LastErrnoText());
        return false;
    }
    log(LOG_INFO, "ioctl: SIOCSIFFLAGS set interface flags to: 0x%x for interface: %s", Flags(*request),
        request->ifr_name);
    return true;
}

// What the configuration says about the interface, as texts.
struct AdapterTexts {
    char address[HBL_IP_STR_SIZE];
    char mask[HBL_IP_STR_SIZE];
    char broadcast[HBL_IP_STR_SIZE];
    char subnet[HBL_IP_STR_SIZE];
};

// The same in network order; the subnet is converted only to prove it well formed.
struct AdapterAddresses {
    in_addr address;
    in_addr mask;
    in_addr broadcast;
    in_addr subnet;
};

bool ReadConfiguredTexts(FunctionLog log, uint32_t vnet, AdapterTexts *texts) {
    if (!HBLGetVnetSubnetAddr(vnet, texts->subnet, sizeof texts->subnet)) {
        log(LOG_ERR, "Getting Subnet Address failed");
        return false;
    }
    if (!HBLGetVnetVirtAdapterAddr(vnet, texts->address, sizeof texts->address, true)) {
        log(LOG_ERR, "Getting virtual adapter address failed");
        return false;
    }
    if (!HBLGetVnetSubnetMask(vnet, texts->mask, sizeof texts->mask)) {
        log(LOG_ERR, "Getting virtual adapter mask failed");
        return false;
    }
    if (!HBLGetBcastAddr(texts->address, texts->mask, texts->broadcast)) {
        log(LOG_ERR, "Getting virtual adapter broadcast address failed");
        return false;
    }
    return true;
}

bool ConvertAddresses(FunctionLog log, const AdapterTexts &texts, AdapterAddresses *addresses) {
    if (inet_pton(AF_INET, texts.address, &addresses->address) != 1) {
        log(LOG_ERR, "Converting interface address: %s to network format failed", texts.address);
        return false;
    }
    if (inet_pton(AF_INET, texts.mask, &addresses->mask) != 1) {
        log(LOG_ERR, "Converting interface netmask: %s to network format failed", texts.mask);
        return false;
    }
    if (inet_pton(AF_INET, texts.broadcast, &addresses->broadcast) != 1) {
        log(LOG_ERR, "Converting interface broadcast: %s to network format failed", texts.broadcast);
        return false;
    }
    if (inet_pton(AF_INET, texts.subnet, &addresses->subnet) != 1) {
        log(LOG_ERR, "Converting subnet address: %s to network format failed", texts.subnet);
        return false;
    }
    return true;
}

// One of the ioctls that push an address into the interface.
struct AddressStep {
    unsigned long request;
    const char *requestName;
    const char *what;  // "... set interface <what> to: ..."
    in_addr AdapterAddresses::*value;
};

constexpr AddressStep ADDRESS_STEPS[] = {
    {SIOCSIFADDR, "SIOCSIFADDR", "address", &AdapterAddresses::address},
    {SIOCSIFNETMASK, "SIOCSIFNETMASK", "netmask address", &AdapterAddresses::mask},
    {SIOCSIFBRDADDR, "SIOCSIFBRDADDR", "broadcast address", &AdapterAddresses::broadcast},
};

bool SetAddress(FunctionLog log, int socketFd, const AddressStep &step, in_addr value, ifreq *request) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr = value;
    memcpy(&request->ifr_addr, &address, sizeof address);
    if (NetInterface_Ioctl(socketFd, step.request, request) != 0) {
        log(LOG_ERR, "ioctl: %s failed, error: %s", step.requestName, Err_LastErrnoText());
        return false;
    }
    log(LOG_INFO, "ioctl: %s set interface %s to: %.8x for interface: %s", step.requestName, step.what,
        value.s_addr, request->ifr_name);
    return true;
}

bool PushAddressesAndFlags(FunctionLog log, const char *interfaceName, const AdapterAddresses &addresses) {
    const FileDescriptor control = OpenControlSocket();
    if (!control) {
        log(LOG_ERR, "socket(): for enabling adapter failed, error: %s", Err_LastErrnoText());
        return false;
    }
    ifreq request = RequestFor(interfaceName);
    for (const AddressStep &step : ADDRESS_STEPS) {
        if (!SetAddress(log, control.get(), step, addresses.*step.value, &request)) {
            return false;
        }
    }
    return SetFlags(log, control.get(), ENABLED_FLAGS, &request);
}

}  // namespace

uint32_t HBLAdapterStatus(const char *interfaceName) {
    const FileDescriptor control = OpenControlSocket();
    if (!control) {
        HBLLog(LOG_ERR, __func__, "socket(): failed, error: %s", Err_LastErrnoText());
        return HBL_ADAPTER_STATUS_ERROR;
    }
    ifreq request = RequestFor(interfaceName);
    if (!GetFlags(__func__, control.get(), &request)) {
        return errno == ENODEV ? HBL_ADAPTER_STATUS_ABSENT : HBL_ADAPTER_STATUS_ERROR;
    }
    return (Flags(request) & IFF_UP) != 0 ? HBL_ADAPTER_STATUS_UP : HBL_ADAPTER_STATUS_DOWN;
}

bool HBLVirtAdapterEnable(uint32_t vnet) {
    char name[HBL_ADAPTER_NAME_SIZE];
    if (!HBLGetVnetVirtAdapterName(vnet, name, sizeof name)) {
        HBLLog(LOG_ERR, __func__, "Getting virtual adapter name failed");
        return false;
    }
    if (HBLAdapterStatus(name) == HBL_ADAPTER_STATUS_UP) {
        HBLLog(LOG_INFO, __func__, "Virtual adapter is already enabled");
        return true;
    }
    AdapterTexts texts;
    AdapterAddresses addresses;
    return ReadConfiguredTexts(__func__, vnet, &texts) && ConvertAddresses(__func__, texts, &addresses) &&
           PushAddressesAndFlags(__func__, name, addresses);
}

bool HBLVirtAdapterDisable(uint32_t vnet) {
    char name[HBL_ADAPTER_NAME_SIZE];
    if (!HBLGetVnetVirtAdapterName(vnet, name, sizeof name)) {
        HBLLog(LOG_ERR, __func__, "Getting virtual adapter name failed");
        return false;
    }
    const uint32_t status = HBLAdapterStatus(name);
    if (status == HBL_ADAPTER_STATUS_DOWN || status == HBL_ADAPTER_STATUS_ABSENT) {
        HBLLog(LOG_INFO, __func__, "Virtual adapter is already disabled");
        return true;
    }
    const FileDescriptor control = OpenControlSocket();
    if (!control) {
        HBLLog(LOG_ERR, __func__, "socket(): for disabling adapter failed, error: %s", Err_LastErrnoText());
        return false;
    }
    ifreq request = RequestFor(name);
    if (!GetFlags(__func__, control.get(), &request)) {
        return false;
    }
    const short withoutUp = static_cast<short>(request.ifr_flags & ~IFF_UP);
    return SetFlags(__func__, control.get(), withoutUp, &request);
}

bool HBLCreateDeleteZelanDevice(const char *vnet, bool create) {
    uint32_t number = 0;
    if (!ApiOnlyVnetArgument(__func__, vnet, &number)) {
        return false;
    }
    const bool done = create ? HBLCreateFile(number, HBL_FILE_DEVICE, nullptr)
                             : HBLRemoveFile(number, HBL_FILE_DEVICE, nullptr);
    if (!done) {
        HBLLog(LOG_ERR, __func__, "Failed to %s zelan device for zelet: %s", create ? "create" : "delete",
               vnet);
    }
    return done;
}
