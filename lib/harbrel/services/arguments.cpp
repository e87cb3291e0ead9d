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
    return HBLGetPidFilename(launch.vnet, launch.program.service, &path, nullptr) ? path : nullptr;
}

void AppendPidFile(const ServiceLaunch &launch, ArgumentVector *arguments) {
    arguments->Append(Copy("-d"));
    arguments->Append(PidFilename(launch));
}

// On the default bridge network everything is bridged but what is mapped elsewhere; on any other network only
// what is mapped to it.
bool ListBridgeAdapters(FunctionLog log, uint32_t vnet, HostAdapterChain *adapters, const char **option) {
    const int32_t number = static_cast<int32_t>(vnet);
    int32_t defaultVnet = HBL_VNET_NONE;
    if (!HBLGetDefaultBridgeVnet(&defaultVnet)) {
        log(LOG_ERR, "Cannot obtain value of DefaultBridge");
        return false;
    }
    if (number == defaultVnet) {
        *option = "-e";
        if (!HBLNetCfgLookupHostAdaptersForVnet(nullptr, number, adapters, true)) {
            log(LOG_ERR, "Cannot obtain list of adapters excluded from vnet: %d", number);
            return false;
        }
        return true;
    }
    *option = "-i";
    // None at all would tell the daemon to bridge everything. The network was asked for its bridge before the
    // lock was taken, and another process may have moved its adapters away since.
    if (!HBLGetVnetBridge(number, adapters) || adapters->Count() == 0) {
        log(LOG_ERR, "Cannot obtain list of adapters bridged to vnet: %d", number);
        return false;
    }
    return true;
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
    if (overflowed_) {
        return false;
    }
    for (size_t i = 0; i < count_; i++) {
        if (slots_[i] == nullptr) {
            return false;
        }
    }
    return true;
}

bool HBLBuildServiceArguments(FunctionLog log, const ServiceLaunch &launch, ArgumentVector *arguments) {
    arguments->Append(Str_Asprintf(nullptr, "%s/%s", launch.binDir.c_str(), launch.program.program));
    arguments->Append(Copy("-s"));
    arguments->Append(Str_Asprintf(nullptr, "%d", launch.statusFd));
    if (!launch.program.arguments(log, launch, arguments)) {
        return false;
    }
    if (arguments->Overflowed()) {
        log(LOG_ERR, "Failed to resize array of arguments");
        return false;
    }
    return true;
}

bool HBLBridgeArguments(FunctionLog log, const ServiceLaunch &launch, ArgumentVector *arguments) {
    HostAdapterChain adapters;
    const char *option = nullptr;
    if (!ListBridgeAdapters(log, launch.vnet, &adapters, &option)) {
        return false;
    }
    AppendPidFile(launch, arguments);
    arguments->Append(Copy("-n"));
    arguments->Append(Str_Asprintf(nullptr, "%u", launch.vnet));
    for (const HBL_HostAdapter *adapter = adapters.First(); adapter != nullptr; adapter = adapter->next) {
        arguments->Append(Str_Asprintf(nullptr, "%s%s", option, adapter->deviceName));
    }
    return true;
}

bool HBLNetifupArguments(FunctionLog log, const ServiceLaunch &launch, ArgumentVector *arguments) {
    char adapter[HBL_ADAPTER_NAME_SIZE];
    if (!HBLGetVnetVirtAdapterName(launch.vnet, adapter, sizeof adapter)) {
        log(LOG_ERR, "Cannot obtain virtual adapter name");
        return false;
    }
    AppendPidFile(launch, arguments);
    arguments->Append(Str_Asprintf(nullptr, "/dev/%s", launch.vnetName.text));
    arguments->Append(Copy(adapter));
    return true;
}

bool HBLDHCPArguments(FunctionLog, const ServiceLaunch &launch, ArgumentVector *arguments) {
    const char *name = launch.vnetName.text;
    arguments->Append(Copy("-cf"));
    arguments->Append(Str_Asprintf(nullptr, "%s/%s/dhcpd/dhcpd.conf", launch.configDir.c_str(), name));
    arguments->Append(Copy("-lf"));
    arguments->Append(Str_Asprintf(nullptr, "%s/%s/dhcpd/dhcpd.leases", launch.configDir.c_str(), name));
    arguments->Append(Copy("-pf"));
    arguments->Append(PidFilename(launch));
    arguments->Append(Copy(name));
    return true;
}

bool HBLNATArguments(FunctionLog, const ServiceLaunch &launch, ArgumentVector *arguments) {
    AppendPidFile(launch, arguments);
    arguments->Append(Copy("-m"));
    arguments->Append(Str_Asprintf(nullptr, "%s/%s-%d.mac", launch.runDir.c_str(), launch.program.program,
                                   static_cast<int>(launch.vnet)));
    arguments->Append(Copy("-c"));
    arguments->Append(
        Str_Asprintf(nullptr, "%s/%s/nat/nat.conf", launch.configDir.c_str(), launch.vnetName.text));
    return true;
}

bool HBLNetdetectArguments(FunctionLog, const ServiceLaunch &launch, ArgumentVector *arguments) {
    AppendPidFile(launch, arguments);
    return true;
}
