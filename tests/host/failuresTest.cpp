// Every exported call while one call that it makes of the C library fails: a failure has its reason in the
// log, gives back lock and descriptors, and leaves nothing that keeps the same call from doing its work
// afterwards.
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <regex>
#include <string>

#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/base/libraryState.h"
#include "lib/harbrel/bridging/bridging.h"
#include "lib/harbrel/database/database.h"
#include "lib/harbrel/harbrel.h"
#include "tests/support/fakePrograms.h"
#include "tests/support/logLevels.h"
#include "tests/support/netns.h"

// Those of the C library whose failures are tried, with result and reason. The linker has calls come here
// first (--wrap).
#define FOR_EACH_FUNCTION(USE)                                                                             \
    USE(void *, calloc, (size_t count, size_t size), (count, size), nullptr, ENOMEM)                       \
    USE(char *, strdup, (const char *text), (text), nullptr, ENOMEM)                                       \
    USE(int, socket, (int domain, int type, int protocol), (domain, type, protocol), -1, EMFILE)           \
    USE(ssize_t, sendto,                                                                                   \
        (int fd, const void *data, size_t size, int flags, const sockaddr *to, socklen_t length),          \
        (fd, data, size, flags, to, length), -1, ENOBUFS)                                                  \
    USE(ssize_t, recv, (int fd, void *data, size_t size, int flags), (fd, data, size, flags), -1, ENOBUFS) \
    USE(int, pipe2, (int *ends, int flags), (ends, flags), -1, EMFILE)                                     \
    USE(int, mkdir, (const char *path, mode_t mode), (path, mode), -1, ENOSPC)                             \
    USE(int, mknod, (const char *path, mode_t mode, dev_t device), (path, mode, device), -1, ENOSPC)       \
    USE(int, rename, (const char *from, const char *to), (from, to), -1, EIO)                              \
    USE(int, unlink, (const char *path), (path), -1, EIO)                                                  \
    USE(FILE *, fdopen, (int fd, const char *mode), (fd, mode), nullptr, ENOMEM)                           \
    USE(size_t, fread, (void *data, size_t size, size_t count, FILE *file), (data, size, count, file), 0,  \
        EIO)                                                                                               \
    USE(size_t, fwrite, (const void *data, size_t size, size_t count, FILE *file),                         \
        (data, size, count, file), 0, ENOSPC)                                                              \
    USE(int, fputs, (const char *text, FILE *file), (text, file), EOF, ENOSPC)                             \
    USE(int, fflush, (FILE * file), (file), EOF, ENOSPC)                                                   \
    USE(int, fseek, (FILE * file, long offset, int whence), (file, offset, whence), -1, EIO)               \
    USE(long, ftell, (FILE * file), (file), -1, EIO)                                                       \
    USE(int, fsync, (int fd), (fd), -1, EIO)

namespace {

const char *failing = "";  // the name of the function, whose call behind so many fails
int callsBefore = 0;

bool FailsNow(const char *name) {
    return strcmp(name, failing) == 0 && callsBefore-- == 0;
}

}  // namespace

#define WRAP(result, name, parameters, arguments, failure, reason) \
    extern "C" result __real_##name parameters;                    \
    extern "C" result __wrap_##name parameters;                    \
    result __wrap_##name parameters {                              \
        if (FailsNow(#name)) {                                     \
            errno = reason;                                        \
            return failure;                                        \
        }                                                          \
        return __real_##name arguments;                            \
    }
FOR_EACH_FUNCTION(WRAP)

namespace {

#define NAME(result, name, parameters, arguments, failure, reason) #name,
constexpr const char *FUNCTIONS[] = {FOR_EACH_FUNCTION(NAME)};

// -s <fd> -d <pid file> ...; netifup: ... <node> <adapter>
const std::string DAEMON = "setsid sleep 600 > /dev/null 2>&1 & echo $! > $4; printf x > /proc/self/fd/$2\n";
const std::string NETIFUP = "ip link show $6 > /dev/null 2>&1 || ip link add $6 type veth\n" + DAEMON;

const char *vnet = "zelan8";  // the network of the calls

struct Call {
    const char *name;
    unsigned lines;          // of the log, at all levels, when nothing fails
    unsigned failuresLines;  // the same for all that may fail
    unsigned refusalsLines;  // and for all that refuses it
    std::function<bool()> call;
};

// One network with everything, on a loaded library.
class Network {
  public:
    Network() {
        host_.Program("zelan-netifup", NETIFUP);
        for (const char *daemon : {"zelan-bridge", "zelan-natd", "zelan-dhcpd", "zelan-detect"}) {
            host_.Program(daemon, DAEMON);
        }
        host_.Program("orvane-ping", "exit 1\n");
        for (const char *feature : {"VIRTUAL_ADAPTER", "NAT", "DHCP"}) {
            host_.Answer(std::string("VNET_8_") + feature, "yes");
        }
        host_.Answer("VNET_8_HOSTONLY_SUBNET", "192.168.40.0");
        host_.Answer("VNET_8_HOSTONLY_NETMASK", "255.255.255.0");
        EXPECT_TRUE(HBLNetCfgAddDHCPMACToIP(nullptr, 8, "00:0C:29:00:00:01", "192.168.40.9", false));
        EXPECT_TRUE(HBLNetCfgAddNATPortFwd(nullptr, 8, true, 80, "192.168.40.9", 80, "web", false));
        EXPECT_TRUE(HBLSetBridgeMapping("eth8", 8) && HBLSetBridgeMapping("eth5", 5));
        EXPECT_TRUE(HBLSetDefaultBridgeVnet(0));
        EXPECT_TRUE(HBL_UpdateDHCPFromConfig("zelan8") && HBL_UpdateNATFromConfig("zelan8"));
    }
    ~Network() {
        for (const uint32_t service :
             {HBL_SERVICE_BRIDGE, HBL_SERVICE_DHCP, HBL_SERVICE_NAT, HBL_SERVICE_NETIFUP}) {
            HBL_StopService("zelan8", service);
        }
        RunShell("ip link del zelan8; rm -rf /dev/zelan8");
    }
    // What is stored, and what was generated from it.
    std::string State() const {
        const std::string copy = host_.Path("copy");
        EXPECT_TRUE(NetCfgWriteDatabaseFile(*HBLNetCfgDefaultSlot(), copy.c_str(), false));
        std::string state = ReadFileText(copy);
        for (const char *file : {"conf/zelan8/dhcpd/dhcpd.conf", "conf/zelan8/nat/nat.conf"}) {
            state += "\n" + ReadFileText(host_.Path(file));
        }
        // Other in each test and at each time.
        state = std::regex_replace(state, std::regex("CFG_HASH .*|Written at: .*"), "");
        for (size_t at; (at = state.find(host_.Path(""))) != state.npos;) {
            state.erase(at, host_.Path("").size());
        }
        return state;
    }
    void Answer(const char *key, const std::string &value) { host_.Answer(key, value); }
    // Nothing can be locked while a file stands where the lock's folder belongs.
    void Block() const { WriteFileText(host_.Path("networking.lck"), "in the way"); }
    void Unblock() const { std::filesystem::remove(host_.Path("networking.lck")); }
    static bool LockIsFree() { return HBLNetCfgLockConfig(nullptr) && HBLNetCfgUnlockConfig(nullptr); }

  private:
    FakePrograms host_;
};

size_t Descriptors() {
    return static_cast<size_t>(std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}));
}

// Whether the k-th call of the function came, and failed.
bool Fail(const Call &call, const char *function, int k, bool *result) {
    failing = function;
    callsBefore = k;
    *result = call.call();
    failing = "";
    return callsBefore < 0;
}

class Failures : public testing::TestWithParam<Call> {};

TEST_P(Failures, HaveAReasonAndLeaveNothingBehind) {
    LogCapture log(HBL_MAX_LOG_MASK);
    std::string undisturbed;
    {
        const Network network;
        log.Take();
        const LinesLogged before = LogLevels_Count();
        ASSERT_TRUE(GetParam().call());
        EXPECT_EQ(GetParam().lines, LogLevels_Count().all - before.all) << log.Take();
        undisturbed = network.State();
    }
    unsigned lines = 0;
    for (const char *function : FUNCTIONS) {
        bool came = true;
        for (int k = 0; came; k++) {
            SCOPED_TRACE(function + std::string(" ") + std::to_string(k));
            const Network network;
            const size_t descriptors = Descriptors();
            const LinesLogged before = LogLevels_Count();
            bool result = true;
            came = Fail(GetParam(), function, k, &result);
            const LinesLogged after = LogLevels_Count();
            lines += after.all - before.all;
            EXPECT_TRUE(after.reasons > before.reasons || (result && undisturbed == network.State()));
            EXPECT_EQ(descriptors, Descriptors());
            EXPECT_TRUE(Network::LockIsFree());
            EXPECT_TRUE(GetParam().call());
            EXPECT_EQ(undisturbed, network.State());
        }
    }
    EXPECT_EQ(GetParam().failuresLines, lines) << "a line that was added or lost";
}

// Each makes the call impossible, or has no bearing on it.
const std::function<void(Network *)> OBSTACLES[] = {
    [](Network *) { HBLDropLoad(); },
    [](Network *network) { network->Block(); },
    [](Network *) { vnet = nullptr; },
    [](Network *) { vnet = "zelan256"; },
    [](Network *network) { network->Answer("VNET_8_VIRTUAL_ADAPTER_NAME", std::string(200, 'x')); },
};

TEST_P(Failures, OfRefusedCallsHaveAReasonAndChangeNothing) {
    unsigned lines = 0;
    for (const auto &obstacle : OBSTACLES) {
        SCOPED_TRACE(&obstacle - OBSTACLES);
        Network network;
        obstacle(&network);
        const std::string before = network.State();
        const LinesLogged logged = LogLevels_Count();
        const bool result = GetParam().call();
        lines += LogLevels_Count().all - logged.all;
        EXPECT_TRUE(result || LogLevels_Count().reasons > logged.reasons);
        EXPECT_TRUE(result || before == network.State());
        vnet = "zelan8";
        if (!HBLIsLoaded()) {
            EXPECT_FALSE(result);
            HBLAddLoad();
        }
        network.Unblock();
        EXPECT_TRUE(Network::LockIsFree());
    }
    EXPECT_EQ(GetParam().refusalsLines, lines) << "a line that was added or lost";
}

HBL_NetworkID NetworkId(int32_t number) {
    return {1, HBL_NETWORK_TYPE_VNET, number, {}};
}
bool Move(const char *name, int32_t number) {
    HBL_HostAdapter adapter = {};
    adapter.version = 1;
    strcpy(adapter.deviceName, name);
    const HBL_NetworkID network = NetworkId(number);
    return HBL_BridgeMoveAdapter(&adapter, nullptr, &network);
}
bool SetDefault(int32_t number) {
    const HBL_NetworkID network = NetworkId(number);
    return HBL_SetBridgeDefaultNetwork(&network);
}
bool Features(bool (*function)(HBL_VnetFeatures *)) {
    HBL_VnetFeatures features = {};
    features.version = 1;
    features.net = NetworkId(8);
    return function(&features);
}

char text[128];
char otherText[128];
uint32_t size, otherSize;
uint16_t port;
uint32_t *Size(uint32_t *of) {
    *of = sizeof text;
    return of;
}
uint32_t *Start() {
    static uint32_t offset;
    offset = 0;
    return &offset;
}

const Call CALLS[] = {
    {"AddAnswer", 0, 13, 1, [] { return HBL_VnetCfgAddAnswer("VNET_8_HOSTONLY_SUBNET", "192.168.41.0"); }},
    {"RemoveAnswer", 0, 2, 1, [] { return HBL_VnetCfgRemoveAnswer("VNET_8_DHCP"); }},
    {"SetDefaultLogLevel", 5, 126, 22, [] { return HBL_SetDefaultLogLevel(9); }},
    {"StartNat", 30, 599, 51, [] { return HBL_StartService(vnet, HBL_SERVICE_NAT); }},
    {"StartBridge", 31, 647, 53, [] { return HBL_StartService(vnet, HBL_SERVICE_BRIDGE); }},
    {"StopService", 9, 162, 21, [] { return HBL_StopService(vnet, HBL_SERVICE_NAT); }},
    {"DeleteVnet", 364, 7817, 71, [] { return HBL_DeleteVnetFromDatabase(vnet); }},
    {"DhcpOff", 41, 977, 56, [] { return HBL_SetVnetUseDHCP(vnet, false, true); }},
    {"DhcpOn", 16, 482, 31,
     [] { return HBL_SetVnetUseDHCP(vnet, false, false) && HBL_SetVnetUseDHCP(vnet, true, false); }},
    {"SetDhcpParam", 11, 264, 28,
     [] { return HBL_SetDHCPParam(vnet, HBL_PARAM_DHCP_LONGEST_LEASE, "60", 2); }},
    {"GetDhcpParam", 13, 234, 36,
     [] { return HBL_GetDHCPParam(vnet, HBL_PARAM_DHCP_FIRST_ADDRESS, true, text, Size(&size)); }},
    {"SetTie", 11, 305, 26, [] { return HBL_SetDHCPIPToMAC(vnet, "192.168.40.10", "00:0C:29:00:00:01"); }},
    {"RemoveTie", 22, 549, 37,
     [] {
         return HBL_SetDHCPIPToMAC(vnet, "192.168.40.9", "00:0C:29:00:00:01") &&
                HBL_SetDHCPIPToMAC(vnet, nullptr, "00:0C:29:00:00:01");
     }},
    {"EnumTies", 4, 72, 18,
     [] { return HBL_EnumDHCPIPToMAC(vnet, Start(), text, Size(&size), otherText, Size(&otherSize)); }},
    {"UpdateDhcp", 115, 10128, 132,
     [] {
         return HBL_SetDHCPParam(vnet, HBL_PARAM_DHCP_LONGEST_LEASE, "60", 2) &&
                HBL_UpdateDHCPFromConfig(vnet);
     }},
    {"NatOff", 11, 293, 26, [] { return HBL_SetVnetUseNAT(vnet, false, true); }},
    {"SetNatParam", 10, 241, 26, [] { return HBL_SetNATParam(vnet, HBL_PARAM_NAT_UDP_TIMEOUT, "30", 2); }},
    {"GetNatParam", 9, 162, 26,
     [] { return HBL_GetNATParam(vnet, HBL_PARAM_NAT_GATEWAY, true, text, Size(&size)); }},
    {"SetForward", 9, 255, 24,
     [] { return HBL_SetNATPortForward(vnet, true, 80, "192.168.40.10", 81, "ftp", 3); }},
    {"RemoveForward", 17, 421, 32,
     [] {
         return HBL_SetNATPortForward(vnet, true, 80, "192.168.40.9", 80, nullptr, 0) &&
                HBL_SetNATPortForward(vnet, true, 80, nullptr, 0, nullptr, 0);
     }},
    {"EnumForwards", 4, 72, 18,
     [] {
         return HBL_EnumNATPortForward(vnet, true, Start(), &port, text, Size(&size), &port, otherText,
                                       Size(&otherSize));
     }},
    {"UpdateNat", 49, 1468, 70, [] { return HBL_UpdateNATFromConfig(vnet); }},
    {"EnableAdapter", 38, 869, 22, [] { return HBL_EnableNetworkAdapter(vnet); }},
    {"UpdateAdapter", 58, 1558, 22,
     [] { return HBL_EnableNetworkAdapter(vnet) && HBL_UpdateAdapterFromConfig(vnet); }},
    {"DisableAdapter", 55, 1501, 22,
     [] { return HBL_EnableNetworkAdapter(vnet) && HBL_DisableNetworkAdapter(vnet); }},
    {"AdapterOff", 8, 213, 23, [] { return HBL_SetVnetUseAdapter(vnet, false, true); }},
    {"AdapterList", 16, 337, 68,
     [] {
         HBL_HostAdapterList *list = nullptr;
         const bool got = HBL_GetHostAdapterList(1, &list);
         HBL_FreeHostAdapterList(list);
         return got;
     }},
    {"DefaultOff", 23, 605, 76, [] { return SetDefault(HBL_VNET_NONE); }},
    {"MoveAdapter", 34, 893, 113, [] { return Move("eth5", 8); }},
    {"GetFeatures", 23, 463, 94, [] { return Features(HBL_GetVnetFeatures); }},
    {"SetSubnet", 6, 163, 21, [] { return HBL_SetVnetSubnetAddr(vnet, "192.168.42.0"); }},
    {"GetAdapterAddress", 5, 90, 20, [] { return HBL_GetVnetAdapterAddr(vnet, text, Size(&size), true); }},
    {"Export", 12, 440, 43, [] { return HBL_ExportDatabaseToFile("/tmp/export"); }},
};

INSTANTIATE_TEST_SUITE_P(Of, Failures, testing::ValuesIn(CALLS),
                         [](const auto &instance) { return instance.param.name; });

}  // namespace
