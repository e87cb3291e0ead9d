#include "lib/harbrel/cache/records.h"

#include <strings.h>

#include <cstring>

#include "lib/harbrel/addresses/addresses.h"
#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/cache/tables.h"
#include "lib/misc/owners.h"
#include "lib/string/tokens.h"

namespace {

struct NetCfgRecordParser {
    const char *keyword;
    NetCfgRecordType recordType;
    size_t keywordLength;  // with its terminator, so that only the whole word matches
    bool (*parse)(HBLNetworkConfigurationDB *db, uint32_t recordType, const char *rest);
};

// In the order of the record numbers.
constexpr NetCfgRecordParser RECORD_PARSERS[] = {
    {"answer", NETCFG_REC_ANSWER, 7, DictRecordParseFunct},
    {"remove_answer", NETCFG_REC_REMOVE_ANSWER, 14, DictRecordParseFunct},
    {"add_nat_portfwd", NETCFG_REC_ADD_NAT_PORTFWD, 16, NatFwdRecordParseFunct},
    {"remove_nat_portfwd", NETCFG_REC_REMOVE_NAT_PORTFWD, 19, NatFwdRecordParseFunct},
    {"add_dhcp_mac_to_ip", NETCFG_REC_ADD_DHCP_MAC_TO_IP, 19, DhcpMacRecordParseFunct},
    {"remove_dhcp_mac_to_ip", NETCFG_REC_REMOVE_DHCP_MAC_TO_IP, 22, DhcpMacRecordParseFunct},
    {"add_bridge_mapping", NETCFG_REC_ADD_BRIDGE_MAPPING, 19, BridgeMappingRecordParseFunct},
    {"remove_bridge_mapping", NETCFG_REC_REMOVE_BRIDGE_MAPPING, 22, BridgeMappingRecordParseFunct},
};

// One pass over the fields of a line.
class FieldReader {
  public:
    explicit FieldReader(const char *text, const char *delimiters = " ")
        : text_(text), delimiters_(delimiters) {}

    MallocString Token() { return MallocString(GetNextToken(&index_, text_, delimiters_)); }
    bool Uint(uint32_t *value) { return GetNextUintToken(value, &index_, text_, delimiters_); }
    bool Int(int32_t *value) { return GetNextIntToken(value, &index_, text_, delimiters_); }
    void StepOverDelimiter() {
        if (text_[index_] != '\0') {
            ++index_;
        }
    }
    const char *Rest() const { return text_ + index_; }

  private:
    const char *text_;
    const char *delimiters_;
    unsigned index_ = 0;
};

bool ReadVnet(FieldReader *line, uint32_t *vnet) {
    int32_t number = 0;
    if (!line->Int(&number) || number < 0 || number >= static_cast<int32_t>(HBL_NUM_VNETS)) {
        return false;
    }
    *vnet = static_cast<uint32_t>(number);
    return true;
}

bool ReadPort(FieldReader *line, uint16_t *port) {
    int32_t number = 0;
    if (!line->Int(&number) || number < 1 || number > UINT16_MAX) {
        return false;
    }
    *port = static_cast<uint16_t>(number);
    return true;
}

bool ReadProtocol(FieldReader *line, bool *isTcp) {
    MallocString protocol = line->Token();
    if (protocol == nullptr) {
        return false;
    }
    *isTcp = strcasecmp(protocol.get(), "tcp") == 0;
    return *isTcp || strcasecmp(protocol.get(), "udp") == 0;
}

// A line's fields before the VM address, which a removal has too.
struct ForwardKey {
    uint32_t vnet;
    bool isTcp;
    uint16_t hostPort;
};

bool AddForward(HBLNetworkConfigurationDB *db, const ForwardKey &key, FieldReader *line, FunctionLog log) {
    MallocString vmIP = line->Token();
    if (vmIP == nullptr || !HBLIPStrIsValid(vmIP.get())) {
        log(LOG_WRN, "Failed to parse VM IP address or invalid address");
        return false;
    }
    line->StepOverDelimiter();
    uint16_t vmPort = 0;
    if (!ReadPort(line, &vmPort)) {
        log(LOG_WRN, "Failed to parse host port");
        return false;
    }
    line->StepOverDelimiter();
    const char *description = line->Rest();
    if (strlen(description) >= NETCFG_MAX_DESCRIPTION) {
        log(LOG_ERR, "Discarding description since it is too long");
        description = nullptr;
    }
    if (!NetCfgHashAddNATPortFwd(db, key.vnet, key.isTcp, key.hostPort, vmIP.get(), vmPort, description)) {
        log(LOG_WRN, "Failed to add NAT Port forward to hash table");
        return false;
    }
    return true;
}

}  // namespace

bool DictRecordParseFunct(HBLNetworkConfigurationDB *db, uint32_t recordType, const char *rest) {
    bool adding = recordType == NETCFG_REC_ANSWER;
    if (!adding && db->dictHash == nullptr) {
        HBLLog(LOG_WRN, __func__, "Cannot delete from empty hash table");
        return true;
    }
    FieldReader line(rest);
    MallocString key = line.Token();
    if (key == nullptr) {
        HBLLog(LOG_WRN, __func__, "Failed to extract key");
        return false;
    }
    line.StepOverDelimiter();
    if (adding && *line.Rest() == '\0') {
        HBLLog(LOG_WRN, __func__, "Empty value for key");
        return false;
    }
    bool applied =
        adding ? NetCfgHashAddAnswer(db, key.get(), line.Rest()) : NetCfgHashRemoveAnswer(db, key.get());
    if (!applied) {
        HBLLog(LOG_WRN, __func__, "Failed to %s hash table", adding ? "add to" : "remove from");
    }
    return applied;
}

bool BridgeMappingRecordParseFunct(HBLNetworkConfigurationDB *db, uint32_t recordType, const char *rest) {
    bool adding = recordType == NETCFG_REC_ADD_BRIDGE_MAPPING;
    FieldReader line(rest);
    MallocString adapter = line.Token();
    if (adapter == nullptr || strlen(adapter.get()) >= NETCFG_MAX_ADAPTER_NAME) {
        HBLLog(LOG_WRN, __func__, "Failed to parse host adapter or invalid host adpater name");
        return false;
    }
    line.StepOverDelimiter();
    uint32_t vnet = 0;
    // -1 is HBL_VNET_NONE; adding one brings the whole range below one bound.
    if (adding && (!line.Uint(&vnet) || vnet + 1 > HBL_NUM_VNETS)) {
        HBLLog(LOG_WRN, __func__, "Failed to parse vnet number or invalid vnet number");
        return false;
    }
    bool applied = adding ? NetCfgHashAddBridgeMapping(db, adapter.get(), static_cast<int32_t>(vnet))
                          : NetCfgHashRemoveBridgeMapping(db, adapter.get());
    if (!applied) {
        HBLLog(LOG_WRN, __func__, "Failed to %s bridge mapping in hash table", adding ? "add" : "remove");
    }
    return applied;
}

bool DhcpMacRecordParseFunct(HBLNetworkConfigurationDB *db, uint32_t recordType, const char *rest) {
    bool adding = recordType == NETCFG_REC_ADD_DHCP_MAC_TO_IP;
    FieldReader line(rest);
    uint32_t vnet = 0;
    if (!ReadVnet(&line, &vnet)) {
        HBLLog(LOG_WRN, __func__, "Failed to parse vnet number or invalid vnet number");
        return false;
    }
    line.StepOverDelimiter();
    MallocString token = line.Token();
    char mac[HBL_MAC_STR_SIZE];
    if (token == nullptr || !HBLMACStandardizeFormat(token.get(), mac)) {
        HBLLog(LOG_WRN, __func__, "Failed to parse MAC address or invalid MAC address");
        return false;
    }
    line.StepOverDelimiter();
    const char *ip = line.Rest();
    if (adding && (*ip == '\0' || !HBLIPStrIsValid(ip))) {
        HBLLog(LOG_WRN, __func__, "Failed to parse IP address or invalid IP address");
        return false;
    }
    bool applied =
        adding ? NetCfgHashAddDHCPMACToIP(db, vnet, mac, ip) : NetCfgHashRemoveDHCPMACToIP(db, vnet, mac);
    if (!applied) {
        HBLLog(LOG_WRN, __func__, "Failed to %s DHCP MAC to IP mapping in hash table",
               adding ? "add" : "remove");
    }
    return applied;
}

bool NatFwdRecordParseFunct(HBLNetworkConfigurationDB *db, uint32_t recordType, const char *rest) {
    FieldReader line(rest);
    ForwardKey key = {};
    if (!ReadVnet(&line, &key.vnet)) {
        HBLLog(LOG_WRN, __func__, "Failed to extract vnet number or invalid vnet number");
        return false;
    }
    line.StepOverDelimiter();
    if (!ReadProtocol(&line, &key.isTcp)) {
        HBLLog(LOG_WRN, __func__, "Failed to parse tcp/udp");
        return false;
    }
    line.StepOverDelimiter();
    if (!ReadPort(&line, &key.hostPort)) {
        HBLLog(LOG_WRN, __func__, "Failed to parse host port");
        return false;
    }
    line.StepOverDelimiter();
    if (recordType == NETCFG_REC_ADD_NAT_PORTFWD) {
        return AddForward(db, key, &line, __func__);
    }
    if (!NetCfgHashRemoveNATPortFwd(db, key.vnet, key.isTcp, key.hostPort)) {
        HBLLog(LOG_WRN, __func__, "Failed to remove NAT port forward from hash table");
        return false;
    }
    return true;
}

void NetCfgApplyRecordLine(HBLNetworkConfigurationDB *db, unsigned lineNumber, const char *line,
                           FunctionLog log) {
    FieldReader fields(line);
    MallocString keyword = fields.Token();
    bool applied = keyword != nullptr;
    if (applied) {
        fields.StepOverDelimiter();
        for (const NetCfgRecordParser &parser : RECORD_PARSERS) {
            if (strncasecmp(keyword.get(), parser.keyword, parser.keywordLength) == 0) {
                applied = parser.parse(db, parser.recordType, fields.Rest());
                break;
            }
        }
    }
    if (!applied) {
        log(LOG_ERR, "Failed to parse record at line #: %u, data: %s", lineNumber, line);
    }
}

bool ParseVersionString(const char *text, uint32_t *major, uint32_t *minor, uint32_t supportedMajor) {
    FieldReader line(text, ",");
    uint32_t majorVersion = 0;
    if (!line.Uint(&majorVersion) || majorVersion > INT32_MAX) {
        HBLLog(LOG_ERR, __func__, "Cannot parse major version of database file, aborting parsing");
        return false;
    }
    line.StepOverDelimiter();
    uint32_t minorVersion = 0;
    if (!StrToUint(&minorVersion, line.Rest()) || minorVersion > INT32_MAX) {
        HBLLog(LOG_ERR, __func__, "Cannot parse or invalid minor version of database file, aborting parsing");
        return false;
    }
    if (majorVersion > supportedMajor) {
        HBLLog(LOG_ERR, __func__, "Unsupported major version, supported: %u, actual: %d", supportedMajor,
               static_cast<int32_t>(majorVersion));
        return false;
    }
    if (major != nullptr) {
        *major = majorVersion;
    }
    if (minor != nullptr) {
        *minor = minorVersion;
    }
    return true;
}
