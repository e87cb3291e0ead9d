#include "apps/zelan/posix/harbrelctl/execution/writeChange.h"

#include <algorithm>
#include <cstring>

#include "apps/zelan/posix/harbrelctl/model/library.h"
#include "lib/harbrel/harbrel.h"

namespace {

// `value` is null to remove what is stored.
using SetText = bool (*)(const char *network, const char *value);

uint32_t Length(const char *text) {
    return text != nullptr ? static_cast<uint32_t>(strlen(text)) : 0;
}

template <uint32_t ID>
bool SetDhcp(const char *network, const char *value) {
    return HBL_SetDHCPParam(network, ID, value, Length(value));
}

template <uint32_t ID>
bool SetNat(const char *network, const char *value) {
    return HBL_SetNATParam(network, ID, value, Length(value));
}

// A switch: the settings behind it stay as they are.
template <bool (*SET)(const char *, bool, bool)>
bool SetSwitch(const char *network, const char *value) {
    return SET(network, value != nullptr, false);
}

// Null where the library has no call of its own and the answer is set as such.
constexpr SetText SETTERS[FIELD_COUNT] = {
    HBL_SetVnetSubnetAddr,
    HBL_SetVnetSubnetMask,
    HBL_SetVnetAdapterAddr,
    nullptr,  // adapter name
    SetDhcp<13350>,
    SetDhcp<13351>,
    SetDhcp<13354>,
    SetDhcp<13355>,
    nullptr,  // times of the whole server
    nullptr,
    nullptr,  // broadcast
    nullptr,  // name server
    nullptr,  // domain
    nullptr,  // routers
    SetNat<9027>,
    nullptr,  // the gateway's mask
    nullptr,  // device
    SetNat<9031>,
    SetNat<9032>,
    SetNat<9033>,
    SetNat<9030>,
    SetSwitch<HBL_SetVnetUseDHCP>,
    SetSwitch<HBL_SetVnetUseNAT>,
    SetSwitch<HBL_SetVnetUseAdapter>,
};

bool WriteAnswer(const RecordKey &key, const char *value) {
    const std::string network = NetworkName(key.network);
    if (SETTERS[key.number] != nullptr) {
        return SETTERS[key.number](network.c_str(), value);
    }
    const std::string name = "VNET_" + std::to_string(key.network) + "_" + FIELDS[key.number].suffix;
    return value != nullptr ? HBL_VnetCfgAddAnswer(name.c_str(), value)
                            : HBL_VnetCfgRemoveAnswer(name.c_str());
}

HBL_NetworkID NetworkId(int network) {
    return {.version = 1, .type = HBL_NETWORK_TYPE_VNET, .vnet = network, .reserved = {}};
}

bool WriteReservation(const RecordKey &key, const std::optional<RecordValue> &after) {
    const std::string address = after ? AddressText(after->address) : "";
    return HBL_SetDHCPIPToMAC(NetworkName(key.network).c_str(), after ? address.c_str() : nullptr,
                              key.name.c_str());
}

bool WriteForward(const RecordKey &key, const std::optional<RecordValue> &after) {
    const std::string network = NetworkName(key.network);
    const auto port = static_cast<uint16_t>(key.number);
    const RecordValue value = after.value_or(RecordValue());
    const std::string guest = AddressText(value.address);
    return HBL_SetNATPortForward(
        network.c_str(), key.tcp, port, after ? guest.c_str() : nullptr, static_cast<uint16_t>(value.number),
        value.text.empty() ? nullptr : value.text.c_str(), Length(value.text.c_str()));
}

bool IsListed(const std::string &adapter) {
    const HostAdapters adapters = ListHostAdapters();
    const HBL_HostAdapter *one = adapters != nullptr && adapters->count > 0 ? adapters->first : nullptr;
    while (one != nullptr && adapter != one->deviceName) {
        one = one->next;
    }
    return one != nullptr;
}

// An adapter that zelan0 has by default gets no record by being moved there. The library writes the records
// of those that it lists when the default goes; any other one gets its own by way of no network.
bool NeedsWayRound(const RecordChange &change) {
    HBL_NetworkID byDefault = NetworkId(NO_NETWORK);
    return !change.before && change.after && change.after->number != NO_NETWORK &&
           HBL_GetBridgeDefaultNetwork(&byDefault) && byDefault.vnet == change.after->number &&
           !IsListed(change.key.name);
}

// Without a record the adapter goes to the default network, where one without a mapping is.
bool WriteMapping(const RecordChange &change) {
    HBL_HostAdapter adapter = {};
    adapter.version = 1;
    change.key.name.copy(adapter.deviceName, sizeof adapter.deviceName - 1);
    const HBL_NetworkID nowhere = NetworkId(NO_NETWORK);
    if (NeedsWayRound(change) && !HBL_BridgeMoveAdapter(&adapter, nullptr, &nowhere)) {
        return false;
    }
    const HBL_NetworkID destination = NetworkId(change.after ? change.after->number : NO_NETWORK);
    return HBL_BridgeMoveAdapter(&adapter, nullptr, change.after ? &destination : nullptr);
}

bool WriteDefaultBridge(const std::optional<RecordValue> &after) {
    const HBL_NetworkID network = NetworkId(after ? after->number : 0);
    return HBL_SetBridgeDefaultNetwork(&network);
}

bool WriteChange(const RecordChange &change) {
    switch (change.key.kind) {
        case RECORD_ANSWER:
            return WriteAnswer(change.key, change.after ? change.after->text.c_str() : nullptr);
        case RECORD_RESERVATION:
            return WriteReservation(change.key, change.after);
        case RECORD_FORWARD:
            return WriteForward(change.key, change.after);
        case RECORD_DEFAULT_BRIDGE:
            return WriteDefaultBridge(change.after);
        case RECORD_MAPPING:
            return WriteMapping(change);
    }
    return false;
}

bool EndsDefaultBridge(const RecordChange &change) {
    return change.key.kind == RECORD_DEFAULT_BRIDGE && change.after && change.after->number == NO_NETWORK;
}

}  // namespace

bool WriteChanges(std::vector<RecordChange> changes, const std::string &log, std::string *reason) {
    // zelan0 takes several adapters only while it is the default.
    std::stable_partition(changes.begin(), changes.end(),
                          [](const RecordChange &change) { return !EndsDefaultBridge(change); });
    for (const RecordChange &change : changes) {
        const LogMark mark(log);
        if (!WriteChange(change)) {
            const RecordValue &value = change.after ? *change.after : *change.before;
            *reason = "\"" + RecordText(change.key, value) + "\" is refused: " + mark.LastReason();
            return false;
        }
    }
    return true;
}

RecordChange Inverse(const RecordChange &change) {
    return {change.key, change.after, change.before};
}
