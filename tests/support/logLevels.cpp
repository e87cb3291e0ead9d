// Watches every line that the library logs in a test, whatever the mask: the level has to be the one that
// goes with the words. Those that tell of a failure are errors, all others trace, but for what is listed
// here. The linker has the library's calls come here first (--wrap).
#include "tests/support/logLevels.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <sstream>
#include <string>
#include <string_view>

#include "lib/harbrel/base/hblLog.h"

extern "C" {
void __real__Z6HBLLogjPKcS0_z(uint32_t level, const char *function, const char *format, ...);
void __wrap__Z6HBLLogjPKcS0_z(uint32_t level, const char *function, const char *format, ...);
void __wrap__ZNK11FunctionLogclEjPKcz(const FunctionLog *log, uint32_t level, const char *format, ...);
}

namespace {

constexpr char FAILURE_WORDS[] =
    "ail|alied|rror|nvalid|nsufficient|annot|ould not|nable to|not valid|nsupported|nknown|nrecognized|"
    "ot able|not configured|not found|oes not exist";

// Lines that come at two levels, and those that tests make up.
constexpr char UNJUDGED[] =
    "LOG_ERRCMN|Setting value for|same|assigned |cleaned |on |off |taking back |not |written before|"
    "Could not extract PID|New subnet configured|Insufficient buffer length for description";
constexpr char TRACE[] =
    "Stopped netifup service on vnet: %s during|Finished copying data|Hostonly adapter: %s does not exist|"
    "Cannot find %s|Cannot find BINDIR|Cannot find mapping|Insufficient space provided|Service:|Value of NAT "
    "parameter:|"
    "Current NAT status:|Current DHCP status:|Unable to find host";
constexpr char ARGUMENTS[] = "Arguments|LOG_ARGS";
constexpr char SUCCESSES[] =
    "Argument:|Created and initialized networking|Creating/Removing DHCP static mapping succeeded|"
    "Deleted value|Exported|Fork and|Harbrel unloaded.|Imported|LOG_OK logged|New subnet|Obtained unused|"
    "Removing NAT Port|Returning|Setting NAT|Started \"%s\"|Stopped \"%s\"|Subnet: %s|Success:|"
    "Success in configuring|Success in unconfiguring|Successfully %s|Successfully enabled|"
    "Successfully initialized|Successfully updated|Vnet: %s|Writing DHCP configuration file succ|"
    "Writing NAT configuration file succ|Removing DHCP configuration file succ|"
    "Removing NAT configuration file succ|\"%s\" service is currently";
constexpr char STEPS[] =
    "%zu bytes|Changes of|Child process|Config file used:|Current |Cleaned up|DHCP Config|DHCP config block|"
    "Database cache loaded|Database file is|Database file: %s was changed by|Duping Fds|Error removing NAT|"
    "Failed to restore value|Failed to set value of default bridge:|Found matching|Hash of DHCP|"
    "Host adapter:|LOG_INFO logged|Marking subnet:|Pinging to|Processed|Records of|Removed Adapter|"
    "Removed DHCP|Removed NAT|Removed all|Removed bridge|Removed subnet|Renamed database|Restored|"
    "Retrieved NAT|Stopped netifup service on vnet: %s|Success in getting DHCP|Successfully disabled|"
    "Successfully forked|Successfully killed|Version line|Virtual adapter|Writing configuration|"
    "\"%s\" Service|harbrel is already|harbrel is not|ioctl: %s set|ioctl: SIOCGIFFLAGS get|"
    "ioctl: SIOCSIFFLAGS set";
constexpr char WARNINGS[] =
    "Backing up|All the forwarded|Cannot delete from|DHCP config modified|Daemon process|"
    "Database file: %s cannot|Database file: %s is|Database file: %s was changed meanwhile,|Directory %s|"
    "Directory: %s already|Empty value|Failed to %s DHCP|Failed to %s bridge|Failed to %s hash|"
    "Failed to add NAT|Failed to add bridge|Failed to extract|Failed to load product|Failed to parse IP|"
    "Failed to parse MAC|Failed to parse VM|Failed to parse host|Failed to parse tcp/udp|"
    "Failed to parse vnet|Failed to remove NAT port forward from|Invalid adapter name|LOG_WRN logged|"
    "Network configuration|Unable to find BINDIR|Value not found for|waitpid()";
constexpr char ERRORS[] =
    "Adapter is currently|Custom file|DHCP config hash|Database cache is|Database file must|"
    "Description|Discarding|Existing networking|File %s does|File/Directory/device|Finished copying|"
    "Harbrel Un-Initialized,|Harbrel Un-Initialized.|Import file|Interface|LOG_ERR logged|List of DHCP|"
    "List of NAT|List of mappings|List of forwarded|Mask is not|Name of host|No DHCP IP|"
    "No ports to enumerate for|Non vnet|Removing newly|Reopened|Requested|Return value|Skipping adapter|"
    "Souce vnet:|Source and|The subnet|Trying to|Value of BINDIR|harbrel is initialized,|"
    "harbrel is loaded|pid: %ld|posEnd:%li";

// The first beginning that fits counts; level 0 is any.
constexpr struct {
    uint32_t level;
    const char *beginnings;
} LEVELS[] = {{0, UNJUDGED},     {LOG_INFO2, TRACE},  {LOG_ARGS, ARGUMENTS}, {LOG_OK, SUCCESSES},
              {LOG_INFO, STEPS}, {LOG_WRN, WARNINGS}, {LOG_ERR, ERRORS}};

// Whether a phrase of the list, between bars, stands in the words.
bool Has(std::string_view words, std::string_view list, bool atBeginning) {
    while (!list.empty()) {
        const std::string_view phrase = list.substr(0, list.find('|'));
        list.remove_prefix(std::min(list.size(), phrase.size() + 1));
        if (atBeginning ? words.starts_with(phrase) : words.find(phrase) != words.npos) {
            return true;
        }
    }
    return false;
}

uint32_t LevelOf(std::string_view words) {
    for (const auto &row : LEVELS) {
        if (Has(words, row.beginnings, true)) {
            return row.level;
        }
    }
    return Has(words, FAILURE_WORDS, false) ? LOG_ERR : LOG_INFO2;
}

std::atomic<unsigned> all = 0;
std::atomic<unsigned> reasons = 0;
std::atomic<uint32_t> sum = 0;

// Of the level and the words without digits and slashes: no address, number, time or temporary file.
uint32_t HashOfWords(uint32_t level, const std::string &line) {
    uint32_t hash = 2166136261 ^ level;  // FNV-1a
    std::istringstream words(line);
    for (std::string word; words >> word;) {
        for (const char letter : word.find_first_of("0123456789/") == word.npos ? word : "") {
            hash = (hash ^ static_cast<unsigned char>(letter)) * 16777619;
        }
    }
    return hash;
}

// `line` is the format with its values; words that came in with values tell nothing, unless there are no
// others.
void Check(uint32_t level, const char *format, const char *line) {
    const char *words = strncmp(format, "%s", 2) == 0 ? line : format;
    const uint32_t expected = LevelOf(words);
    all++;
    reasons += level == LOG_ERR || level == LOG_WRN;
    sum += HashOfWords(level, line);
    EXPECT_TRUE(expected == level || expected == 0) << "level " << level << " of: " << line;
}

void Pass(uint32_t level, const char *function, const char *format, va_list args) {
    const int reason = errno;
    char line[16384];
    vsnprintf(line, sizeof line, format, args);
    Check(level, format, line);
    __real__Z6HBLLogjPKcS0_z(level, function, "%s", line);
    errno = reason;
}

}  // namespace

LinesLogged LogLevels_Count() {
    return {all, reasons, sum};
}

void __wrap__Z6HBLLogjPKcS0_z(uint32_t level, const char *function, const char *format, ...) {
    va_list args;
    va_start(args, format);
    Pass(level, function, format, args);
    va_end(args);
}

void __wrap__ZNK11FunctionLogclEjPKcz(const FunctionLog *log, uint32_t level, const char *format, ...) {
    va_list args;
    va_start(args, format);
    Pass(level, log->Function(), format, args);
    va_end(args);
}
