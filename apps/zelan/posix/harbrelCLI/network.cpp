#include "apps/zelan/posix/harbrelCLI/network.h"

#include "lib/fatal/panic.h"
#include "lib/string/str.h"

MallocString NetworkName(uint32_t vnet) {
    MallocString name(Str_Asprintf(nullptr, "zelan%u", vnet));
    if (name == nullptr) {
        Panic("Unrecoverable memory allocation failure\n");
    }
    return name;
}

HBL_VnetFeatures FeatureQuery(uint32_t vnet) {
    HBL_VnetFeatures features = {};
    features.version = 1;
    features.net.type = HBL_NETWORK_TYPE_VNET;
    features.net.vnet = static_cast<int32_t>(vnet);
    return features;
}
