#include "apps/zelan/posix/harbrelctl/plan/records.h"

#include <nettle/sha2.h>

#include <cstdio>

namespace {

void AddNetwork(int network, const NetworkConfig &config, Records *records) {
    for (int field = 0; field < FIELD_COUNT; field++) {
        if (config.stored[field]) {
            (*records)[{RECORD_ANSWER, network, field, {}, {}}] = {*config.stored[field], {}, {}};
        }
    }
    for (const Reservation &tie : config.reservations) {
        (*records)[{RECORD_RESERVATION, network, {}, {}, tie.mac}] = {"", tie.address, {}};
    }
    for (const Forward &forward : config.forwards) {
        (*records)[{RECORD_FORWARD, network, forward.hostPort, forward.tcp, ""}] = {
            forward.note, forward.guest, forward.guestPort};
    }
}

void TakeRecord(const RecordKey &key, const RecordValue &value, Config *config) {
    switch (key.kind) {
        case RECORD_ANSWER:
            config->networks[key.network].stored[key.number] = value.text;
            break;
        case RECORD_RESERVATION:
            config->networks[key.network].reservations.push_back({key.name, value.address});
            break;
        case RECORD_FORWARD:
            config->networks[key.network].forwards.push_back(
                {key.tcp, static_cast<uint16_t>(key.number), value.address,
                 static_cast<uint16_t>(value.number), value.text});
            break;
        case RECORD_DEFAULT_BRIDGE:
            config->defaultBridge = value.number;
            break;
        case RECORD_MAPPING:
            config->mappings[key.name] = value.number;
            break;
    }
}

Config ConfigOf(const Records &records) {
    Config config;
    for (const auto &[key, value] : records) {
        TakeRecord(key, value, &config);
    }
    for (NetworkConfig &network : config.networks) {
        Normalize(&network);
    }
    return config;
}

}  // namespace

Records RecordsOf(const Config &config) {
    Records records;
    for (int network = 0; network < NETWORK_COUNT; network++) {
        AddNetwork(network, config.networks[network], &records);
    }
    records[{RECORD_DEFAULT_BRIDGE, NO_NETWORK, {}, {}, {}}] = {"", {}, config.defaultBridge};
    for (const auto &[adapter, network] : config.mappings) {
        records[{RECORD_MAPPING, NO_NETWORK, {}, {}, adapter}] = {"", {}, network};
    }
    return records;
}

std::vector<RecordChange> Difference(const Config &before, const Config &after) {
    const Records old = RecordsOf(before);
    const Records fresh = RecordsOf(after);
    Records either = old;
    either.insert(fresh.begin(), fresh.end());
    const auto valueIn = [](const Records &records, const RecordKey &key) {
        const auto record = records.find(key);
        return record != records.end() ? std::optional(record->second) : std::nullopt;
    };
    std::vector<RecordChange> changes;
    for (const auto &[key, unused] : either) {
        const RecordChange change = {key, valueIn(old, key), valueIn(fresh, key)};
        if (change.before != change.after) {
            changes.push_back(change);
        }
    }
    return changes;
}

Config Applied(Config config, const std::vector<RecordChange> &changes) {
    Records records = RecordsOf(config);
    for (const RecordChange &change : changes) {
        records.erase(change.key);
        if (change.after) {
            records[change.key] = *change.after;
        }
    }
    return ConfigOf(records);
}

std::string RecordText(const RecordKey &key, const RecordValue &value) {
    const std::string network = std::to_string(key.network);
    switch (key.kind) {
        case RECORD_ANSWER:
            return "answer VNET_" + network + "_" + FIELDS[key.number].suffix + " " + value.text;
        case RECORD_RESERVATION:
            return "add_dhcp_mac_to_ip " + network + " " + key.name + " " + AddressText(value.address);
        case RECORD_FORWARD:
            return "add_nat_portfwd " + network + (key.tcp ? " tcp " : " udp ") + std::to_string(key.number) +
                   " " + AddressText(value.address) + " " + std::to_string(value.number) +
                   (value.text.empty() ? "" : " " + value.text);
        case RECORD_DEFAULT_BRIDGE:
            return "answer HBL_DEFAULT_BRIDGE_VNET " + std::to_string(value.number);
        case RECORD_MAPPING:
            return "add_bridge_mapping " + key.name + " " + std::to_string(value.number);
    }
    return "";
}

std::string StateHash(const Host &host, const std::vector<int> &networks) {
    std::string text;
    for (const auto &[key, value] : RecordsOf(host.config)) {
        text += RecordText(key, value) + "\n";
    }
    for (const int network : networks) {
        text += NetworkName(network);
        for (const ServiceState &state : host.networks[network].services) {
            text += state.running ? " 1" : " 0";
        }
        text += "\n";
    }
    sha256_ctx context;
    sha256_init(&context);
    sha256_update(&context, text.size(), reinterpret_cast<const uint8_t *>(text.data()));
    uint8_t digest[SHA256_DIGEST_SIZE];
    sha256_digest(&context, sizeof digest, digest);
    std::string hash;
    for (const uint8_t byte : digest) {
        char digits[3];
        snprintf(digits, sizeof digits, "%02x", byte);
        hash += digits;
    }
    return hash;
}
