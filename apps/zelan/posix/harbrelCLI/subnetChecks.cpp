#include "apps/zelan/posix/harbrelCLI/subnetChecks.h"

#include <unistd.h>

#include "apps/zelan/posix/harbrelCLI/names.h"
#include "apps/zelan/posix/harbrelCLI/report.h"
#include "lib/fatal/memory.h"
#include "lib/string/str.h"

namespace {

constexpr unsigned POLL_MICROSECONDS = 500000;
constexpr uint32_t PING_TIMEOUT_SECONDS = 2;
constexpr uint32_t PING_INTERVAL_SECONDS = 1;
constexpr size_t THREAD_NAME_SIZE = 32;

bool NeedsSubnet(const HBL_VnetFeatures &features) {
    return features.subnet == 1 || features.config.dhcp == 1 || features.config.nat == 1 ||
           features.config.hostOnlyAdapter == 1;
}

// What runs on the network shows that its subnet is its own.
bool UsesItsSubnet(const HBL_VnetFeatures &features) {
    return features.runtime.dhcp == 1 || features.runtime.nat == 1 || features.runtime.hostOnlyAdapter == 1;
}

MallocBlock<HBL_VnetFeatures> CopyFeatures(const HBL_VnetFeatures &features) {
    MallocBlock<HBL_VnetFeatures> copy(static_cast<HBL_VnetFeatures *>(Mem_Alloc(sizeof features)));
    *copy = features;
    return copy;
}

// What is started once the subnet is known to be free, in this order. Without a text nothing is said.
struct StartRow {
    bool (*isConfigured)(const HBL_VnetFeatures &features);
    bool (*start)(const char *name);
    const char *started;
    const char *failed;
};

constexpr StartRow START_ROWS[] = {
    {[](const HBL_VnetFeatures &features) { return features.config.dhcp == 1; },
     [](const char *name) { return HBL_StartService(name, HBL_SERVICE_DHCP); }, "Started DHCP service on %s",
     "Failed to start DHCP service on %s"},
    {[](const HBL_VnetFeatures &features) { return features.config.nat == 1; },
     [](const char *name) { return HBL_StartService(name, HBL_SERVICE_NAT); }, "Started NAT service on %s",
     "Failed to start NAT service on %s"},
    {[](const HBL_VnetFeatures &features) { return features.config.hostOnlyAdapter == 1; },
     HBL_EnableNetworkAdapter, "Enabled hostonly virtual adapter on %s",
     "Failed to enable hostonly virtual adapter on %s"},
    {[](const HBL_VnetFeatures &features) { return features.subnet == 1; }, HBL_CreateZelanDevice, nullptr,
     "Failed to create device for %s"},
};

int StartOnFreeSubnet(const char *name, const HBL_VnetFeatures &features) {
    int result = 0;
    for (const StartRow &row : START_ROWS) {
        if (!row.isConfigured(features)) {
            continue;
        }
        if (!row.start(name)) {
            Report(REPORT_ERROR, row.failed, name);
            result = 1;
        } else if (row.started != nullptr) {
            Report(REPORT_NORMAL, row.started, name);
        }
    }
    return result;
}

int ProcessRecord(SubnetProbeRecord *record, unsigned slot, const char *name) {
    int result = 0;
    Report(REPORT_VERBOSE, "Checking if services on %s can be started, thread #%u", name, slot);
    if (record->unavailable) {
        Report(REPORT_ERROR,
               "Subnet on %s is no longer available for usage, please run the network editor to reconfigure "
               "different subnet",
               name);
        result = 1;
    } else {
        result = StartOnFreeSubnet(name, *record->features);
    }
    record->processed = true;
    record->features.reset();
    if (record->thread != VTHREAD_INVALID_ID) {
        VThread_WaitThread(record->thread);
    }
    Report(REPORT_VERBOSE, "Finished processing thread #%u on %s", slot, name);
    return result;
}

}  // namespace

void PingSubnetThread(void *argument) {
    SubnetProbeRecord *record = static_cast<SubnetProbeRecord *>(argument);
    const MallocString name = NetworkName(record->vnet);
    Report(REPORT_VERBOSE, "Checking availability of subnet configured for %s", name.get());
    bool available = false;
    const bool checked = HBL_CheckSubnetAvailability(name.get(), false, PING_TIMEOUT_SECONDS,
                                                     PING_INTERVAL_SECONDS, &available);
    const bool unavailable = !(checked && available);
    record->unavailable = unavailable;
    record->finished.store(true, std::memory_order_release);
    Report(REPORT_VERBOSE, "Subnet configured for %s is %savailable", name.get(), unavailable ? "not " : "");
}

int SubnetChecks::StartNetwork(const char *name, const HBL_VnetFeatures &features) {
    int result = 0;
    if (features.config.bridge == 1) {
        if (HBL_StartService(name, HBL_SERVICE_BRIDGE)) {
            Report(REPORT_NORMAL, "Started Bridge networking on %s", name);
        } else {
            Report(REPORT_ERROR, "Failed to start Bridged networking on %s", name);
            result = 1;
        }
    }
    if (NeedsSubnet(features) && !BeginCheck(name, features)) {
        result = 1;
    }
    return result;
}

bool SubnetChecks::BeginCheck(const char *name, const HBL_VnetFeatures &features) {
    if (records_ == nullptr) {
        records_ = std::make_unique<SubnetProbeRecord[]>(HBL_GetNumVnets());
    }
    Report(REPORT_VERBOSE, "Creating thread #: %u to ping subnet on %s", count_, name);
    SubnetProbeRecord *record = &records_[count_];
    record->finished.store(false, std::memory_order_relaxed);
    record->processed = false;
    record->vnet = static_cast<uint32_t>(features.net.vnet);
    if (UsesItsSubnet(features)) {
        record->features = CopyFeatures(features);
        record->unavailable = false;
        record->finished.store(true, std::memory_order_relaxed);
        record->thread = VTHREAD_INVALID_ID;
    } else {
        char threadName[THREAD_NAME_SIZE];
        Str_Sprintf(threadName, sizeof threadName, "ThreadForZelan%d", features.net.vnet);
        record->thread = VThread_CreateThread(PingSubnetThread, record, VTHREAD_INVALID_ID, threadName);
        if (record->thread == VTHREAD_INVALID_ID) {
            Report(REPORT_ERROR, "Failed to start some services on %s", name);
            return false;
        }
        record->features = CopyFeatures(features);
    }
    count_++;
    return true;
}

int SubnetChecks::StartAsVerdictsComeIn() {
    int result = 0;
    bool pending = count_ != 0;
    while (pending) {
        usleep(POLL_MICROSECONDS);
        pending = false;
        for (unsigned slot = 0; slot < count_; slot++) {
            SubnetProbeRecord *record = &records_[slot];
            const MallocString name = NetworkName(record->vnet);
            if (!record->finished.load(std::memory_order_acquire)) {
                pending = true;
            } else if (!record->processed) {
                result |= ProcessRecord(record, slot, name.get());
            }
        }
    }
    records_.reset();
    count_ = 0;
    return result;
}
