#include "lib/harbrel/dhcp/dhcpConfigBlock.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <utility>

#include "lib/harbrel/addresses/addresses.h"
#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/cache/cache.h"
#include "lib/harbrel/dhcp/dhcpConfigText.h"
#include "lib/harbrel/dhcp/dhcpParameters.h"
#include "lib/harbrel/networks/settings.h"
#include "lib/harbrel/parameters/generatedFile.h"
#include "lib/misc/digest.h"
#include "lib/misc/owners.h"

namespace {

constexpr size_t LINE_SIZE = 256;
constexpr size_t SECONDS_SIZE = 10;
constexpr size_t HASH_TEXT_SIZE = 256;

struct SubnetValues {
    char subnet[HBL_IP_STR_SIZE];
    char mask[HBL_IP_STR_SIZE];
    char leaseBegin[HBL_IP_STR_SIZE];
    char leaseEnd[HBL_IP_STR_SIZE];
    char broadcast[HBL_IP_STR_SIZE];
    char dns[HBL_IP_STR_SIZE];
    char domainName[HBL_DHCP_DOMAIN_NAME_SIZE];
    char defaultLease[SECONDS_SIZE];
    char maxLease[SECONDS_SIZE];
    char routers[HBL_IP_STR_SIZE];
    bool hasRouters;
};

// Reads a parameter, or its default, and says which one could not be had.
bool ReadParameter(FunctionLog log, uint32_t vnet, uint32_t id, const char *name, char *buffer, size_t size) {
    if (!HBLDHCPGetParameter(vnet, id, true, buffer, size)) {
        log(LOG_ERR, "Getting %s failed", name);
        return false;
    }
    return true;
}

bool ReadSubnetValues(FunctionLog log, uint32_t vnet, SubnetValues *values) {
    if (!HBLGetVnetSubnetAddr(vnet, values->subnet, sizeof values->subnet)) {
        log(LOG_ERR, "Getting Subnet address failed");
        return false;
    }
    if (!HBLGetVnetSubnetMask(vnet, values->mask, sizeof values->mask)) {
        log(LOG_ERR, "Getting Subnet mask failed");
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
         values->defaultLease, SECONDS_SIZE},
        {HBL_DHCP_PARAM_SUB_MAX_LEASE_DURATION_SEC, "HBL_DHCP_PARAM_SUB_MAX_LEASE_DURATION_SEC",
         values->maxLease, SECONDS_SIZE},
    };
    for (const auto &read : reads) {
        if (!ReadParameter(log, vnet, read.id, read.name, read.buffer, read.size)) {
            return false;
        }
    }
    return true;
}

bool WriteStart(FunctionLog log, FILE *stream, long *start) {
    const time_t now = time(nullptr);
    struct tm local;
    char date[32];
    localtime_r(&now, &local);
    strftime(date, sizeof date, DHCP_DATE_FORMAT, &local);
    *start = ftell(stream);
    if (*start < 0 || fputs(DHCP_BLOCK_START, stream) < 0 || fputs(DHCP_BLOCK_INSTRUCTIONS, stream) < 0 ||
        fprintf(stream, DHCP_DATE_LINE, date) < 0) {
        return HBLLogFileFailure(log, "fseek/fprintf: failed");
    }
    return true;
}

bool WriteGlobals(FunctionLog log, FILE *stream, uint32_t vnet) {
    char defaultLease[SECONDS_SIZE];
    char maxLease[SECONDS_SIZE];
    if (!ReadParameter(log, vnet, HBL_DHCP_PARAM_DEFAULT_LEASE_DURATION_SEC,
                       "HBL_DHCP_PARAM_DEFAULT_LEASE_DURATION_SEC", defaultLease, sizeof defaultLease) ||
        !ReadParameter(log, vnet, HBL_DHCP_PARAM_MAX_LEASE_DURATION_SEC,
                       "HBL_DHCP_PARAM_MAX_LEASE_DURATION_SEC", maxLease, sizeof maxLease)) {
        return false;
    }
    if (fprintf(stream, DHCP_GLOBAL_LINES, defaultLease, maxLease) < 0) {
        return HBLLogFileFailure(log, "fprintf: failed while writing DHCP Global Parameters");
    }
    log(LOG_INFO2, "Finished writing global values, writing subnet values now");
    return true;
}

bool WriteSubnet(FunctionLog log, FILE *stream, uint32_t vnet, SubnetValues *values) {
    if (!ReadSubnetValues(log, vnet, values)) {
        return false;
    }
    if (fprintf(stream, DHCP_SUBNET_LINES, values->subnet, values->mask, values->leaseBegin, values->leaseEnd,
                values->broadcast, values->dns, values->domainName, values->defaultLease,
                values->maxLease) < 0) {
        return HBLLogFileFailure(log, "fprintf: failed while writing DHCP Subnet Config");
    }
    values->hasRouters = HBLVnetUsesNAT(vnet);
    if (values->hasRouters) {
        if (!ReadParameter(log, vnet, HBL_DHCP_PARAM_ROUTERS, "HBL_DHCP_PARAM_ROUTERS", values->routers,
                           sizeof values->routers)) {
            return false;
        }
        if (fprintf(stream, DHCP_ROUTERS_LINE, values->routers) < 0) {
            return HBLLogFileFailure(log, "fprintf: failed while writing DHCP Subnet Config Option");
        }
    }
    if (fputs(DHCP_CLOSING_LINE, stream) < 0) {
        return HBLLogFileFailure(log, "fprintf: failed while writing end Param");
    }
    log(LOG_INFO2, "Finished writing DHCP subnet values");
    return true;
}

bool WriteHosts(FunctionLog log, FILE *stream, uint32_t vnet, const SubnetValues &values) {
    uint32_t offset = 0;
    char mac[HBL_MAC_STR_SIZE];
    char ip[HBL_IP_STR_SIZE];
    while (HBLNetCfgEnumDHCPMACToIP(nullptr, vnet, &offset, mac, sizeof mac, ip, sizeof ip)) {
        if (fprintf(stream, DHCP_HOST_LINES, ip, mac, ip, values.dns, values.domainName) < 0) {
            return HBLLogFileFailure(log, "fprintf: failed while writing DHCP MAC/IP mapping");
        }
        if (values.hasRouters && fprintf(stream, DHCP_ROUTERS_LINE, values.routers) < 0) {
            return HBLLogFileFailure(log, "fprintf: failed while writing DHCP MAC/IP mapping option");
        }
        if (fputs(DHCP_CLOSING_LINE, stream) < 0) {
            return HBLLogFileFailure(log, "fprintf: failed while writing DHCP MAC/IP mapping");
        }
    }
    return true;
}

bool WriteEnd(FunctionLog log, FILE *stream) {
    const int length = static_cast<int>(sizeof DHCP_BLOCK_END - 1);
    // What is buffered is flushed here, where a full disk can still be told by its own words.
    if (fprintf(stream, "%s", DHCP_BLOCK_END) != length || fflush(stream) != 0) {
        return HBLLogFileFailure(log, "fprintf: failed while writing DHCP readonly end marker");
    }
    return true;
}

char *HashText(FunctionLog log, const uint8_t (&digest)[SHA1_DIGEST_BYTES]) {
    char *text = static_cast<char *>(calloc(HASH_TEXT_SIZE, 1));
    if (text == nullptr) {
        log(LOG_ERR, "Error in memory allocation for buffer for hash");
        return nullptr;
    }
    for (size_t i = 0; i < SHA1_DIGEST_BYTES; i++) {
        if (snprintf(text + 2 * i, HASH_TEXT_SIZE - 2 * i, "%02X", digest[i]) != 2) {
            log(LOG_ERR, "Converting hash to string failed");
            free(text);
            return nullptr;
        }
    }
    return text;
}

// Hashes the stretch, with the stream's position wherever it may end up.
char *HashStretch(FunctionLog log, FILE *stream, long posStart, long posEnd) {
    if (fseek(stream, posStart, SEEK_SET) != 0) {
        log(LOG_ERR, "ftell failed");
        return nullptr;
    }
    if (posEnd <= posStart) {
        log(LOG_ERR, "posEnd:%li must be greater than posStart:%li", posEnd, posStart);
        return nullptr;
    }
    const size_t size = static_cast<size_t>(posEnd - posStart);
    const MallocBlock<void> bytes(malloc(size));
    if (bytes == nullptr) {
        log(LOG_ERR, "Error in allocation memory for Readonly DHCP data");
        return nullptr;
    }
    if (fread(bytes.get(), size, 1, stream) != 1) {
        errno = ferror(stream) != 0 ? errno : ENODATA;  // the end of the file leaves no reason
        HBLLogFileFailure(log, "fread: failed while reading");
        return nullptr;
    }
    uint8_t digest[SHA1_DIGEST_BYTES];
    Sha1 sha1;
    sha1.Update(bytes.get(), size);
    sha1.Final(digest);
    return HashText(log, digest);
}

}  // namespace

bool HBLDHCPWriteBlock(FunctionLog log, FILE *stream, uint32_t vnet, long *start) {
    SubnetValues values = {};
    return WriteStart(log, stream, start) && WriteGlobals(log, stream, vnet) &&
           WriteSubnet(log, stream, vnet, &values) && WriteHosts(log, stream, vnet, values) &&
           WriteEnd(log, stream);
}

void HBLLocateZelanDHCPBlock(FILE *stream, long *posStart, long *posEnd) {
    char line[LINE_SIZE];
    bool atLineStart = true;  // a long line comes in pieces, and only its first one can be a marker
    *posStart = -1;
    *posEnd = -1;
    long next = ftell(stream);
    while (fgets(line, sizeof line, stream) != nullptr) {
        const long offset = std::exchange(next, ftell(stream));
        if (offset < 0 || next < 0) {
            HBLLog(LOG_ERR, __func__, "ftell failed");
            *posStart = -1;
            return;
        }
        if (atLineStart && strcmp(line, DHCP_BLOCK_START) == 0) {
            *posStart = offset;
            HBLLog(LOG_INFO2, __func__, "Block Start identified: %li", *posStart);
        } else if (atLineStart && strcmp(line, DHCP_BLOCK_END) == 0) {
            *posEnd = next;
            HBLLog(LOG_INFO2, __func__, "Block End identified: %li", *posEnd);
            return;
        }
        atLineStart = line[next - offset - 1] == '\n';  // the line may hold zero bytes
    }
}

char *HBLCalculateHashStrForBlock(FILE *stream, long posStart, long posEnd) {
    if (stream == nullptr || posStart < 0 || posEnd < 0) {
        HBLLog(LOG_ERR, __func__, "Invalid argument");
        return nullptr;
    }
    const long remembered = ftell(stream);
    if (remembered < 0) {
        HBLLog(LOG_ERR, __func__, "ftell failed");
        return nullptr;
    }
    char *text = HashStretch(__func__, stream, posStart, posEnd);
    if (text != nullptr) {
        HBLLog(LOG_INFO2, __func__, "Hash String value: %s", text);
    }
    fseek(stream, remembered, SEEK_SET);
    return text;
}
