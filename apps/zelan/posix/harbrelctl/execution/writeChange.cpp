#include "apps/zelan/posix/harbrelctl/execution/writeChange.h"

#include <cstring>

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
    if (!after) {
        return HBL_SetNATPortForward(network.c_str(), key.tcp, port, nullptr, 0, nullptr, 0);
    }
    return HBL_SetNATPortForward(network.c_str(), key.tcp, port, AddressText(after->address).c_str(),
                                 static_cast<uint16_t>(after->number),
                                 after->text.empty() ? nullptr : after->text.c_str(),
                                 static_cast<uint32_t>(after->text.size()));
}

// Without a record the adapter goes to the default network, where one without a mapping is.
bool WriteMapping(const RecordKey &key, const std::optional<RecordValue> &after) {
    HBL_HostAdapter adapter = {};
    adapter.version = 1;
    key.name.copy(adapter.deviceName, sizeof adapter.deviceName - 1);
    const HBL_NetworkID destination = NetworkId(after ? after->number : NO_NETWORK);
    return HBL_BridgeMoveAdapter(&adapter, nullptr, after ? &destination : nullptr);
}

bool WriteDefaultBridge(const std::optional<RecordValue> &after) {
    const HBL_NetworkID network = NetworkId(after ? after->number : 0);
    return HBL_SetBridgeDefaultNetwork(&network);
}

}  // namespace

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
            return WriteMapping(change.key, change.after);
    }
    return false;
}

RecordChange Inverse(const RecordChange &change) {
    return {change.key, change.after, change.before};
}
