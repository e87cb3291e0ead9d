#include "apps/zelan/posix/harbrelCLI/networkStarter.h"

#include <unistd.h>

#include "apps/zelan/posix/harbrelCLI/network.h"
#include "apps/zelan/posix/harbrelCLI/networkServices.h"
#include "apps/zelan/posix/harbrelCLI/report.h"
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

// Everything that is configured, past any failure.
bool StartOnFreeSubnet(const char *name, const HBL_VnetFeatures &features) {
    bool allStarted = true;
    if (features.config.dhcp == 1) {
        allStarted &= StartNetworkService(name, DHCP_SERVICE);
    }
    if (features.config.nat == 1) {
        allStarted &= StartNetworkService(name, NAT_SERVICE);
    }
    if (features.config.hostOnlyAdapter == 1) {
        allStarted &= StartNetworkAdapter(name);
    }
    if (features.subnet == 1 && !HBL_CreateZelanDevice(name)) {
        Report(REPORT_ERROR, "Failed to create device for %s", name);
        allStarted = false;
    }
    return allStarted;
}

bool ProcessRecord(SubnetProbeRecord *record, unsigned slot, const char *name) {
    bool started = false;
    Report(REPORT_VERBOSE, "Checking if services on %s can be started, thread #%u", name, slot);
    if (record->unavailable) {
        Report(REPORT_ERROR,
               "Subnet on %s is no longer available for usage, please run the network editor to reconfigure "
               "different subnet",
               name);
    } else {
        started = StartOnFreeSubnet(name, record->features);
    }
    record->processed = true;
    if (record->thread != VTHREAD_INVALID_ID) {
        VThread_WaitThread(record->thread);
    }
    Report(REPORT_VERBOSE, "Finished processing thread #%u on %s", slot, name);
    return started;
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

NetworkStarter::~NetworkStarter() {
    for (unsigned slot = 0; slot < count_; slot++) {
        const SubnetProbeRecord &record = records_[slot];
        if (!record.processed && record.thread != VTHREAD_INVALID_ID) {
            VThread_WaitThread(record.thread);
        }
    }
}

bool NetworkStarter::Begin(const char *name, const HBL_VnetFeatures &features) {
    const bool bridged = features.config.bridge != 1 || StartNetworkService(name, BRIDGE_SERVICE);
    const bool begun = !NeedsSubnet(features) || BeginCheck(name, features);
    return bridged && begun;
}

bool NetworkStarter::BeginCheck(const char *name, const HBL_VnetFeatures &features) {
    if (records_ == nullptr) {
        records_ = std::make_unique<SubnetProbeRecord[]>(HBL_GetNumVnets());
    }
    Report(REPORT_VERBOSE, "Creating thread #: %u to ping subnet on %s", count_, name);
    SubnetProbeRecord *record = &records_[count_];
    record->processed = false;
    record->unavailable = false;
    record->vnet = static_cast<uint32_t>(features.net.vnet);
    record->thread = VTHREAD_INVALID_ID;
    record->features = features;
    const bool known = UsesItsSubnet(features);
    record->finished.store(known, std::memory_order_relaxed);
    if (!known) {
        char threadName[THREAD_NAME_SIZE];
        Str_Sprintf(threadName, sizeof threadName, "ThreadForZelan%d", features.net.vnet);
        record->thread = VThread_CreateThread(PingSubnetThread, record, VTHREAD_INVALID_ID, threadName);
        if (record->thread == VTHREAD_INVALID_ID) {
            Report(REPORT_ERROR, "Failed to start some services on %s", name);
            return false;
        }
    }
    count_++;
    return true;
}

bool NetworkStarter::FinishAsVerdictsComeIn() {
    bool allStarted = true;
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
                allStarted &= ProcessRecord(record, slot, name.get());
            }
        }
    }
    return allStarted;
}
