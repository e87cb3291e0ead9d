// Turning a feature of a network that needs an address range on and off: one engine for DHCP, NAT and the
// host-only adapter, whose differences are words.
#pragma once

#include <cstdint>

#include "lib/harbrel/base/hblLog.h"

// A line about a network: what stands before its name, and what behind it.
struct NetworkLine {
    const char *text;
    const char *behindName = nullptr;  // null: the line does not name the network
};

struct FeatureSwitch {
    uint32_t option;  // the HBLOption that tells the present status
    bool (*set)(uint32_t vnet, bool use, bool cleanup);
    const char *same;
    NetworkLine cleanedUp;
    NetworkLine cleanupFailed;
    void (*logChanging)(FunctionLog log, bool used, bool use);
    NetworkLine assigning;
    NetworkLine assignFailed;
    NetworkLine assigned;
    uint32_t assignedLevel;
    NetworkLine turnedOn;
    NetworkLine turnOnFailed;
    NetworkLine takingBack = {
        nullptr};  // before a subnet assigned here is taken back; without one nothing is said
    NetworkLine turnedOff;
    NetworkLine turnOffFailed;
};

// An exported setter behind its argument line. Takes the database lock, assigns a probed subnet when the
// feature is turned on without one, and gives that subnet back if a later step fails. A subnet that the
// network had before is never removed.
bool HBLApiSwitchFeature(FunctionLog log, const FeatureSwitch &feature, const char *vnet, bool use,
                         bool cleanup);
