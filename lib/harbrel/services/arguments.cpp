#include "lib/harbrel/services/arguments.h"

#include <cstdlib>

#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/base/hostAdapterChain.h"
#include "lib/harbrel/base/services.h"
#include "lib/harbrel/bridging/bridging.h"
#include "lib/harbrel/cache/cache.h"
#include "lib/harbrel/networks/settings.h"
#include "lib/harbrel/services/daemons.h"
#include "lib/string/str.h"

namespace {

constexpr size_t INITIAL_SLOTS = 16;
constexpr size_t MIN_FREE_SLOTS = 2;  // one for the next argument, one for the null at the end

char *Copy(const char *text) {
    return Str_Asprintf(nullptr, "%s", text);
}

char *PidFilename(const ServiceLaunch &launch) {
    char *path = nullptr;
    return HBLGetPidFilename(launch.vnet, launch.program->service, &path, nullptr) ? path : nullptr;
}

void AppendPidFile(const ServiceLaunch &launch, ArgumentVector *arguments) {
    arguments->Append(Copy("-d"));
    arguments->Append(PidFilename(launch));
}

// On the default bridge network everything is bridged but what is mapped elsewhere; on any other network only
// what is mapped to it.
bool ListBridgeAdapters(const char *function, uint32_t vnet, HostAdapterChain *adapters,
                        const char **option) {
    const int32_t number = static_cast<int32_t>(vnet);
    int32_t defaultVnet = HBL_VNET_NONE;
    if (!HBLGetDefaultBridgeVnet(&defaultVnet)) {
        HBLLog(LOG_ERR, function, "Cannot obtain value of DefaultBridge");
        return false;
    }
    if (number == defaultVnet) {
        *option = "-e";
        if (!HBLNetCfgLookupHostAdaptersForVnet(nullptr, number, &adapters->count, &adapters->head, true)) {
            HBLLog(LOG_ERR, function, "Cannot obtain list of adapters excluded from vnet: %d", number);
            return false;
        }
        return true;
    }
    *option = "-i";
    // None at all would tell the daemon to bridge everything. The network was asked for its bridge before the
    // lock was taken, and another process may have moved its adapters away since.
    if (!HBLGetVnetBridge(number, &adapters->count, &adapters->head) || adapters->count == 0) {
        HBLLog(LOG_ERR, function, "Cannot obtain list of adapters bridged to vnet: %d", number);
        return false;
    }
    return true;
}

// Each builder appends what follows the program path and "-s <fd>", and logs its own failures under
// `function`.
using ArgumentBuilder = bool (*)(const char *function, const ServiceLaunch &launch,
                                 ArgumentVector *arguments);

bool BridgeArguments(const char *function, const ServiceLaunch &launch, ArgumentVector *arguments) {
    HostAdapterChain adapters;
    const char *option = nullptr;
    if (!ListBridgeAdapters(function, launch.vnet, &adapters, &option)) {
        return false;
    }
    AppendPidFile(launch, arguments);
    arguments->Append(Copy("-n"));
    arguments->Append(Str_Asprintf(nullptr, "%u", launch.vnet));
    for (const HBL_HostAdapter *adapter = adapters.head; adapter != nullptr; adapter = adapter->next) {
        arguments->Append(Str_Asprintf(nullptr, "%s%s", option, adapter->deviceName));
    }
    return true;
}

bool NetifupArguments(const char *function, const ServiceLaunch &launch, ArgumentVector *arguments) {
    char adapter[HBL_ADAPTER_NAME_SIZE];
    if (!HBLGetVnetVirtAdapterName(launch.vnet, adapter, sizeof adapter)) {
        HBLLog(LOG_ERR, function, "Cannot obtain virtual adapter name");
        return false;
    }
    AppendPidFile(launch, arguments);
    arguments->Append(Str_Asprintf(nullptr, "/dev/%s", launch.vnetName.text));
    arguments->Append(Copy(adapter));
    return true;
}

bool DHCPArguments(const char *, const ServiceLaunch &launch, ArgumentVector *arguments) {
    const char *name = launch.vnetName.text;
    arguments->Append(Copy("-cf"));
    arguments->Append(Str_Asprintf(nullptr, "%s/%s/dhcpd/dhcpd.conf", launch.configDir, name));
    arguments->Append(Copy("-lf"));
    arguments->Append(Str_Asprintf(nullptr, "%s/%s/dhcpd/dhcpd.leases", launch.configDir, name));
    arguments->Append(Copy("-pf"));
    arguments->Append(PidFilename(launch));
    arguments->Append(Copy(name));
    return true;
}

bool NATArguments(const char *, const ServiceLaunch &launch, ArgumentVector *arguments) {
    AppendPidFile(launch, arguments);
    arguments->Append(Copy("-m"));
    arguments->Append(Str_Asprintf(nullptr, "%s/%s-%d.mac", launch.runDir, launch.program->program,
                                   static_cast<int>(launch.vnet)));
    arguments->Append(Copy("-c"));
    arguments->Append(Str_Asprintf(nullptr, "%s/%s/nat/nat.conf", launch.configDir, launch.vnetName.text));
    return true;
}

bool NetdetectArguments(const char *, const ServiceLaunch &launch, ArgumentVector *arguments) {
    AppendPidFile(launch, arguments);
    return true;
}

struct BuilderRow {
    uint32_t service;
    ArgumentBuilder build;
};

constexpr BuilderRow BUILDERS[] = {
    {HBL_SVC_BRIDGE, BridgeArguments}, {HBL_SVC_NETIFUP, NetifupArguments},     {HBL_SVC_DHCP, DHCPArguments},
    {HBL_SVC_NAT, NATArguments},       {HBL_SVC_NETDETECT, NetdetectArguments},
};

ArgumentBuilder FindBuilder(uint32_t service) {
    for (const BuilderRow &row : BUILDERS) {
        if (row.service == service) {
            return row.build;
        }
    }
    return nullptr;
}

}  // namespace

ArgumentVector::~ArgumentVector() {
    for (size_t i = 0; i < count_; i++) {
        free(slots_[i]);
    }
    free(slots_);
}

bool ArgumentVector::EnsureRoom() {
    if (capacity_ - count_ >= MIN_FREE_SLOTS) {
        return true;
    }
    const size_t capacity = capacity_ == 0 ? INITIAL_SLOTS : 2 * capacity_;
    char **grown = static_cast<char **>(reallocarray(slots_, capacity, sizeof *slots_));
    if (grown == nullptr) {
        return false;
    }
    for (size_t i = count_; i < capacity; i++) {
        grown[i] = nullptr;
    }
    slots_ = grown;
    capacity_ = capacity;
    return true;
}

void ArgumentVector::Append(char *text) {
    if (!EnsureRoom()) {
        overflowed_ = true;
        free(text);
        return;
    }
    slots_[count_++] = text;
}

bool ArgumentVector::Complete() const {
    for (size_t i = 0; i < count_; i++) {
        if (slots_[i] == nullptr) {
            return false;
        }
    }
    return true;
}

bool HBLBuildServiceArguments(const char *function, const ServiceLaunch &launch, ArgumentVector *arguments) {
    arguments->Append(Str_Asprintf(nullptr, "%s/%s", launch.binDir, launch.program->program));
    arguments->Append(Copy("-s"));
    arguments->Append(Str_Asprintf(nullptr, "%d", launch.statusFd));
    if (!FindBuilder(launch.program->service)(function, launch, arguments)) {
        return false;
    }
    if (arguments->Overflowed()) {
        HBLLog(LOG_ERR, function, "Failed to resize array of arguments");
        return false;
    }
    return true;
}
