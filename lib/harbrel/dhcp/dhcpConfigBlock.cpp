#include "lib/harbrel/dhcp/dhcpConfigBlock.h"

#include <cerrno>
#include <cstring>
#include <ctime>

#include "lib/err/errText.h"
#include "lib/harbrel/addresses/addresses.h"
#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/cache/cache.h"
#include "lib/harbrel/dhcp/dhcpConfigText.h"
#include "lib/harbrel/dhcp/dhcpParameters.h"
#include "lib/harbrel/networks/settings.h"

namespace {

struct SubnetValues {
    char subnet[HBL_IP_STR_SIZE];
    char mask[HBL_IP_STR_SIZE];
    char leaseBegin[HBL_IP_STR_SIZE];
    char leaseEnd[HBL_IP_STR_SIZE];
    char broadcast[HBL_IP_STR_SIZE];
    char dns[HBL_IP_STR_SIZE];
    char domainName[HBL_DHCP_DOMAIN_NAME_SIZE];
    char defaultLease[HBL_DHCP_DURATION_SIZE];
    char maxLease[HBL_DHCP_DURATION_SIZE];
    char routers[HBL_IP_STR_SIZE];
    bool hasRouters;
};

// Reads a parameter, or its default, and says which one could not be had.
bool ReadParameter(const char *function, uint32_t vnet, uint32_t id, const char *name, char *buffer,
                   size_t size) {
    if (!HBLDHCPGetParameter(vnet, id, true, buffer, size)) {
        HBLLog(LOG_ERR, function, "Getting %s failed", name);
        return false;
    }
    return true;
}

bool LogWriteFailure(const char *function, const char *format) {
    HBLLog(LOG_ERR, function, format, Err_LastErrnoText());
    return false;
}

bool ReadSubnetValues(const char *function, uint32_t vnet, SubnetValues *values) {
    if (!HBLGetVnetSubnetAddr(vnet, values->subnet, sizeof values->subnet)) {
        HBLLog(LOG_ERR, function, "Getting Subnet address failed");
        return false;
    }
    if (!HBLGetVnetSubnetMask(vnet, values->mask, sizeof values->mask)) {
        HBLLog(LOG_ERR, function, "Getting Subnet mask failed");
        return false;
    }
    const struct {
        uint32_t id;
        const char *name;
        char *buffer;
        size_t size;
    } reads[] = {
        {HBL_DHCP_PARAM_LEASE_BEGIN_IP, "HBL_DHCP_PARAM_LEASE_BEGIN_IP", values->leaseBegin, HBL_IP_STR_SIZE},
        {HBL_DHCP_PARAM_LEASE_END_IP, "HBL_DHCP_PARAM_LEASE_END_IP", values->leaseEnd, HBL_IP_STR_SIZE},
        {HBL_DHCP_PARAM_BROADCAST_ADDR, "HBL_DHCP_PARAM_BROADCAST_ADDR", values->broadcast, HBL_IP_STR_SIZE},
        {HBL_DHCP_PARAM_DNS_ADDR, "HBL_DHCP_PARAM_DNS_ADDR", values->dns, HBL_IP_STR_SIZE},
        {HBL_DHCP_PARAM_DOMAIN_NAME, "HBL_DHCP_PARAM_DOMAIN_NAME", values->domainName,
         HBL_DHCP_DOMAIN_NAME_SIZE},
        {HBL_DHCP_PARAM_SUB_DEFAULT_LEASE_DURATION_SEC, "HBL_DHCP_PARAM_SUB_DEFAULT_LEASE_DURATION_SEC",
         values->defaultLease, HBL_DHCP_DURATION_SIZE},
        {HBL_DHCP_PARAM_SUB_MAX_LEASE_DURATION_SEC, "HBL_DHCP_PARAM_SUB_MAX_LEASE_DURATION_SEC",
         values->maxLease, HBL_DHCP_DURATION_SIZE},
    };
    for (const auto &read : reads) {
        if (!ReadParameter(function, vnet, read.id, read.name, read.buffer, read.size)) {
            return false;
        }
    }
    return true;
}

bool WriteStart(const char *function, FILE *stream, long *start) {
    const time_t now = time(nullptr);
    struct tm local;
    char date[32];
    localtime_r(&now, &local);
    strftime(date, sizeof date, DHCP_DATE_FORMAT, &local);
    *start = ftell(stream);
    if (*start < 0 || fputs(DHCP_BLOCK_START, stream) < 0 || fputs(DHCP_BLOCK_INSTRUCTIONS, stream) < 0 ||
        fprintf(stream, DHCP_DATE_LINE, date) < 0) {
        return LogWriteFailure(function, "fseek/fprintf: failed, error: %s");
    }
    return true;
}

bool WriteGlobals(const char *function, FILE *stream, uint32_t vnet) {
    char defaultLease[HBL_DHCP_DURATION_SIZE];
    char maxLease[HBL_DHCP_DURATION_SIZE];
    if (!ReadParameter(function, vnet, HBL_DHCP_PARAM_DEFAULT_LEASE_DURATION_SEC,
                       "HBL_DHCP_PARAM_DEFAULT_LEASE_DURATION_SEC", defaultLease, sizeof defaultLease) ||
        !ReadParameter(function, vnet, HBL_DHCP_PARAM_MAX_LEASE_DURATION_SEC,
                       "HBL_DHCP_PARAM_MAX_LEASE_DURATION_SEC", maxLease, sizeof maxLease)) {
        return false;
    }
    if (fprintf(stream, DHCP_GLOBAL_LINES, defaultLease, maxLease) < 0) {
        return LogWriteFailure(function, "fprintf: failed while writing DHCP Global Parameters, error: %s");
    }
    HBLLog(LOG_INFO2, function, "Finished writing global values, writing subnet values now");
    return true;
}

bool WriteSubnet(const char *function, FILE *stream, uint32_t vnet, SubnetValues *values) {
    if (!ReadSubnetValues(function, vnet, values)) {
        return false;
    }
    if (fprintf(stream, DHCP_SUBNET_LINES, values->subnet, values->mask, values->leaseBegin, values->leaseEnd,
                values->broadcast, values->dns, values->domainName, values->defaultLease,
                values->maxLease) < 0) {
        return LogWriteFailure(function, "fprintf: failed while writing DHCP Subnet Config, error: %s");
    }
    values->hasRouters = HBLVnetUsesNAT(vnet);
    if (values->hasRouters) {
        if (!ReadParameter(function, vnet, HBL_DHCP_PARAM_ROUTERS, "HBL_DHCP_PARAM_ROUTERS", values->routers,
                           sizeof values->routers)) {
            return false;
        }
        if (fprintf(stream, DHCP_ROUTERS_LINE, values->routers) < 0) {
            return LogWriteFailure(function,
                                   "fprintf: failed while writing DHCP Subnet Config Option, error: %s");
        }
    }
    if (fputs(DHCP_CLOSING_LINE, stream) < 0) {
        return LogWriteFailure(function, "fprintf: failed while writing end Param, error: %s");
    }
    HBLLog(LOG_INFO2, function, "Finished writing DHCP subnet values");
    return true;
}

bool WriteHosts(const char *function, FILE *stream, uint32_t vnet, const SubnetValues &values) {
    uint32_t offset = 0;
    char mac[HBL_MAC_STR_SIZE];
    char ip[HBL_IP_STR_SIZE];
    while (HBLNetCfgEnumDHCPMACToIP(nullptr, vnet, &offset, mac, sizeof mac, ip, sizeof ip)) {
        if (fprintf(stream, DHCP_HOST_LINES, ip, mac, ip, values.dns, values.domainName) < 0) {
            return LogWriteFailure(function, "fprintf: failed while writing DHCP MAC/IP mapping, error: %s");
        }
        if (values.hasRouters && fprintf(stream, DHCP_ROUTERS_LINE, values.routers) < 0) {
            return LogWriteFailure(function,
                                   "fprintf: failed while writing DHCP MAC/IP mapping option, error: %s");
        }
        if (fputs(DHCP_CLOSING_LINE, stream) < 0) {
            return LogWriteFailure(function, "fprintf: failed while writing DHCP MAC/IP mapping, error: %s");
        }
    }
    return true;
}

bool WriteEnd(const char *function, FILE *stream) {
    const int length = static_cast<int>(sizeof DHCP_BLOCK_END - 1);
    if (fprintf(stream, "%s", DHCP_BLOCK_END) != length) {
        return LogWriteFailure(function, "fprintf: failed while writing DHCP readonly end marker, error: %s");
    }
    return true;
}

}  // namespace

bool HBLDHCPWriteBlock(const char *function, FILE *stream, uint32_t vnet, long *start) {
    SubnetValues values = {};
    return WriteStart(function, stream, start) && WriteGlobals(function, stream, vnet) &&
           WriteSubnet(function, stream, vnet, &values) && WriteHosts(function, stream, vnet, values) &&
           WriteEnd(function, stream);
}
