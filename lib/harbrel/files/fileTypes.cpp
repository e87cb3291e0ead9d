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
    {"%s/zelan%d", HBLFileKind::Directory},
    {"%s/zelan%d/dhcpd", HBLFileKind::Directory},
    {"%s/zelan%d/nat", HBLFileKind::Directory},
    {nullptr, HBLFileKind::Custom},
    {"%s/zelan%d/dhcpd/dhcpd.conf", HBLFileKind::Regular},
    {"%s/zelan%d/dhcpd/dhcpd.conf.bak", HBLFileKind::Regular},
    {"%s/zelan%d/dhcpd/dhcpd.leases", HBLFileKind::Regular},
    {"%s/zelan%d/dhcpd/dhcpd.leases~", HBLFileKind::Regular},
    {"%s/zelan%d/nat/nat.conf", HBLFileKind::Regular},
    {"%s/zelan%d/nat/nat.conf.bak", HBLFileKind::Regular},
    {"%s/config", HBLFileKind::NameOnly},
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
    const int length = row->kind == HBLFileKind::Device
                           ? Str_Snprintf(buffer, bufferLength, "/dev/zelan%d", static_cast<int>(vnet))
                           : Str_Snprintf(buffer, bufferLength, row->pathTemplate, configDirectory.c_str(),
                                          static_cast<int>(vnet));
    if (length < 0) {
        HBLLog(LOG_ERR, __func__, "Error formatting the file name for file type: %ufrom cD: %s, vnet: %d",
               fileType, configDirectory.c_str(), static_cast<int>(vnet));
        return false;
    }
    return true;
}
