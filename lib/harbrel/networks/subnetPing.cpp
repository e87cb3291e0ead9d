// Asking orvane-ping whether anything answers on a subnet. Runs on many threads at once: reads the cache, and
// keeps everything else on its own stack.
#include <cstring>

#include "lib/file/posix.h"
#include "lib/harbrel/addresses/addresses.h"
#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/cache/cache.h"
#include "lib/harbrel/networks/subnets.h"
#include "lib/string/str.h"

namespace {

constexpr unsigned MAX_BINDIR_SIZE = 256;
constexpr size_t COMMAND_SIZE = 2096;

// The exit statuses of orvane-ping that mean something here; anything else counts as a subnet in use.
enum PingStatus : int {
    PING_NO_ANSWER = 1,
    PING_UNREACHABLE = 2,  // no way leads to the subnet, so nobody can have it
};

struct PingCommand {
    std::string binDir;
    uint32_t timeout;
    uint32_t interval;
};

bool FindBinDir(FunctionLog log, std::string *binDir) {
    const auto stored = HBLNetCfgCopyAnswer(nullptr, "BINDIR");
    if (!stored.has_value()) {
        log(LOG_WRN, "Unable to find BINDIR in host config database.");
    }
    *binDir = stored.value_or("/usr/bin");
    if (binDir->size() >= MAX_BINDIR_SIZE) {
        log(LOG_ERR, "Value of BINDIR is bigger than allowed %u chracters", MAX_BINDIR_SIZE);
        return false;
    }
    return true;
}

// The exit status of one command; `options` ends in a blank unless it is empty.
int RunPing(const PingCommand &ping, const char *options, uint32_t address) {
    char addressText[HBL_IP_STR_SIZE];
    char command[COMMAND_SIZE];
    HBLIPInt2Str(address, addressText);
    Str_Sprintf(command, sizeof command, "%s/orvane-ping -q %s%s -t %u -i %u", ping.binDir.c_str(), options,
                addressText, ping.timeout, ping.interval);
    return (Posix_System(command) >> 8) & 0xff;
}

}  // namespace

bool HBLPingAndCheckSubnet(const char *subnet, bool broadcast, uint32_t timeout, uint32_t interval) {
    const FunctionLog log(__func__);
    log(LOG_INFO2, "Ping arguments, subnet: %s, broadcast: %s, timeout: %u interval: %u", subnet,
        broadcast ? "true" : "false", timeout, interval);
    PingCommand ping = {.binDir = {}, .timeout = timeout, .interval = interval};
    uint32_t address = 0;
    if (!FindBinDir(log, &ping.binDir) || !HBLIPStr2Int(subnet, &address)) {
        return false;
    }
    int status = PING_NO_ANSWER;
    if (broadcast) {
        status = RunPing(ping, "-b ", address);
    }
    if (status == PING_NO_ANSWER) {
        status = RunPing(ping, "", address + 1);
    }
    if (status != PING_NO_ANSWER && status != PING_UNREACHABLE) {
        log(LOG_ERR, "Return value of orvane-ping: %d", status);
        return false;
    }
    return true;
}
