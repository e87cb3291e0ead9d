#include "lib/harbrel/parameters/parameters.h"

#include <cstring>

#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/networks/settings.h"

namespace {

const char *StoredValue(const ParameterRow &row, uint32_t vnet) {
    return row.key[0] != '\0' ? HBLGetVnetCfg(vnet, row.key) : nullptr;
}

bool CopyFitting(const char *function, const char *noSpace, const ParameterRow &row, const char *text,
                 char *buffer, size_t size) {
    const size_t needed = strlen(text) + 1;
    if (needed > size) {
        HBLLog(LOG_ERR, function, noSpace, row.id, size, row.displayName, needed);
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

bool HBLGetParameter(const ParameterFamily &family, const ParameterRow &row, uint32_t vnet, bool useDefault,
                     char *buffer, size_t size) {
    const ParameterWords &words = family.words;
    const char *value = StoredValue(row, vnet);
    if (value != nullptr) {
        if (!CopyFitting(words.getFunction, words.noSpace, row, value, buffer, size)) {
            return false;
        }
        HBLLog(LOG_INFO2, words.getFunction, words.stored, row.displayName, value, vnet);
        return true;
    }
    HBLLog(words.notFoundLevel, words.getFunction, words.notFound, row.displayName, vnet);
    if (!useDefault) {
        return false;
    }
    HBLLog(LOG_INFO2, words.getFunction, "%s", words.reverting);
    if (!HBLGetParameterDefault(family, &row, row.id, vnet, buffer, size)) {
        HBLLog(LOG_ERR, words.getFunction, "Failure in getting default value of parameter");
        return false;
    }
    return true;
}

bool HBLGetParameterDefault(const ParameterFamily &family, const ParameterRow *row, uint32_t id,
                            uint32_t vnet, char *buffer, size_t size) {
    const ParameterWords &words = family.words;
    if (row == nullptr || row->key[0] == '\0') {
        HBLLog(LOG_ERR, words.defaultFunction, words.unknownDefault, id);
        return false;
    }
    char computed[PARAMETER_DEFAULT_SIZE];
    const char *value = row->constant;
    if (value == nullptr) {
        if (!family.computeDefault(*row, vnet, computed, sizeof computed)) {
            return false;
        }
        value = computed;
    }
    if (!CopyFitting(words.defaultFunction, words.defaultNoSpace, *row, value, buffer, size)) {
        return false;
    }
    HBLLog(LOG_INFO2, words.defaultFunction, words.defaultValue, row->displayName, value, vnet);
    return true;
}

bool HBLSetParameter(const ParameterFamily &family, uint32_t id, uint32_t vnet, const char *value) {
    const ParameterWords &words = family.words;
    const ParameterRow *row = HBLFindParameter(family, id);
    if (row == nullptr || row->check == nullptr) {
        HBLLog(LOG_ERR, words.setFunction, words.unknownSet, id);
        return false;
    }
    if (!row->check(words.setFunction, *row, vnet, value)) {
        return false;
    }
    if (!HBLSetVnetCfg(vnet, row->key, value)) {
        HBLLog(LOG_ERR, words.setFunction, words.setFailed, row->displayName, vnet);
        return false;
    }
    HBLLog(LOG_INFO2, words.setFunction, words.setDone, row->displayName, value, vnet);
    return true;
}

bool HBLRemoveParameters(const ParameterFamily &family, const char *function, uint32_t vnet,
                         std::span<const ParameterRemoval> removals) {
    bool allRemoved = true;
    for (const ParameterRemoval &removal : removals) {
        if (!family.remove(vnet, removal.id)) {
            HBLLog(LOG_ERR, function, "%s", removal.failed);
            allRemoved = false;
        }
    }
    return allRemoved;
}
