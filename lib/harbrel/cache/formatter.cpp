#include "lib/harbrel/cache/formatter.h"

#include <cerrno>
#include <cstring>

#include "lib/err/errText.h"
#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/cache/journalFile.h"
#include "lib/misc/owners.h"
#include "lib/string/str.h"

namespace {

// One field of a line up to the next blank; a null one is not part of the record.
bool IsToken(const char *text) {
    return text == nullptr || (*text != '\0' && strpbrk(text, " \r\n") == nullptr);
}

bool IsRestOfLine(const char *text) {
    return text == nullptr || strpbrk(text, "\r\n") == nullptr;
}

bool IsVnetInRange(uint32_t addType, int32_t vnet) {
    int32_t lowest = addType == NETCFG_REC_ADD_BRIDGE_MAPPING ? HBL_VNET_NONE : 0;
    return vnet >= lowest && vnet < static_cast<int32_t>(HBL_NUM_VNETS);
}

// The buffer of a line doubles as long as it holds no more than the limit; the line feed is not counted.
constexpr size_t NETCFG_LONGEST_LINE = 2 * NETCFG_LINE_LIMIT;

bool WriteLine(const NetCfgRecordFormatCtx &context, const char *line) {
    if (context.journal != nullptr) {
        return NetCfgAppendLine(context.journal, line);
    }
    return fwrite(line, strlen(line), 1, context.stream) > 0;
}

}  // namespace

char *NetCfgFormatRecord(uint32_t recordType, const RecordFields &record) {
    const auto vnet = static_cast<uint32_t>(record.vnet);  // a bridge mapping alone knows -1
    const bool described = record.description != nullptr;
    switch (recordType) {
        case NETCFG_REC_ANSWER:
            return Str_Asprintf(nullptr, "answer %s %s\n", record.key, record.value);
        case NETCFG_REC_REMOVE_ANSWER:
            return Str_Asprintf(nullptr, "remove_answer %s\n", record.key);
        case NETCFG_REC_ADD_NAT_PORTFWD:
            return Str_Asprintf(nullptr, "add_nat_portfwd %u %s %u %s %u%s%s\n", vnet,
                                ProtocolName(record.isTcp), record.hostPort, record.value, record.vmPort,
                                described ? " " : "", described ? record.description : "");
        case NETCFG_REC_REMOVE_NAT_PORTFWD:
            return Str_Asprintf(nullptr, "remove_nat_portfwd %u %s %u\n", vnet, ProtocolName(record.isTcp),
                                record.hostPort);
        case NETCFG_REC_ADD_DHCP_MAC_TO_IP:
            return Str_Asprintf(nullptr, "add_dhcp_mac_to_ip %u %s %s\n", vnet, record.key, record.value);
        case NETCFG_REC_REMOVE_DHCP_MAC_TO_IP:
            return Str_Asprintf(nullptr, "remove_dhcp_mac_to_ip %u %s\n", vnet, record.key);
        case NETCFG_REC_ADD_BRIDGE_MAPPING:
            return Str_Asprintf(nullptr, "add_bridge_mapping %s %d\n", record.key, record.vnet);
        case NETCFG_REC_REMOVE_BRIDGE_MAPPING:
            return Str_Asprintf(nullptr, "remove_bridge_mapping %s\n", record.key);
        default:
            return nullptr;
    }
}

bool NetCfgStaysInMemory(uint32_t recordType, const RecordFields &record) {
    return recordType == NETCFG_REC_ANSWER && strcmp(record.key, "BINDIR") == 0;
}

const char *NetCfgWhyUnreadableLine(std::string_view line) {
    return line.size() > NETCFG_LONGEST_LINE ? "line too long" : nullptr;
}

const char *NetCfgWhyUnreadable(uint32_t addType, const RecordFields &record, std::string_view line) {
    bool isAnswer = addType == NETCFG_REC_ANSWER;
    bool isForward = addType == NETCFG_REC_ADD_NAT_PORTFWD;
    if (!IsToken(record.key)) {
        return "empty key or name, or a blank or line end in it";
    }
    if (isForward && !IsToken(record.value)) {
        return "empty address, or a blank or line end in it";
    }
    if (!isForward && record.value != nullptr && (*record.value == '\0' || !IsRestOfLine(record.value))) {
        return isAnswer ? "empty value or line end in it" : "empty address, or a line end in it";
    }
    if (!IsRestOfLine(record.description)) {
        return "line end in the description";
    }
    if (isForward && record.description != nullptr && strlen(record.description) >= NETCFG_MAX_DESCRIPTION) {
        return "description too long";
    }
    if (addType == NETCFG_REC_ADD_BRIDGE_MAPPING && strlen(record.key) >= NETCFG_MAX_ADAPTER_NAME) {
        return "adapter name too long";
    }
    if (!IsVnetInRange(addType, record.vnet) || (isForward && (record.hostPort == 0 || record.vmPort == 0))) {
        return "number out of range";
    }
    // The removal of an answer may be the longer line, and has to be possible later.
    const size_t removalSize = isAnswer ? strlen("remove_answer \n") + strlen(record.key) : 0;
    return removalSize > NETCFG_LONGEST_LINE ? "key too long" : NetCfgWhyUnreadableLine(line);
}

int NetCfgWriteRecordToConfig(const void *, void *record, void *context) {
    const auto *format = static_cast<const NetCfgRecordFormatCtx *>(context);
    if (format == nullptr || format->stream == nullptr) {
        HBLLog(LOG_ERR, __func__, "Invalid formatter context parameter or invalid contents");
        return 1;
    }
    if (record == nullptr) {
        HBLLog(LOG_ERR, __func__, "Invalid configuration record data parameter");
        return 1;
    }
    const RecordFamily *family = FamilyOfRecordType(format->recordType);
    if (family == nullptr) {
        HBLLog(LOG_ERR, __func__, "Invalid record type: %u", format->recordType);
        return 1;
    }
    RecordFields fields = family->fieldsOf(record);
    if (NetCfgStaysInMemory(format->recordType, fields)) {
        return 0;
    }
    MallocString line(NetCfgFormatRecord(format->recordType, fields));
    if (line == nullptr) {
        HBLLog(LOG_ERR, __func__, "Memory allocation failure, error: %s", Err_ErrnoText(errno));
        return 1;
    }
    if (!WriteLine(*format, line.get())) {
        HBLLog(LOG_ERR, __func__, "Failed to write record to database file: %s", line.get());
        return 1;
    }
    return 0;
}
