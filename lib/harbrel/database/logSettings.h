// What the database holds about the library's log. No lock of their own.
#pragma once

#include <cstddef>
#include <cstdint>

constexpr const char *HBL_LOGLEVEL_KEY = "HBL_LOGLEVEL";
constexpr const char *HBL_LOG_FILE_KEY = "HBL_LOG_FILE";
constexpr size_t HBL_LOG_FILE_SIZE = 256;  // a buffer for the path, with its terminator

// The stored mask; the default mask when none is stored or the value is no number or negative.
uint32_t HBLGetDefaultLogLevel();
bool HBLSetDefaultLogLevel(uint32_t level);  // stores it; the running mask stays
// False, buffer untouched, when no path is stored or it does not fit with its terminator.
bool HBLGetLogFileName(char *path, size_t size);
