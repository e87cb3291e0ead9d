// What a network owns on disk, addressed by vnet number and file type; arbitrary paths go through
// HBL_FILE_CUSTOM. No state, no lock. Paths are at most 255 bytes.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

enum HBLFileType : uint32_t {
    HBL_FILE_VNET_DIR = 0,
    HBL_FILE_DHCP_DIR = 1,
    HBL_FILE_NAT_DIR = 2,
    HBL_FILE_CUSTOM = 3,
    HBL_FILE_DHCP_CONF = 4,
    HBL_FILE_DHCP_CONF_BACKUP = 5,
    HBL_FILE_DHCP_LEASES = 6,
    HBL_FILE_DHCP_LEASES_BACKUP = 7,
    HBL_FILE_NAT_CONF = 8,
    HBL_FILE_NAT_CONF_BACKUP = 9,
    HBL_FILE_HOST_CONFIG = 10,
    HBL_FILE_DEVICE = 11,
};

constexpr size_t HBL_PATH_SIZE = 256;      // every path buffer
constexpr uint32_t HBL_CUSTOM_VNET = ~0u;  // the vnet that goes with HBL_FILE_CUSTOM

// CONFIGDIR, the root of the per-network directories.
std::string HBLConfigDir();
bool HBLGetFileName(uint32_t vnet, uint32_t fileType, char *buffer, size_t bufferLength);

// `customPath` goes with HBL_FILE_CUSTOM and is null otherwise. Failures are logged.
// Whether the thing is there and of the kind that its type demands.
bool HBLFileExists(uint32_t vnet, uint32_t fileType, const char *customPath);
// What exists already is success.
bool HBLCreateFile(uint32_t vnet, uint32_t fileType, const char *customPath);
// What is gone already is success.
bool HBLRemoveFile(uint32_t vnet, uint32_t fileType, const char *customPath);
// The whole content, which is on the disk then; a failure leaves what was copied so far.
bool HBLCopyFile(const char *sourcePath, const char *destinationPath);

// Regular files only, as open(2) and fopen(3), never inherited and without waiting: at a path where anything
// else stands, a FIFO for one, they fail with an errno, EISDIR or EINVAL where there is no other. The modes
// are "r", "r+", "w", "w+", "a" and "a+".
int HBLOpenRegular(const char *path, int flags, mode_t mode);
FILE *HBLFopenRegular(const char *path, const char *mode);
// For reading alone. A folder is opened as well; its first read fails, with EISDIR.
int HBLOpenToRead(const char *path);
FILE *HBLFopenToRead(const char *path);
