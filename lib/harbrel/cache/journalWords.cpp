#include "lib/harbrel/cache/journalWords.h"

#include "lib/err/errText.h"

namespace {

using enum JournalStep;

void TellAnswer(FunctionLog log, JournalStep step, const JournalDetails &details) {
    const char *const key = details.record.key;
    const char *const value = TextOrNull(details.record.value);
    const char *const error = Err_ErrnoText(details.errorNumber);
    switch (step) {
        case AddAllocation:
            return log(LOG_ERR, "Memory allocation failed: a: %p, d: %p, o: %p", details.addLine,
                       details.removeLine, details.oldValue);
        case AddTable:
            return log(LOG_ERR, "Failed to add %s:%s to hash table", key, value);
        case AddRemovalLine:
            return log(LOG_ERR, "Failed to remove: %s from database file, error: %s", key, error);
        case AddAddLine:
            return log(LOG_ERR, "Failed to write to %s:%s to database file, error: %s", key, value, error);
        case RestoreOld:
            return log(LOG_ERR, "Failed to restore previous values %s:%s", key, value);
        case RemoveNew:
            return log(LOG_ERR, "Failed to remove newly added record, %s:%s", key, value);
        case RemoveAllocation:
            return log(LOG_ERR, "Memory allocation failed: d: %p, o: %p", details.removeLine,
                       details.oldValue);
        case RemoveTable:
            return log(LOG_ERR, "Failed to remove \"%s\" from hash table", key);
        case RemoveFile:
            return log(LOG_ERR, "Failed to remove \"%s\" in database file", key);
        case RemovePutBack:
            return log(LOG_ERR, "Restoring %s:%s failed in hash table", key, value);
    }
}

void TellBridge(FunctionLog log, JournalStep step, const JournalDetails &details) {
    const char *const adapter = details.record.key;
    const int vnet = details.record.vnet;
    const char *const error = Err_ErrnoText(details.errorNumber);
    switch (step) {
        case AddAllocation:
            return log(LOG_ERR, "Memory allocation failure");
        case AddTable:
            return log(LOG_ERR, "Failed to add Bridge mapping for adapter: %s to vnet: %d", adapter, vnet);
        case AddRemovalLine:
            return log(
                LOG_ERR,
                "Failed to remove bridge mapping for adapter: %s To vnet: %d from database file, error: %s",
                adapter, vnet, error);
        case AddAddLine:
            return log(LOG_ERR,
                       "Failed to write bridge for adapter: %s To vnet: %d to database file, error: %s",
                       adapter, vnet, error);
        case RestoreOld:
            return log(LOG_ERR, "Failed to restore previous values of Bridge mapping adapter: %s, vnet: %d",
                       adapter, vnet);
        case RemoveNew:
            return log(LOG_ERR, "Failed to remove newly added record, adapter: %s, vnet:%d", adapter, vnet);
        case RemoveAllocation:
            return log(LOG_ERR, "Memory allocation failed, error: %s", error);
        case RemoveTable:
            return log(LOG_ERR, "Failed to remove Bridge mapping for adapter: %s from hash table", adapter);
        case RemoveFile:
            return log(LOG_ERR, "Failed to remove Bridge mapping for adapter: %s from database file",
                       adapter);
        case RemovePutBack:
            return log(LOG_ERR, "Failed to restore previous values of Bridge mapping, adapter: %s, vnet: %d",
                       adapter, vnet);
    }
}

void TellDHCP(FunctionLog log, JournalStep step, const JournalDetails &details) {
    const char *const mac = details.record.key;
    const char *const ip = TextOrNull(details.record.value);
    switch (step) {
        case AddAllocation:
            return log(LOG_ERR, "Memory allocation failure");
        case AddTable:
            return log(LOG_ERR, "Failed to add DHCP address mapping for MAC: %s To IP: %s", mac, ip);
        case AddRemovalLine:
            return log(LOG_ERR, "Failed to remove DHCP address mapping for MAC: %s To IP: %s", mac, ip);
        case AddAddLine:
            return log(LOG_ERR, "Failed to add DHCP address mapping record for MAC: %s To IP: %s", mac, ip);
        case RestoreOld:
            return log(LOG_ERR, "Failed to restore previous values %s:%s", mac, ip);
        case RemoveNew:
            return log(LOG_ERR, "Failed to remove newly added record, %s:%s", mac, ip);
        case RemoveAllocation:
            return log(LOG_ERR, "Memory allocation failure, error: %s", Err_ErrnoText(details.errorNumber));
        case RemoveTable:
        case RemoveFile:
            return log(LOG_ERR, "Failed to remove DHCP address mapping for MAC: %s", mac);
        case RemovePutBack:
            return log(LOG_ERR, "Failed to restore previous values of DHCP mapping, mac: %s, ip: %s", mac,
                       ip);
    }
}

void TellNAT(FunctionLog log, JournalStep step, const JournalDetails &details) {
    const RecordFields &record = details.record;
    const auto vnet = static_cast<uint32_t>(record.vnet);
    const char *const protocol = ProtocolName(record.isTcp);
    const char *const vmIP = TextOrNull(record.value);
    switch (step) {
        case AddAllocation:
            return log(LOG_ERR, "Memory allocation failure");
        case AddTable:
        case AddAddLine:
            return log(LOG_ERR, "Failed to add port forward record for %s port %u", protocol,
                       record.hostPort);
        case AddRemovalLine:
            return log(LOG_ERR, "Failed to remove port forward record for %s port %u", protocol,
                       record.hostPort);
        case RestoreOld:
            return log(LOG_ERR,
                       "Failed to restore previous values, vnet: %u, %s, port %u, vmip: %s, vmPort: %u", vnet,
                       protocol, record.hostPort, vmIP, record.vmPort);
        case RemoveNew:
            return log(LOG_ERR,
                       "Failed to remove newly added record, vnet: %u, %s, port %u, vmip: %s, vmPort: %u",
                       vnet, protocol, record.hostPort, vmIP, record.vmPort);
        case RemoveAllocation:
            return log(LOG_ERR, "Memory allocation error");
        case RemoveTable:
            return log(LOG_ERR, "Failed to remove NAT port forward for %s port %u from hash table", protocol,
                       record.hostPort);
        case RemoveFile:
            return log(LOG_ERR,
                       "Failed to remove NAT port forward for %s port %u from database file, error: %s",
                       protocol, record.hostPort, Err_ErrnoText(details.errorNumber));
        case RemovePutBack:
            return log(LOG_ERR,
                       "Failed to restore previous value for NAT port  forward record, vnet: %u, \"%s\", "
                       "hostPort: %u, vmIP: %s vmPort: %u, desc.: %s",
                       vnet, protocol, record.hostPort, vmIP, record.vmPort, TextOrNull(record.description));
    }
}

}  // namespace

constexpr JournalWords ANSWER_JOURNAL_WORDS = {
    .addLog = "NetCfgAddAnswerStringInt",
    .removeLog = "HBLNetCfgRemoveAnswer",
    .equalIsNoChange = false,
    .removalFailed = nullptr,
    .tell = TellAnswer,
};

constexpr JournalWords BRIDGE_JOURNAL_WORDS = {
    .addLog = "HBLNetCfgAddHostAdapterMapping",
    .removeLog = "HBLNetCfgRemoveHostAdapterMapping",
    .equalIsNoChange = true,
    .removalFailed = "Removing Bridge mapping failed",
    .tell = TellBridge,
};

constexpr JournalWords DHCP_JOURNAL_WORDS = {
    .addLog = "HBLNetCfgAddDHCPMACToIP",
    .removeLog = "HBLNetCfgRemoveDHCPMACToIP",
    .equalIsNoChange = false,
    .removalFailed = nullptr,
    .tell = TellDHCP,
};

constexpr JournalWords NAT_JOURNAL_WORDS = {
    .addLog = "HBLNetCfgAddNATPortFwd",
    .removeLog = "HBLNetCfgRemoveNATPortFwd",
    .equalIsNoChange = false,
    .removalFailed = nullptr,
    .tell = TellNAT,
};

void TellJournalStep(const JournalWords &words, JournalStep step, const JournalDetails &details) {
    words.tell(step < RemoveAllocation ? words.addLog : words.removeLog, step, details);
}
