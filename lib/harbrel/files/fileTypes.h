// What distinguishes the file types: path template and kind, one row each. Private to this folder.
#pragma once

#include <sys/types.h>

#include <cstdint>

enum class HBLFileKind : uint8_t {
    Directory,
    Regular,
    Custom,    // the caller gives the path, any kind is right
    NameOnly,  // has a path, but is never tested, made or removed
    Device,
};

struct HBLFileTypeRow {
    const char *place;  // in the vnet's folder, for NameOnly in the configuration directory; null: none
    HBLFileKind kind;
};

constexpr uint32_t HBL_NUM_FILE_TYPES = 12;

// The row of a type, or null for a number without one.
const HBLFileTypeRow *HBLFindFileType(uint32_t fileType);
bool HBLFileKindMatches(HBLFileKind kind, mode_t mode);
