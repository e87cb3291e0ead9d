// Turning a feature of a network that needs an address range on and off: one engine for DHCP, NAT and the
// host-only adapter, whose differences are words.
#pragma once

#include <cstdint>

#include "lib/harbrel/base/hblLog.h"

// Formats that name a network take it as their one argument; `changing` takes the present and the requested
// status.
struct FeatureSwitch {
    const char *function;   // the exported function, as it stands in the log
    const char *arguments;  // takes the name's address and text, the requested status and `cleanup`
    uint32_t option;        // the HBLOption that tells the present status
    bool (*set)(uint32_t vnet, bool use, bool cleanup);
    const char *same;
    const char *cleanedUp;
    const char *cleanupFailed;
    const char *changing;
    const char *assigning;
    const char *assignFailed;
    const char *assigned;
    uint32_t assignedLevel;
    const char *turnedOn;
    const char *turnOnFailed;
    const char *takingBack;  // before a subnet assigned here is taken back; null when nothing is said
    const char *turnedOff;
    const char *turnOffFailed;
};

// The whole exported setter. Takes the database lock, assigns a probed subnet when the feature is turned on
// without one, and gives that subnet back if a later step fails. A subnet that the network had before is
// never removed.
bool HBLApiSwitchFeature(const FeatureSwitch &feature, const char *vnet, bool use, bool cleanup);
