#include "lib/harbrel/services/programs.h"

#include "lib/harbrel/base/services.h"
#include "lib/harbrel/cache/cache.h"
#include "lib/harbrel/services/arguments.h"

namespace {

constexpr ServiceProgram PROGRAMS[] = {
    {HBL_SVC_BRIDGE, "zelan-bridge", "BRIDGE_PROGRAM", PidFileForm::WithNumber, HBLBridgeArguments},
    {HBL_SVC_NETIFUP, "zelan-netifup", "NETIFUP_PROGRAM", PidFileForm::WithName, HBLNetifupArguments},
    {HBL_SVC_DHCP, "zelan-dhcpd", "DHCP_PROGRAM", PidFileForm::WithName, HBLDHCPArguments},
    {HBL_SVC_NAT, "zelan-natd", "NAT_PROGRAM", PidFileForm::WithNumber, HBLNATArguments},
    {HBL_SVC_NETDETECT, "zelan-detect", "NETDETECT_PROGRAM", PidFileForm::ForTheHost, HBLNetdetectArguments},
};

}  // namespace

const ServiceProgram *HBLFindServiceProgram(uint32_t service) {
    for (const ServiceProgram &row : PROGRAMS) {
        if (row.service == service) {
            return &row;
        }
    }
    return nullptr;
}

std::string HBLAnswerOr(const char *key, const char *fallback) {
    return HBLNetCfgCopyAnswer(nullptr, key).value_or(fallback);
}

std::string HBLRunDir() {
    return HBLAnswerOr("RUNDIR", "/var/run");
}
