#include "lib/harbrel/addresses/addresses.h"
#include "lib/harbrel/cache/cache.h"
#include "lib/harbrel/cache/defaultCache.h"
#include "lib/harbrel/cache/journal.h"
#include "lib/harbrel/cache/tableProtocol.h"
#include "lib/string/str.h"

namespace {

// Answers and bridge mappings are looked up without a word.
std::optional<OwnedRecord> LookupInTable(const RecordFamily &family, HBLNetworkConfigurationDB *db,
                                         const RecordFields &record) {
    const void *entry = FindEntry(family, db, record);
    return entry != nullptr ? std::optional<OwnedRecord>(family.fieldsOf(entry)) : std::nullopt;
}

std::optional<OwnedRecord> LookupDHCP(const RecordFamily &, HBLNetworkConfigurationDB *db,
                                      const RecordFields &record) {
    char ip[HBL_IP_STR_SIZE];
    if (!HBLNetCfgLookupDHCPMACToIP(db, static_cast<uint32_t>(record.vnet), record.key, ip, sizeof ip)) {
        return std::nullopt;
    }
    RecordFields old = record;
    old.value = ip;
    return OwnedRecord(old);
}

std::optional<OwnedRecord> LookupNAT(const RecordFamily &, HBLNetworkConfigurationDB *db,
                                     const RecordFields &record) {
    char vmIP[HBL_IP_STR_SIZE];
    char description[NETCFG_MAX_DESCRIPTION];
    size_t descriptionSize = sizeof description;
    RecordFields old = record;
    if (!HBLNetCfgLookupNATPortFwd(db, static_cast<uint32_t>(record.vnet), record.isTcp, record.hostPort,
                                   vmIP, sizeof vmIP, &old.vmPort, description, &descriptionSize)) {
        return std::nullopt;
    }
    old.value = vmIP;
    old.description = descriptionSize != 0 ? description : nullptr;
    return OwnedRecord(old);
}

constexpr JournalFamily ANSWERS = {&ANSWER_FAMILY, &ANSWER_JOURNAL_WORDS, LookupInTable};
constexpr JournalFamily BRIDGE_MAPPINGS = {&BRIDGE_FAMILY, &BRIDGE_JOURNAL_WORDS, LookupInTable};
constexpr JournalFamily DHCP_MAPPINGS = {&DHCP_FAMILY, &DHCP_JOURNAL_WORDS, LookupDHCP};
constexpr JournalFamily NAT_FORWARDS = {&NAT_FAMILY, &NAT_JOURNAL_WORDS, LookupNAT};

}  // namespace

bool NetCfgAddAnswerStringInt(HBLNetworkConfigurationDB *db, const char *key, const char *value,
                              bool isRollback) {
    return JournalledAdd(ANSWERS, db, {.key = key, .value = value}, isRollback);
}

bool HBLNetCfgAddAnswerString(HBLNetworkConfigurationDB *db, const char *key, const char *value) {
    return NetCfgAddAnswerStringInt(db, key, value, false);
}

bool HBLNetCfgAddAnswerInt32(HBLNetworkConfigurationDB *db, const char *key, int32_t value) {
    char text[16];
    Str_Sprintf(text, sizeof text, "%d", value);
    return HBLNetCfgAddAnswerString(db, key, text);
}

bool HBLNetCfgSetAnswerBool(HBLNetworkConfigurationDB *db, const char *key, bool value) {
    db = NetCfgResolveCache(db, __func__);
    if (db == nullptr) {
        return false;
    }
    bool present = false;
    HBLNetCfgGetAnswerBool(db, key, &present);
    return present == value || NetCfgAddAnswerStringInt(db, key, value ? "yes" : "no", false);
}

bool HBLNetCfgRemoveAnswer(HBLNetworkConfigurationDB *db, const char *key) {
    return JournalledRemove(ANSWERS, db, {.key = key});
}

bool HBLNetCfgAddHostAdapterMapping(HBLNetworkConfigurationDB *db, const char *adapter, int32_t vnet,
                                    bool isRollback) {
    return JournalledAdd(BRIDGE_MAPPINGS, db, {.key = adapter, .vnet = vnet}, isRollback);
}

bool HBLNetCfgRemoveHostAdapterMapping(HBLNetworkConfigurationDB *db, const char *adapter) {
    return JournalledRemove(BRIDGE_MAPPINGS, db, {.key = adapter});
}

bool HBLNetCfgAddDHCPMACToIP(HBLNetworkConfigurationDB *db, uint32_t vnet, const char *mac, const char *ip,
                             bool isRollback) {
    return JournalledAdd(DHCP_MAPPINGS, db, {.key = mac, .value = ip, .vnet = static_cast<int32_t>(vnet)},
                         isRollback);
}

bool HBLNetCfgRemoveDHCPMACToIP(HBLNetworkConfigurationDB *db, uint32_t vnet, const char *mac) {
    return JournalledRemove(DHCP_MAPPINGS, db, {.key = mac, .vnet = static_cast<int32_t>(vnet)});
}

bool HBLNetCfgAddNATPortFwd(HBLNetworkConfigurationDB *db, uint32_t vnet, bool isTcp, uint16_t hostPort,
                            const char *vmIP, uint16_t vmPort, const char *description, bool isRollback) {
    return JournalledAdd(NAT_FORWARDS, db,
                         {.value = vmIP,
                          .vnet = static_cast<int32_t>(vnet),
                          .isTcp = isTcp,
                          .hostPort = hostPort,
                          .vmPort = vmPort,
                          .description = description},
                         isRollback);
}

bool HBLNetCfgRemoveNATPortFwd(HBLNetworkConfigurationDB *db, uint32_t vnet, bool isTcp, uint16_t hostPort) {
    return JournalledRemove(NAT_FORWARDS, db,
                            {.vnet = static_cast<int32_t>(vnet), .isTcp = isTcp, .hostPort = hostPort});
}
