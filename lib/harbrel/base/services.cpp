#include "lib/harbrel/base/services.h"

#include "lib/harbrel/harbrel.h"

namespace {

struct ServiceRow {
    uint32_t type;
    uint32_t id;
    const char *displayName;
};

constexpr ServiceRow SERVICES[] = {
    {HBL_SERVICE_BRIDGE, HBL_SVC_BRIDGE, "Bridge"},
    {HBL_SERVICE_DHCP, HBL_SVC_DHCP, "DHCP"},
    {HBL_SERVICE_NAT, HBL_SVC_NAT, "NAT"},
    {HBL_SERVICE_NETIFUP, HBL_SVC_NETIFUP, "Netifup"},
    {HBL_SERVICE_NETDETECT, HBL_SVC_NETDETECT, "Netdetect"},
};

}  // namespace

uint32_t HBLMapServiceType(uint32_t serviceType) {
    for (const ServiceRow &row : SERVICES) {
        if (row.type == serviceType) {
            return row.id;
        }
    }
    return HBL_SVC_NONE;
}

const char *HBLServiceName(uint32_t service) {
    for (const ServiceRow &row : SERVICES) {
        if (row.id == service) {
            return row.displayName;
        }
    }
    return "";
}
