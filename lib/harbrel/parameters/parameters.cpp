#include "lib/harbrel/parameters/parameters.h"

#include <cstring>

#include "lib/harbrel/networks/settings.h"

namespace {

constexpr size_t DEFAULT_SIZE = 256;

bool CopyFitting(const char *text, char *buffer, size_t size, size_t *needed) {
    *needed = strlen(text) + 1;
    if (*needed > size) {
        return false;
    }
    memcpy(buffer, text, *needed);
    return true;
}

// *found tells whether a value is stored at all.
bool ReadStored(const ParameterFamily &family, FunctionLog log, uint32_t vnet, const ParameterRow &row,
                char *buffer, size_t size, bool *found) {
    const auto value = row.key[0] != '\0' ? HBLGetVnetCfg(vnet, row.key) : std::nullopt;
    *found = value.has_value();
    if (!*found) {
        log(family.notFoundLevel, "%s %s parameter: %s not found in configuration for vnet: %d",
            family.lookedFor, family.service, row.displayName, vnet);
        return false;
    }
    size_t needed;
    if (!CopyFitting(value->c_str(), buffer, size, &needed)) {
        family.logNoSpace(log, row, size, needed);
        return false;
    }
    log(LOG_INFO2, "Value of %s parameter: %s is: %s for vnet: %d", family.service, row.displayName,
        value->c_str(), vnet);
    return true;
}

}  // namespace

const ParameterRow *HBLFindParameter(const ParameterFamily &family, uint32_t id) {
    for (const ParameterRow &row : family.rows) {
        if (row.id == id) {
            return &row;
        }
    }
    return nullptr;
}

uint32_t HBLMapExternalParameter(const ParameterFamily &family, FunctionLog log, uint32_t externalId) {
    for (const ParameterRow &row : family.rows) {
        if (row.externalId == externalId && externalId != 0) {
            return row.id;
        }
    }
    log(LOG_ERR, "Could not map external paramID: %u", externalId);
    return family.unknownId;
}

bool HBLGetParameter(const ParameterFamily &family, FunctionLog log, uint32_t vnet, uint32_t id,
                     bool useDefault, char *buffer, size_t size) {
    const ParameterRow *row = HBLFindParameter(family, id);
    if (row == nullptr) {
        row = family.rowForUnknown;
    }
    if (row == nullptr) {
        family.logUnreadable(log, id);
        return false;
    }
    bool found;
    if (ReadStored(family, log, vnet, *row, buffer, size, &found)) {
        return true;
    }
    if (found || !useDefault) {
        return false;
    }
    log(LOG_INFO2, "%s", family.reverting);
    if (!family.getDefault(vnet, id, buffer, size)) {
        log(LOG_ERR, "Failure in getting default value of parameter");
        return false;
    }
    return true;
}

bool HBLGetParameterDefault(const ParameterFamily &family, FunctionLog log, uint32_t vnet, uint32_t id,
                            char *buffer, size_t size) {
    const ParameterRow *row = HBLFindParameter(family, id);
    if (row == nullptr || row->key[0] == '\0') {
        family.logUnreadable(log, id);
        return false;
    }
    char computed[DEFAULT_SIZE];
    if (row->constant == nullptr && !family.computeDefault(log, id, vnet, computed, sizeof computed)) {
        return false;
    }
    const char *value = row->constant != nullptr ? row->constant : computed;
    size_t needed;
    if (!CopyFitting(value, buffer, size, &needed)) {
        family.logNoSpaceForDefault(log, *row, size, needed);
        return false;
    }
    log(LOG_INFO2, "Default value of %s parameter: %s is: %s for vnet: %d", family.service, row->displayName,
        value, vnet);
    return true;
}

bool HBLSetParameter(const ParameterFamily &family, FunctionLog log, uint32_t vnet, uint32_t id,
                     const char *value) {
    const ParameterRow *row = HBLFindParameter(family, id);
    if (row == nullptr || row->check == nullptr) {
        family.logUnsettable(log, id);
        return false;
    }
    if (!row->check(log, *row, vnet, value)) {
        return false;
    }
    if (!HBLSetVnetCfg(vnet, row->key, value)) {
        log(LOG_ERR, "Setting value of %s parameter: %s failed for vnet: %d", family.service,
            row->displayName, vnet);
        return false;
    }
    log(LOG_INFO2, "Successfully set value of %s parameter: %s to value: %s for vnet: %d", family.service,
        row->displayName, value, vnet);
    return true;
}

bool HBLRemoveParameters(FunctionLog log, bool (*remove)(uint32_t vnet, uint32_t id), uint32_t vnet,
                         std::span<const ParameterRemoval> removals, uint32_t keptId) {
    bool allRemoved = true;
    for (const ParameterRemoval &removal : removals) {
        if (removal.id != keptId && !remove(vnet, removal.id)) {
            log(LOG_ERR, "%s", removal.failed);
            allRemoved = false;
        }
    }
    return allRemoved;
}
