// The exported structures keep their layout from release to release; a change breaks the build here.
#include <cstddef>

#include "lib/harbrel/harbrel.h"

static_assert(sizeof(HBL_NetworkID) == 28 && offsetof(HBL_NetworkID, vnet) == 8);
static_assert(sizeof(HBL_FeatureGroup) == 32 && offsetof(HBL_FeatureGroup, hostOnlyAdapter) == 3);
static_assert(offsetof(HBL_VnetFeatures, net) == 4 && offsetof(HBL_VnetFeatures, subnet) == 32 &&
              offsetof(HBL_VnetFeatures, config) == 33 && offsetof(HBL_VnetFeatures, runtime) == 65);
static_assert(offsetof(HBL_HostAdapter, next) == 4 && offsetof(HBL_HostAdapter, net) == 4 + sizeof(void *) &&
              offsetof(HBL_HostAdapter, status) == 32 + sizeof(void *) &&
              offsetof(HBL_HostAdapter, displayName) == 36 + sizeof(void *) &&
              offsetof(HBL_HostAdapter, driverName) == 164 + sizeof(void *) &&
              offsetof(HBL_HostAdapter, deviceName) == 292 + sizeof(void *) &&
              sizeof(HBL_HostAdapter) == 420 + sizeof(void *));
static_assert(offsetof(HBL_HostAdapterList, count) == 4 && offsetof(HBL_HostAdapterList, first) == 8);
