#include "lib/harbrel/files/fileTypes.h"

#include <sys/stat.h>

#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/cache/cache.h"
#include "lib/harbrel/files/files.h"
#include "lib/string/str.h"

namespace {

constexpr const char *DEFAULT_CONFIG_DIR = "/etc/orvane";

// Indexed by HBLFileType.
constexpr HBLFileTypeRow FILE_TYPES[] = {
    {"", HBLFileKind::Directory},
    {"/dhcpd", HBLFileKind::Directory},
    {"/nat", HBLFileKind::Directory},
    {nullptr, HBLFileKind::Custom},
    {"/dhcpd/dhcpd.conf", HBLFileKind::Regular},
    {"/dhcpd/dhcpd.conf.bak", HBLFileKind::Regular},
    {"/dhcpd/dhcpd.leases", HBLFileKind::Regular},
    {"/dhcpd/dhcpd.leases~", HBLFileKind::Regular},
    {"/nat/nat.conf", HBLFileKind::Regular},
    {"/nat/nat.conf.bak", HBLFileKind::Regular},
    {"/config", HBLFileKind::NameOnly},
    {nullptr, HBLFileKind::Device},
};
static_assert(sizeof(FILE_TYPES) / sizeof(FILE_TYPES[0]) == HBL_NUM_FILE_TYPES);

}  // namespace

const HBLFileTypeRow *HBLFindFileType(uint32_t fileType) {
    return fileType < HBL_NUM_FILE_TYPES ? &FILE_TYPES[fileType] : nullptr;
}

bool HBLFileKindMatches(HBLFileKind kind, mode_t mode) {
    switch (kind) {
        case HBLFileKind::Directory:
            return S_ISDIR(mode);
        case HBLFileKind::Regular:
            return S_ISREG(mode);
        case HBLFileKind::Device:
            return S_ISCHR(mode) || S_ISBLK(mode);
        case HBLFileKind::Custom:
            return true;
        case HBLFileKind::NameOnly:
            break;
    }
    return false;
}

std::string HBLConfigDir() {
    return HBLNetCfgCopyAnswer(nullptr, "CONFIGDIR").value_or(DEFAULT_CONFIG_DIR);
}

bool HBLGetFileName(uint32_t vnet, uint32_t fileType, char *buffer, size_t bufferLength) {
    const std::string configDirectory = HBLConfigDir();
    const HBLFileTypeRow *const row = HBLFindFileType(fileType);
    if (row == nullptr || row->kind == HBLFileKind::Custom) {
        return false;
    }
    const int number = static_cast<int>(vnet);
    int length = 0;
    if (row->kind == HBLFileKind::Device) {
        length = Str_Snprintf(buffer, bufferLength, "/dev/zelan%d", number);
    } else if (row->kind == HBLFileKind::NameOnly) {
        length = Str_Snprintf(buffer, bufferLength, "%s%s", configDirectory.c_str(), row->place);
    } else {
        length =
            Str_Snprintf(buffer, bufferLength, "%s/zelan%d%s", configDirectory.c_str(), number, row->place);
    }
    if (length < 0) {
        HBLLog(LOG_ERR, __func__, "Error formatting the file name for file type: %ufrom cD: %s, vnet: %d",
               fileType, configDirectory.c_str(), number);
        return false;
    }
    return true;
}
