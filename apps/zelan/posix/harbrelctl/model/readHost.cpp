#include "apps/zelan/posix/harbrelctl/model/readHost.h"

#include <strings.h>

#include <algorithm>
#include <fstream>
#include <memory>
#include <sstream>

#include "apps/zelan/posix/harbrelctl/model/library.h"
#include "lib/harbrel/harbrel.h"

namespace {

constexpr uint32_t ADDRESS_SIZE = 16;
constexpr uint32_t MAC_SIZE = 18;
constexpr uint32_t NOTE_SIZE = 128;

std::string Answer(const std::string &key, const char *fallback) {
    const char *value = nullptr;
    return HBL_VnetCfgGetAnswer(key.c_str(), &value) ? value : fallback;
}

void ReadFields(int network, NetworkConfig *config) {
    const std::string prefix = "VNET_" + std::to_string(network) + "_";
    for (int field = 0; field < FIELD_COUNT; field++) {
        const char *value = nullptr;
        if (HBL_VnetCfgGetAnswer((prefix + FIELDS[field].suffix).c_str(), &value)) {
            config->stored[field] = value;
        }
    }
    for (const Field field : {FIELD_DHCP, FIELD_NAT, FIELD_ADAPTER}) {
        if (!config->IsOn(field)) {
            config->stored[field].reset();  // "no" and nothing mean the same
        }
    }
}

void ReadForwards(const char *name, bool tcp, NetworkConfig *config) {
    uint32_t offset = 0;
    while (true) {
        char address[ADDRESS_SIZE];
        char note[NOTE_SIZE] = "";
        uint32_t addressSize = sizeof address;
        uint32_t noteSize = sizeof note;
        Forward forward = {.tcp = tcp, .hostPort = 0, .guest = 0, .guestPort = 0, .note = ""};
        if (!HBL_EnumNATPortForward(name, tcp, &offset, &forward.hostPort, address, &addressSize,
                                    &forward.guestPort, note, &noteSize)) {
            return;
        }
        forward.guest = ParseAddress(address).value_or(0);
        forward.note = noteSize > 0 ? note : "";
        config->forwards.push_back(forward);
    }
}

void ReadReservations(const char *name, NetworkConfig *config) {
    uint32_t offset = 0;
    while (true) {
        char address[ADDRESS_SIZE];
        char mac[MAC_SIZE];
        uint32_t addressSize = sizeof address;
        uint32_t macSize = sizeof mac;
        if (!HBL_EnumDHCPIPToMAC(name, &offset, address, &addressSize, mac, &macSize)) {
            return;
        }
        config->reservations.push_back({mac, ParseAddress(address).value_or(0)});
    }
}

bool ReadConfig(Config *config, std::string *error) {
    HBL_NetworkID defaultBridge = {.version = 1, .type = HBL_NETWORK_TYPE_VNET, .vnet = 0, .reserved = {}};
    if (!HBL_GetBridgeDefaultNetwork(&defaultBridge)) {
        *error = "HBL_DEFAULT_BRIDGE_VNET in the database is neither 0 nor -1";
        return false;
    }
    config->defaultBridge = defaultBridge.vnet;
    std::ifstream file(DATABASE);
    std::stringstream text;
    text << file.rdbuf();
    config->mappings = ReplayMappings(text.view());
    for (int network = 0; network < NETWORK_COUNT; network++) {
        NetworkConfig *const settings = &config->networks[network];
        const std::string name = NetworkName(network);
        ReadFields(network, settings);
        ReadForwards(name.c_str(), true, settings);
        ReadForwards(name.c_str(), false, settings);
        ReadReservations(name.c_str(), settings);
        Normalize(settings);
    }
    return true;
}

void ReadPaths(Host *host) {
    static constexpr const char *PROGRAM_KEYS[SERVICE_COUNT] = {"BRIDGE_PROGRAM", "DHCP_PROGRAM",
                                                                "NAT_PROGRAM", "NETIFUP_PROGRAM"};
    host->paths = {Answer("BINDIR", "/usr/bin"), Answer("RUNDIR", "/var/run"),
                   Answer("CONFIGDIR", "/etc/orvane"), Answer("HBL_LOG_FILE", "/var/log/harbrel")};
    for (int service = 0; service < SERVICE_COUNT; service++) {
        host->programNames[service] = Answer(PROGRAM_KEYS[service], SERVICES[service].program);
    }
}

bool ReadServices(NetworkState *state, std::string *error) {
    HBL_VnetFeatures features = {};
    features.version = 1;
    features.net = {.version = 1, .type = HBL_NETWORK_TYPE_VNET, .vnet = state->number, .reserved = {}};
    const std::string name = NetworkName(state->number);
    if (!HBL_GetVnetFeatures(&features)) {
        *error = "the library cannot tell what runs on " + name;
        return false;
    }
    const HBL_FeatureGroup &wanted = features.config;
    const HBL_FeatureGroup &now = features.runtime;
    state->services = {{{wanted.bridge == 1, now.bridge == 1, false},
                        {wanted.dhcp == 1, now.dhcp == 1, false},
                        {wanted.nat == 1, now.nat == 1, false},
                        {wanted.hostOnlyAdapter == 1, now.hostOnlyAdapter == 1, false}}};
    for (int service = 0; service < SERVICE_COUNT; service++) {
        ServiceState *const one = &state->services[service];
        one->unknown = one->configured && !one->running &&
                       HBL_GetServiceStatus(name.c_str(), SERVICES[service].type) == HBL_SERVICE_STATUS_ERROR;
    }
    return true;
}

bool ReadAdapters(Host *host, std::string *error) {
    const HostAdapters list = ListHostAdapters();
    if (list == nullptr) {
        *error = "the host's adapters cannot be listed";
        return false;
    }
    const HBL_HostAdapter *one = list->count > 0 ? list->first : nullptr;
    for (; one != nullptr; one = one->next) {
        host->adapters.push_back({one->deviceName, one->driverName, one->net.vnet, one->status == 1});
        if (one->net.vnet >= 0 && one->net.vnet < NETWORK_COUNT) {
            host->networks[one->net.vnet].adapters.emplace_back(one->deviceName);
        }
    }
    std::ranges::sort(host->adapters, {}, &HostAdapter::name);
    return true;
}

}  // namespace

std::map<std::string, int> ReplayMappings(std::string_view database) {
    std::map<std::string, int> mappings;
    const auto find = [&mappings](const std::string &adapter) {
        return std::find_if(mappings.begin(), mappings.end(), [&adapter](const auto &mapping) {
            return strcasecmp(mapping.first.c_str(), adapter.c_str()) == 0;
        });
    };
    std::istringstream lines{std::string(database)};
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::string keyword, adapter;
        int network = NO_NETWORK;
        words >> keyword >> adapter;
        if (keyword != "add_bridge_mapping" && keyword != "remove_bridge_mapping") {
            continue;
        }
        const auto known = find(adapter);
        if (known != mappings.end()) {
            mappings.erase(known);
        }
        if (keyword.starts_with("add") && words >> network && network < NETWORK_COUNT) {
            mappings[adapter] = network;
        }
    }
    return mappings;
}

bool ReadHost(ReadDepth depth, Host *host, std::string *error) {
    const QuietLog quiet;
    *host = Host();
    ReadPaths(host);
    if (!ReadConfig(&host->config, error)) {
        return false;
    }
    for (int network = 0; network < NETWORK_COUNT; network++) {
        host->networks[network].number = network;
    }
    if (depth == READ_CONFIG) {
        return true;
    }
    for (NetworkState &state : host->networks) {
        if (!ReadServices(&state, error)) {
            return false;
        }
    }
    host->detectionRuns = HBL_GetServiceStatus(nullptr, HBL_SERVICE_NETDETECT) == HBL_SERVICE_STATUS_RUNNING;
    return ReadAdapters(host, error);
}
