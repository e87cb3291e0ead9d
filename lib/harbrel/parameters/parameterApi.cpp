#include <cstring>

#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/database/database.h"
#include "lib/harbrel/frame/apiFrame.h"
#include "lib/harbrel/parameters/parameters.h"
#include "lib/misc/owners.h"

namespace {

bool StoreParameter(const ParameterFamily &family, const char *name, uint32_t vnet, uint32_t externalId,
                    uint32_t id, const char *param, uint32_t paramLen) {
    const ParameterApiWords &words = family.api;
    const MallocString value(strndup(param, paramLen));
    if (value == nullptr) {
        HBLLog(LOG_ERR, words.setFunction, "%s", words.noMemory);
        return false;
    }
    const bool stored = family.set(vnet, id, value.get());
    HBLLog(stored ? LOG_OK : LOG_ERR, words.setFunction, stored ? words.setDone : words.setFailed, name,
           externalId, value.get());
    return stored;
}

bool DeleteParameter(const ParameterFamily &family, const char *name, uint32_t vnet, uint32_t externalId,
                     uint32_t id) {
    const ParameterApiWords &words = family.api;
    const bool deleted = family.remove(vnet, id);
    HBLLog(deleted ? LOG_OK : LOG_ERR, words.setFunction, deleted ? words.deleteDone : words.deleteFailed,
           name, externalId);
    return deleted;
}

}  // namespace

bool HBLApiGetParameter(const ParameterFamily &family, const char *vnet, uint32_t externalId, bool useDefault,
                        char *param, uint32_t *paramLen) {
    const ParameterApiWords &words = family.api;
    const ApiFrame frame(words.getFunction);
    if (!frame.Passed()) {
        return false;
    }
    const void *vnetAddress = vnet;
    const void *paramAddress = param;
    const void *lengthAddress = paramLen;
    const uint32_t size = ValueOrZero(paramLen);
    if (words.getArguments != nullptr) {
        HBLLog(LOG_ARGS, words.getFunction, words.getArguments, vnetAddress, TextOrNull(vnet), externalId,
               useDefault, paramAddress, lengthAddress, size);
    }
    if (vnet == nullptr || param == nullptr || size == 0) {
        HBLLog(LOG_ERR, words.getFunction, words.getInvalid, vnetAddress, paramAddress, lengthAddress, size);
        return false;
    }
    uint32_t number;
    if (!ApiVnetNumber(words.getFunction, vnet, &number)) {
        return false;
    }
    const uint32_t id = family.mapExternal(externalId);
    if (id == family.unknownId) {
        HBLLog(LOG_ERR, words.getFunction, words.getUnsupported, externalId);
        return false;
    }
    HBLLog(LOG_INFO2, words.getFunction, words.mapped, externalId, id);
    if (!family.get(number, id, useDefault, param, size)) {
        HBLLog(LOG_ERR, words.getFunction, words.getFailed, vnet, externalId);
        return false;
    }
    *paramLen = LengthWithTerminator(param);
    HBLLog(LOG_INFO2, words.getFunction, words.getDone, vnet, externalId, param, *paramLen);
    return true;
}

bool HBLApiSetParameter(const ParameterFamily &family, const char *vnet, uint32_t externalId,
                        const char *param, uint32_t paramLen) {
    const ParameterApiWords &words = family.api;
    const ApiFrame frame(words.setFunction);
    if (!frame.Passed()) {
        return false;
    }
    const void *vnetAddress = vnet;
    const void *paramAddress = param;
    HBLLog(LOG_ARGS, words.setFunction, words.setArguments, vnetAddress, TextOrNull(vnet), externalId,
           paramAddress, ShownLength(param, paramLen), TextOrNull(param), paramLen);
    if (vnet == nullptr) {
        HBLLog(LOG_ERR, words.setFunction, words.setInvalid, vnetAddress, paramAddress);
        return false;
    }
    uint32_t number;
    if (!ApiVnetNumber(words.setFunction, vnet, &number)) {
        return false;
    }
    const uint32_t id = family.mapExternal(externalId);
    if (id == family.unknownId) {
        HBLLog(LOG_ERR, words.setFunction, words.setUnsupported, externalId);
        return false;
    }
    HBLLog(LOG_INFO2, words.setFunction, words.setMapped, externalId, id);
    const ConfigLock lock(words.setFunction);
    if (!lock.Held()) {
        return false;
    }
    return param != nullptr ? StoreParameter(family, vnet, number, externalId, id, param, paramLen)
                            : DeleteParameter(family, vnet, number, externalId, id);
}
