#include "lib/harbrel/parameters/parameters.h"

#include <cstring>

#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/networks/settings.h"

namespace {

constexpr size_t DEFAULT_SIZE = 256;

// The row to read an id by, or null after the refusal.
const ParameterRow *RowToRead(const ParameterFamily &family, const char *function, uint32_t id) {
    const ParameterRow *row = HBLFindParameter(family, id);
    if (row == nullptr) {
        row = family.rowlessId;
    }
    if (row == nullptr) {
        HBLLog(LOG_ERR, function, family.words.unknownGet, id);
    }
    return row;
}

bool CopyFitting(const ParameterFamily &family, const char *function, const char *noSpace,
                 const ParameterRow &row, const char *text, char *buffer, size_t size) {
    const size_t needed = strlen(text) + 1;
    if (needed > size) {
        family.logNoSpace(function, noSpace, row, size, needed);
        return false;
    }
    memcpy(buffer, text, needed);
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

uint32_t HBLMapExternalParameter(const ParameterFamily &family, const char *function, uint32_t externalId) {
    for (const ParameterRow &row : family.rows) {
        if (row.externalId == externalId && externalId != 0) {
            return row.id;
        }
    }
    HBLLog(LOG_ERR, function, "Could not map external paramID: %u", externalId);
    return family.unknownId;
}

bool HBLGetParameter(const ParameterFamily &family, const char *function, uint32_t vnet, uint32_t id,
                     bool useDefault, char *buffer, size_t size) {
    const ParameterWords &words = family.words;
    const ParameterRow *row = RowToRead(family, function, id);
    if (row == nullptr) {
        return false;
    }
    const char *value = row->key[0] != '\0' ? HBLGetVnetCfg(vnet, row->key) : nullptr;
    if (value != nullptr) {
        if (!CopyFitting(family, function, words.noSpace, *row, value, buffer, size)) {
            return false;
        }
        HBLLog(LOG_INFO2, function, words.stored, row->displayName, value, vnet);
        return true;
    }
    HBLLog(words.notFoundLevel, function, words.notFound, row->displayName, vnet);
    if (!useDefault) {
        return false;
    }
    HBLLog(LOG_INFO2, function, "%s", words.reverting);
    if (!family.getDefault(vnet, id, buffer, size)) {
        HBLLog(LOG_ERR, function, "Failure in getting default value of parameter");
        return false;
    }
    return true;
}

bool HBLGetParameterDefault(const ParameterFamily &family, const char *function, uint32_t vnet, uint32_t id,
                            char *buffer, size_t size) {
    const ParameterWords &words = family.words;
    const ParameterRow *row = HBLFindParameter(family, id);
    if (row == nullptr || row->key[0] == '\0') {
        HBLLog(LOG_ERR, function, words.unknownDefault, id);
        return false;
    }
    char computed[DEFAULT_SIZE];
    if (row->constant == nullptr && !family.computeDefault(function, id, vnet, computed, sizeof computed)) {
        return false;
    }
    const char *value = row->constant != nullptr ? row->constant : computed;
    if (!CopyFitting(family, function, words.defaultNoSpace, *row, value, buffer, size)) {
        return false;
    }
    HBLLog(LOG_INFO2, function, words.defaultValue, row->displayName, value, vnet);
    return true;
}

bool HBLSetParameter(const ParameterFamily &family, const char *function, uint32_t vnet, uint32_t id,
                     const char *value) {
    const ParameterWords &words = family.words;
    const ParameterRow *row = HBLFindParameter(family, id);
    if (row == nullptr || row->check == nullptr) {
        HBLLog(LOG_ERR, function, words.unknownSet, id);
        return false;
    }
    if (!row->check(function, *row, vnet, value)) {
        return false;
    }
    if (!HBLSetVnetCfg(vnet, row->key, value)) {
        HBLLog(LOG_ERR, function, words.setFailed, row->displayName, vnet);
        return false;
    }
    HBLLog(LOG_INFO2, function, words.setDone, row->displayName, value, vnet);
    return true;
}

bool HBLRemoveParameters(const ParameterFamily &family, const char *function, uint32_t vnet,
                         std::span<const ParameterRemoval> removals, uint32_t keptId) {
    bool allRemoved = true;
    for (const ParameterRemoval &removal : removals) {
        if (removal.id != keptId && !family.remove(vnet, removal.id)) {
            HBLLog(LOG_ERR, function, "%s", removal.failed);
            allRemoved = false;
        }
    }
    return allRemoved;
}
