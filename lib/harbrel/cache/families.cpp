#include "lib/harbrel/cache/families.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "lib/harbrel/cache/tables.h"

namespace {

using DB = HBLNetworkConfigurationDB;

bool CopyText(char **place, const char *text) {
    *place = strdup(text);
    return *place != nullptr;
}

bool HasVnetSlot(const RecordFields &record) {
    return record.vnet >= 0 && static_cast<uint32_t>(record.vnet) < HBL_NUM_VNETS;
}

template <typename Holder>
bool MakeHolder(Holder *(&slots)[HBL_NUM_VNETS], const RecordFields &record) {
    if (!HasVnetSlot(record)) {
        errno = ERANGE;
        return false;
    }
    Holder *&slot = slots[record.vnet];
    if (slot == nullptr) {
        slot = static_cast<Holder *>(calloc(1, sizeof(Holder)));
    }
    return slot != nullptr;
}

bool NoHolder(DB *, const RecordFields &) {
    return true;
}

void KeepNoHolder(DB *, const RecordFields &) {}

TableRef AnswerTable(DB *db, const RecordFields &) {
    return {&db->dictHash, nullptr, nullptr};
}

bool FillAnswer(void *entry, const RecordFields &record) {
    auto *answer = static_cast<NetworkConfigDictionaryEntry *>(entry);
    return CopyText(&answer->key, record.key) && CopyText(&answer->value, record.value);
}

RecordFields FieldsOfAnswer(const void *entry) {
    const auto *answer = static_cast<const NetworkConfigDictionaryEntry *>(entry);
    return {.key = answer->key, .value = answer->value};
}

TableRef BridgeTable(DB *db, const RecordFields &) {
    return {&db->bridgeHash, &db->bridgeArray, &db->bridgeCount};
}

bool FillBridge(void *entry, const RecordFields &record) {
    auto *mapping = static_cast<BridgeMappingEntry *>(entry);
    mapping->vnet = record.vnet;
    return CopyText(&mapping->adapter, record.key);
}

RecordFields FieldsOfBridge(const void *entry) {
    const auto *mapping = static_cast<const BridgeMappingEntry *>(entry);
    return {.key = mapping->adapter, .vnet = mapping->vnet};
}

TableRef DHCPTable(DB *db, const RecordFields &record) {
    DHCPMACToIPConfig *holder = HasVnetSlot(record) ? db->dhcpConfig[record.vnet] : nullptr;
    return holder != nullptr ? TableRef{&holder->hash, &holder->array, &holder->count} : TableRef{};
}

bool MakeDHCPHolder(DB *db, const RecordFields &record) {
    return MakeHolder(db->dhcpConfig, record);
}

void DropDHCPHolder(DB *db, const RecordFields &record) {
    DHCPMACToIPConfig *holder = HasVnetSlot(record) ? db->dhcpConfig[record.vnet] : nullptr;
    if (holder != nullptr && holder->hash == nullptr) {
        free(holder);
        db->dhcpConfig[record.vnet] = nullptr;
    }
}

bool FillDHCP(void *entry, const RecordFields &record) {
    auto *mapping = static_cast<DHCPMACToIPEntry *>(entry);
    mapping->vnet = static_cast<uint32_t>(record.vnet);
    return CopyText(&mapping->mac, record.key) && CopyText(&mapping->ip, record.value);
}

RecordFields FieldsOfDHCP(const void *entry) {
    const auto *mapping = static_cast<const DHCPMACToIPEntry *>(entry);
    return {.key = mapping->mac, .value = mapping->ip, .vnet = static_cast<int32_t>(mapping->vnet)};
}

TableRef NATTable(DB *db, const RecordFields &record) {
    NATVnetPortFwdConfig *holder = HasVnetSlot(record) ? db->natConfig[record.vnet] : nullptr;
    if (holder == nullptr) {
        return {};
    }
    return record.isTcp ? TableRef{&holder->tcpHash, &holder->tcpArray, &holder->tcpCount}
                        : TableRef{&holder->udpHash, &holder->udpArray, &holder->udpCount};
}

bool MakeNATHolder(DB *db, const RecordFields &record) {
    return MakeHolder(db->natConfig, record);
}

void DropNATHolder(DB *db, const RecordFields &record) {
    NATVnetPortFwdConfig *holder = HasVnetSlot(record) ? db->natConfig[record.vnet] : nullptr;
    if (holder != nullptr && holder->tcpHash == nullptr && holder->udpHash == nullptr) {
        free(holder);
        db->natConfig[record.vnet] = nullptr;
    }
}

bool FillNAT(void *entry, const RecordFields &record) {
    auto *forward = static_cast<NATPortFwdEntry *>(entry);
    forward->vnet = static_cast<uint32_t>(record.vnet);
    forward->isTcp = record.isTcp ? 1 : 0;
    forward->hostPort = record.hostPort;
    forward->vmPort = record.vmPort;
    return CopyText(&forward->vmIP, record.value) &&
           (record.description == nullptr || CopyText(&forward->description, record.description));
}

RecordFields FieldsOfNAT(const void *entry) {
    const auto *forward = static_cast<const NATPortFwdEntry *>(entry);
    return {.value = forward->vmIP,
            .vnet = static_cast<int32_t>(forward->vnet),
            .isTcp = forward->isTcp != 0,
            .hostPort = forward->hostPort,
            .vmPort = forward->vmPort,
            .description = forward->description};
}

}  // namespace

constinit const RecordFamily ANSWER_FAMILY = {
    .addType = NETCFG_REC_ANSWER,
    .removeType = NETCFG_REC_REMOVE_ANSWER,
    .entrySize = sizeof(NetworkConfigDictionaryEntry),
    .keyFlags = HASH_ISTRING_KEY,
    .freeEntry = NetCfgFreeEntry,
    .table = AnswerTable,
    .makeHolder = NoHolder,
    .dropEmptyHolder = nullptr,
    .fillEntry = FillAnswer,
    .fieldsOf = FieldsOfAnswer,
    .absentIsRemoved = true,
    .words = {.addLog = "NetCfgHashAddAnswer",
              .entryName = "NetworkConfigDictionaryEntry",
              .stringCopy = "strdup failed, possibly because of no memory",
              .holderName = nullptr,
              .holderFailed = nullptr,
              .keyExists = nullptr,
              .deleteOfOld = nullptr,
              .addFailed = "Failed to insert entry into hash table",
              .tellsNewTables = false,
              .tellsInserts = false,
              .removeLog = "NetCfgHashRemoveAnswer",
              .removeWithoutTable = nullptr},
};

constinit const RecordFamily BRIDGE_FAMILY = {
    .addType = NETCFG_REC_ADD_BRIDGE_MAPPING,
    .removeType = NETCFG_REC_REMOVE_BRIDGE_MAPPING,
    .entrySize = sizeof(BridgeMappingEntry),
    .keyFlags = HASH_ISTRING_KEY,
    .freeEntry = NetCfgBridgeMappingFreeEntry,
    .table = BridgeTable,
    .makeHolder = NoHolder,
    .dropEmptyHolder = KeepNoHolder,
    .fillEntry = FillBridge,
    .fieldsOf = FieldsOfBridge,
    .absentIsRemoved = false,
    .words = {.addLog = "NetCfgHashAddBridgeMapping",
              .entryName = "BridgeMappingEntry",
              .stringCopy = "Memory allocation failure for adapter",
              .holderName = nullptr,
              .holderFailed = nullptr,
              .keyExists = "Bridge mapping entry already exists, deleting existing entry",
              .deleteOfOld = "Failed to delete existing bridge mapping entry",
              .addFailed = "Failed to insert Bridge mapping entry into hash table",
              .tellsNewTables = false,
              .tellsInserts = true,
              .removeLog = "NetCfgHashRemoveBridgeMapping",
              .removeWithoutTable = "Cannot delete mapping entry from empty mapping list"},
};

constinit const RecordFamily DHCP_FAMILY = {
    .addType = NETCFG_REC_ADD_DHCP_MAC_TO_IP,
    .removeType = NETCFG_REC_REMOVE_DHCP_MAC_TO_IP,
    .entrySize = sizeof(DHCPMACToIPEntry),
    .keyFlags = HASH_ISTRING_KEY,
    .freeEntry = NetCfgDHCPMACToIPFreeEntry,
    .table = DHCPTable,
    .makeHolder = MakeDHCPHolder,
    .dropEmptyHolder = DropDHCPHolder,
    .fillEntry = FillDHCP,
    .fieldsOf = FieldsOfDHCP,
    .absentIsRemoved = false,
    .words = {.addLog = "NetCfgHashAddDHCPMACToIP",
              .entryName = "DHCPMACToIPEntry",
              .stringCopy = "Memory allocation failure for mac and/or ip",
              .holderName = "DHCPMACToIPConfig",
              .holderFailed = nullptr,
              .keyExists = "DHCP entry already exists, deleting existing entry",
              .deleteOfOld = "Cannot Delete existing entry",
              .addFailed = "Failed to insert DHCP entry into hash table",
              .tellsNewTables = true,
              .tellsInserts = false,
              .removeLog = "NetCfgHashRemoveDHCPMACToIP",
              .removeWithoutTable = "Cannot delete mapping entry from empty mapping list"},
};

constinit const RecordFamily NAT_FAMILY = {
    .addType = NETCFG_REC_ADD_NAT_PORTFWD,
    .removeType = NETCFG_REC_REMOVE_NAT_PORTFWD,
    .entrySize = sizeof(NATPortFwdEntry),
    .keyFlags = HASH_INT_KEY,
    .freeEntry = NetCfgNATPortFwdFreeEntry,
    .table = NATTable,
    .makeHolder = MakeNATHolder,
    .dropEmptyHolder = DropNATHolder,
    .fillEntry = FillNAT,
    .fieldsOf = FieldsOfNAT,
    .absentIsRemoved = false,
    .words = {.addLog = "NetCfgHashAddNATPortFwd",
              .entryName = "NATPortFwdEntry",
              .stringCopy = "strdup failed, possibly because of out of memory",
              .holderName = nullptr,
              .holderFailed = "Memory allocation error for NATVnetPortFwdConfig",
              .keyExists = "NAT port forward entry already exists, deleting existing entry",
              .deleteOfOld = "Cannot delete existing entry",
              .addFailed = "Failed to insert NAT Port forward entry into hash table",
              .tellsNewTables = false,
              .tellsInserts = false,
              .removeLog = "NetCfgHashRemoveNATPortFwd",
              .removeWithoutTable = "Cannot delete port list entry from empty port list"},
};

const RecordFamily *FamilyOfRecordType(uint32_t recordType) {
    for (const RecordFamily *family : {&ANSWER_FAMILY, &NAT_FAMILY, &DHCP_FAMILY, &BRIDGE_FAMILY}) {
        if (recordType == family->addType || recordType == family->removeType) {
            return family;
        }
    }
    return nullptr;
}
