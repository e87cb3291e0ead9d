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
bool CheckArgument(const char *function, const HBL_VnetFeatures *ft, const char *what) {
    if (ft == nullptr) {
        HBLLog(LOG_ERR, function, "Invalid argument - ft: %p", static_cast<const void *>(ft));
        return false;
    }
    if (ft->version != 1) {
        HBLLog(LOG_ERR, function, "Unsupported feature struct version: %u", ft->version);
        return false;
    }
    if (ft->net.type != HBL_NETWORK_TYPE_VNET) {
        HBLLog(LOG_ERR, function, "Query unsupported for non-vnets");
        return false;
    }
    if (static_cast<uint32_t>(ft->net.vnet) >= HBL_NUM_VNETS) {
        HBLLog(LOG_ERR, function, "Invalid %s: %d", what, ft->net.vnet);
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

bool ReadAdapterIsUp(const char *function, uint32_t vnet, uint8_t *isUp) {
    char name[HBL_ADAPTER_NAME_SIZE];
    if (!HBLGetVnetVirtAdapterName(vnet, name, sizeof name)) {
        HBLLog(LOG_ERR, function, "Getting virtual adapter name failed");
        return false;
    }
    const uint32_t status = HBLAdapterStatus(name);
    if (status == HBL_ADAPTER_STATUS_ERROR) {
        HBLLog(LOG_ERR, function, "Error getting status for virtual adapter: %s", name);
        return false;
    }
    *isUp = status == HBL_ADAPTER_STATUS_UP;
    return true;
}

// What was filled before a failure stays filled.
bool ReadRunning(const char *function, uint32_t vnet, HBL_FeatureGroup *runtime) {
    *runtime = {};
    for (const Feature &feature : FEATURES) {
        if (feature.service == HBL_SVC_NONE) {
            if (!ReadAdapterIsUp(function, vnet, &(runtime->*feature.byte))) {
                return false;
            }
        } else {
            runtime->*feature.byte = HBLServiceStatus(vnet, feature.service) == HBL_SERVICE_STATUS_RUNNING;
        }
    }
    return true;
}

bool ByteMatches(const char *function, uint8_t query, uint8_t real, const char *mismatch) {
    if (query == HBL_FEATURE_ANY || query == (real != 0 ? HBL_FEATURE_YES : HBL_FEATURE_NO)) {
        return true;
    }
    HBLLog(LOG_INFO2, function, "%s", mismatch);
    return false;
}

bool GroupMatches(const char *function, const HBL_FeatureGroup &query, const HBL_FeatureGroup &real,
                  const char *Feature::*mismatch) {
    for (const Feature &feature : FEATURES) {
        if (!ByteMatches(function, query.*feature.byte, real.*feature.byte, feature.*mismatch)) {
            return false;
        }
    }
    return true;
}

bool ConfigMatches(const char *function, const HBL_VnetFeatures &query, const HBL_VnetFeatures &real) {
    return ByteMatches(function, query.subnet, real.subnet, "Subnet config-time feature does not match") &&
           GroupMatches(function, query.config, real.config, &Feature::configMismatch);
}

// Whether the network matches; services and interface are asked only when the configuration does. *failed is
// set when they could not be asked.
bool VnetMatches(const char *function, uint32_t vnet, const HBL_VnetFeatures &query, HBL_VnetFeatures *real,
                 bool *failed) {
    HBLLog(LOG_INFO2, function, "Looking at vnet: %u to see if it matches", vnet);
    ReadConfigured(vnet, real);
    if (!ConfigMatches(function, query, *real)) {
        return false;
    }
    *failed = !ReadRunning(function, vnet, &real->runtime);
    return !*failed && GroupMatches(function, query.runtime, real->runtime, &Feature::runtimeMismatch);
}

void HandOutMatch(const char *function, const HBL_VnetFeatures &real, uint32_t vnet, HBL_VnetFeatures *ft) {
    ft->version = 1;
    ft->net.version = 1;
    ft->net.type = HBL_NETWORK_TYPE_VNET;
    ft->net.vnet = static_cast<int32_t>(vnet);
    ft->subnet = real.subnet;
    ft->config = real.config;
    ft->runtime = real.runtime;
    HBLLog(LOG_INFO, function, "Found matching vnet: %d", ft->net.vnet);
    HBLLog(LOG_OK, function, "Returning matching vnet: %d", ft->net.vnet);
}

bool ReadFeatures(const char *function, HBL_VnetFeatures *ft) {
    if (!CheckArgument(function, ft, "vnet number")) {
        return false;
    }
    const auto vnet = static_cast<uint32_t>(ft->net.vnet);
    ReadConfigured(vnet, ft);
    return ReadRunning(function, vnet, &ft->runtime);
}

}  // namespace

bool HBL_GetVnetFeatures(HBL_VnetFeatures *ft) {
    const ApiFrame frame(__func__);
    if (!frame.Passed()) {
        return false;
    }
    HBLLog(LOG_ARGS, __func__, "Arguments - ft: %p", static_cast<void *>(ft));
    if (!ReadFeatures(__func__, ft)) {
        HBLLog(LOG_ERR, __func__, "Failed to return vnet features");
        return false;
    }
    HBLLog(LOG_OK, __func__, "Returning features of vnet");
    return true;
}

bool HBL_FindVnetWithFeatures(HBL_VnetFeatures *ft) {
    const ApiFrame frame(__func__);
    if (!frame.Passed()) {
        return false;
    }
    HBLLog(LOG_ARGS, __func__, "Arguments - ft: %p", static_cast<void *>(ft));
    if (!CheckArgument(__func__, ft, "index of starting vnet")) {
        return false;
    }
    HBL_VnetFeatures real{};
    for (auto vnet = static_cast<uint32_t>(ft->net.vnet); vnet < HBL_NUM_VNETS; vnet++) {
        bool failed = false;
        if (VnetMatches(__func__, vnet, *ft, &real, &failed)) {
            HandOutMatch(__func__, real, vnet, ft);
            return true;
        }
        if (failed) {
            return false;
        }
    }
    HBLLog(LOG_ERR, __func__, "Could not find any matching vnet");
    return false;
}
