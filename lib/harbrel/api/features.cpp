// What a network is configured to do and what runs on it, and the search for a network by both.
#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/base/services.h"
#include "lib/harbrel/frame/apiFrame.h"
#include "lib/harbrel/harbrel.h"
#include "lib/harbrel/networks/settings.h"
#include "lib/harbrel/services/daemons.h"
#include "lib/harbrel/virtualadapter/virtualAdapter.h"

namespace {

struct Feature {
    uint8_t HBL_FeatureGroup::*byte;
    uint32_t option;
    uint32_t service;  // HBL_SVC_NONE: what runs is the host's interface, which has no daemon to ask
    const char *configMismatch;
    const char *runtimeMismatch;
};

// In the order in which features are worked out and compared.
constexpr Feature FEATURES[] = {
    {&HBL_FeatureGroup::bridge, HBL_OPTION_BRIDGE, HBL_SVC_BRIDGE,
     "Bridge config-time feature does not match", "Bridge runtime feature does not match"},
    {&HBL_FeatureGroup::dhcp, HBL_OPTION_DHCP, HBL_SVC_DHCP, "DHCP config-time feature does not match",
     "DHCP runtime feature does not match"},
    {&HBL_FeatureGroup::nat, HBL_OPTION_NAT, HBL_SVC_NAT, "NAT config-time feature does not match",
     "NAT runtime feature does not match"},
    {&HBL_FeatureGroup::hostOnlyAdapter, HBL_OPTION_VIRTUAL_ADAPTER, HBL_SVC_NONE,
     "Host only adapter config-time feature does not match",
     "Host only adapter runtime feature does not match"},
};

// `what` is the word for a bad number.
bool CheckArgument(FunctionLog log, const HBL_VnetFeatures *ft, const char *what) {
    if (ft == nullptr) {
        log(LOG_ERR, "Invalid argument - ft: %p", Address(ft));
        return false;
    }
    if (ft->version != 1) {
        log(LOG_ERR, "Unsupported feature struct version: %u", ft->version);
        return false;
    }
    if (ft->net.type != HBL_NETWORK_TYPE_VNET) {
        log(LOG_ERR, "Query unsupported for non-vnets");
        return false;
    }
    if (static_cast<uint32_t>(ft->net.vnet) >= HBL_NUM_VNETS) {
        log(LOG_ERR, "Invalid %s: %d", what, ft->net.vnet);
        return false;
    }
    return true;
}

void ReadConfigured(uint32_t vnet, HBL_VnetFeatures *ft) {
    ft->config = {};
    ft->subnet = HBLVnetIsOptionConfigured(vnet, HBL_OPTION_SUBNET);
    for (const Feature &feature : FEATURES) {
        ft->config.*feature.byte = HBLVnetIsOptionConfigured(vnet, feature.option);
    }
}

bool ReadAdapterIsUp(FunctionLog log, uint32_t vnet, uint8_t *isUp) {
    char name[HBL_ADAPTER_NAME_SIZE];
    if (!HBLGetVnetVirtAdapterName(vnet, name, sizeof name)) {
        log(LOG_ERR, "Getting virtual adapter name failed");
        return false;
    }
    const uint32_t status = HBLAdapterStatus(name);
    if (status == HBL_ADAPTER_STATUS_ERROR) {
        log(LOG_ERR, "Error getting status for virtual adapter: %s", name);
        return false;
    }
    *isUp = status == HBL_ADAPTER_STATUS_UP;
    return true;
}

// What was filled before a failure stays filled.
bool ReadRunning(FunctionLog log, uint32_t vnet, HBL_FeatureGroup *runtime) {
    *runtime = {};
    for (const Feature &feature : FEATURES) {
        if (feature.service == HBL_SVC_NONE) {
            if (!ReadAdapterIsUp(log, vnet, &(runtime->*feature.byte))) {
                return false;
            }
        } else {
            runtime->*feature.byte = HBLServiceStatus(vnet, feature.service) == HBL_SERVICE_STATUS_RUNNING;
        }
    }
    return true;
}

bool ByteMatches(FunctionLog log, uint8_t query, uint8_t real, const char *mismatch) {
    if (query == HBL_FEATURE_ANY || query == (real != 0 ? HBL_FEATURE_YES : HBL_FEATURE_NO)) {
        return true;
    }
    log(LOG_INFO2, "%s", mismatch);
    return false;
}

bool GroupMatches(FunctionLog log, const HBL_FeatureGroup &query, const HBL_FeatureGroup &real,
                  const char *Feature::*mismatch) {
    for (const Feature &feature : FEATURES) {
        if (!ByteMatches(log, query.*feature.byte, real.*feature.byte, feature.*mismatch)) {
            return false;
        }
    }
    return true;
}

bool ConfigMatches(FunctionLog log, const HBL_VnetFeatures &query, const HBL_VnetFeatures &real) {
    return ByteMatches(log, query.subnet, real.subnet, "Subnet config-time feature does not match") &&
           GroupMatches(log, query.config, real.config, &Feature::configMismatch);
}

enum class Match { Yes, No, Unknown };

// Services and interface are asked only when the configuration matches; Unknown when they could not be.
Match CompareVnet(FunctionLog log, uint32_t vnet, const HBL_VnetFeatures &query, HBL_VnetFeatures *real) {
    log(LOG_INFO2, "Looking at vnet: %u to see if it matches", vnet);
    ReadConfigured(vnet, real);
    if (!ConfigMatches(log, query, *real)) {
        return Match::No;
    }
    if (!ReadRunning(log, vnet, &real->runtime)) {
        return Match::Unknown;
    }
    return GroupMatches(log, query.runtime, real->runtime, &Feature::runtimeMismatch) ? Match::Yes
                                                                                      : Match::No;
}

void HandOutMatch(FunctionLog log, const HBL_VnetFeatures &real, uint32_t vnet, HBL_VnetFeatures *ft) {
    ft->version = 1;
    ft->net.version = 1;
    ft->net.type = HBL_NETWORK_TYPE_VNET;
    ft->net.vnet = static_cast<int32_t>(vnet);
    ft->subnet = real.subnet;
    ft->config = real.config;
    ft->runtime = real.runtime;
    log(LOG_INFO, "Found matching vnet: %d", ft->net.vnet);
    log(LOG_OK, "Returning matching vnet: %d", ft->net.vnet);
}

bool ReadFeatures(FunctionLog log, HBL_VnetFeatures *ft) {
    if (!CheckArgument(log, ft, "vnet number")) {
        return false;
    }
    const auto vnet = static_cast<uint32_t>(ft->net.vnet);
    ReadConfigured(vnet, ft);
    return ReadRunning(log, vnet, &ft->runtime);
}

}  // namespace

bool HBL_GetVnetFeatures(HBL_VnetFeatures *ft) {
    const ApiFrame frame(__func__);
    if (!frame.Passed()) {
        return false;
    }
    frame.log(LOG_ARGS, "Arguments - ft: %p", Address(ft));
    if (!ReadFeatures(frame.log, ft)) {
        frame.log(LOG_ERR, "Failed to return vnet features");
        return false;
    }
    frame.log(LOG_OK, "Returning features of vnet");
    return true;
}

bool HBL_FindVnetWithFeatures(HBL_VnetFeatures *ft) {
    const ApiFrame frame(__func__);
    if (!frame.Passed()) {
        return false;
    }
    frame.log(LOG_ARGS, "Arguments - ft: %p", Address(ft));
    if (!CheckArgument(frame.log, ft, "index of starting vnet")) {
        return false;
    }
    HBL_VnetFeatures real{};
    for (auto vnet = static_cast<uint32_t>(ft->net.vnet); vnet < HBL_NUM_VNETS; vnet++) {
        switch (CompareVnet(frame.log, vnet, *ft, &real)) {
            case Match::Yes:
                HandOutMatch(frame.log, real, vnet, ft);
                return true;
            case Match::Unknown:
                return false;
            case Match::No:
                break;
        }
    }
    frame.log(LOG_ERR, "Could not find any matching vnet");
    return false;
}
