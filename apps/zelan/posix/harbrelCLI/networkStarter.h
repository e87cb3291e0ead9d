// Starting networks, each only once its subnet has proved to be still free: one thread per network that needs
// a check, while the main thread goes on, and a poll that starts each network as its own verdict comes in.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "lib/harbrel/harbrel.h"
#include "lib/thread/vthread.h"

// One network that needs work after its check. The thread writes `unavailable`, then publishes `finished`;
// everything else belongs to the main thread.
struct SubnetProbeRecord {
    std::atomic<bool> finished;
    bool unavailable;
    bool processed;
    uint32_t vnet;
    VThreadID thread;           // -1 if no check is needed
    HBL_VnetFeatures features;  // as they were before any start
};

class NetworkStarter {
  public:
    NetworkStarter() = default;
    // Waits for the threads whose verdicts were not asked for.
    ~NetworkStarter();
    NetworkStarter(const NetworkStarter &) = delete;
    NetworkStarter &operator=(const NetworkStarter &) = delete;

    // Starts the bridge at once and begins the check that the rest needs. False if something failed.
    bool Begin(const char *name, const HBL_VnetFeatures &features);
    // Polls until every network begun has its verdict, starting each as it comes in.
    bool FinishAsVerdictsComeIn();

  private:
    bool BeginCheck(const char *name, const HBL_VnetFeatures &features);

    std::unique_ptr<SubnetProbeRecord[]> records_;
    unsigned count_ = 0;
};

// The body of a subnet thread; takes a SubnetProbeRecord.
void PingSubnetThread(void *record);
