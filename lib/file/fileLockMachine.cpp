#include <algorithm>

#include "lib/file/fileLockInternal.h"
#include "lib/log/log.h"
#include "lib/misc/digest.h"
#include "lib/misc/hostinfo.h"

namespace {

constexpr std::string_view UUID_PREFIX = "uuid=";

// Host name hash and hardware id, both little-endian.
constexpr size_t HASH_BYTES = 4;
constexpr size_t HARDWARE_BYTES = 8;
constexpr size_t ID_BYTES = HASH_BYTES + HARDWARE_BYTES;
constexpr size_t ID_CHARACTERS = 16;

struct MachineID {
    char text[ID_CHARACTERS + 1];
};

MachineID ComputeMachineID() {
    uint32_t hostNameHash = 0;
    uint64_t hardwareID = 0;
    Hostinfo_MachineID(&hostNameHash, &hardwareID);
    uint8_t raw[ID_BYTES];
    for (size_t i = 0; i < HASH_BYTES; i++) {
        raw[i] = static_cast<uint8_t>(hostNameHash >> (8 * i));
    }
    for (size_t i = 0; i < HARDWARE_BYTES; i++) {
        raw[HASH_BYTES + i] = static_cast<uint8_t>(hardwareID >> (8 * i));
    }
    std::string encoded = Base64_Encode(raw, sizeof raw);
    std::replace(encoded.begin(), encoded.end(), '/', '-');  // the text can stand in a file name
    MachineID id{};
    encoded.copy(id.text, ID_CHARACTERS);
    return id;
}

bool DecodeMachineID(std::string text, std::vector<uint8_t> *raw) {
    std::replace(text.begin(), text.end(), '-', '/');
    return Base64_Decode(text, raw) && raw->size() == ID_BYTES;
}

// An id of the older form is known again by the hardware id alone.
bool OldMachineIDMatch(const std::string &mine, const std::string &other) {
    std::vector<uint8_t> rawMine;
    if (!DecodeMachineID(mine, &rawMine)) {
        Warning("%s: unexpected decode problem #1 (%s)\n", __func__, mine.c_str());
        return false;
    }
    std::vector<uint8_t> rawOther;
    if (!DecodeMachineID(other, &rawOther)) {
        Warning("%s: unexpected decode problem #2 (%s)\n", __func__, other.c_str());
        return false;
    }
    return std::equal(rawMine.begin() + HASH_BYTES, rawMine.end(), rawOther.begin() + HASH_BYTES);
}

}  // namespace

const char *FileLockGetMachineID() {
    static const MachineID id = ComputeMachineID();
    return id.text;
}

bool FileLockMachineIDMatch(std::string_view mine, std::string_view other) {
    const bool mineIsUuid = mine.starts_with(UUID_PREFIX);
    const bool otherIsUuid = other.starts_with(UUID_PREFIX);
    if (mineIsUuid && !otherIsUuid) {
        return OldMachineIDMatch(FileLockGetMachineID(), std::string(other));
    }
    return mineIsUuid == otherIsUuid && mine == other;
}
