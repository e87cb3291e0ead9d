// Every exported call while one call that it makes of the C library fails, or while something stands in its
// way: a failure has its reason in the log, gives back lock and descriptors, and leaves nothing that keeps
// the same call from doing its work afterwards.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <map>
#include <regex>
#include <span>
#include <string>
#include <utility>

#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/base/libraryState.h"
#include "lib/harbrel/bridging/bridging.h"
#include "lib/harbrel/database/database.h"
#include "lib/harbrel/harbrel.h"
#include "lib/harbrel/networks/subnetTables.h"
#include "lib/log/log.h"
#include "tests/support/bridgeCalls.h"
#include "tests/support/fakePrograms.h"
#include "tests/support/logLevels.h"
#include "tests/support/netns.h"

// Those of the C library, and at the end some of the library's own, whose failures are tried, with result and
// reason. The linker has calls come here first (--wrap). Their arguments and results are integers and
// addresses, which all travel alike.
// clang-format off
#define FOR_EACH_FUNCTION(USE) \
    USE(vasprintf, -1, ENOMEM) USE(reallocarray, 0, ENOMEM) USE(calloc, 0, ENOMEM) \
    USE(open_memstream, 0, ENOMEM) USE(fwrite, 0, ENOSPC) USE(fputs, -1, ENOSPC) \
    USE(fflush, -1, ENOSPC) USE(strdup, 0, ENOMEM) USE(strndup, 0, ENOMEM) USE(open, -1, EMFILE) \
    USE(mkostemp, -1, EMFILE) USE(openat, -1, EMFILE) USE(fcntl, -1, EMFILE) USE(fstat, -1, EIO) \
    USE(fstatat, -1, EIO) USE(pread, -1, EIO) USE(read, -1, EIO) USE(write, -1, ENOSPC) \
    USE(setvbuf, -1, ENOMEM) USE(ioctl, -1, EPERM) USE(mkdirat, -1, ENOSPC) USE(renameat, -1, EIO) \
    USE(link, -1, EPERM) USE(socket, -1, EMFILE) USE(sendto, -1, ENOBUFS) USE(recv, -1, ENOBUFS) \
    USE(pipe2, -1, EMFILE) USE(mkdir, -1, ENOSPC) USE(mknod, -1, ENOSPC) USE(rename, -1, EIO) \
    USE(unlink, -1, EIO) USE(fdopen, 0, ENOMEM) USE(fread, 0, EIO) USE(fseek, -1, EIO) USE(ftell, -1, EIO) \
    USE(fsync, -1, EIO) USE(stat, -1, EIO) USE(lstat, -1, EIO) USE(access, -1, EIO) USE(inet_pton, 0, EINVAL) \
    USE(rmdir, -1, EIO) USE(_Z13HBLFileDBLoadv, 0, EIO) USE(_Z14HBLSubnetProbePcS_, 0, EIO) \
    USE(_Z15NetCfgTrackFileP25HBLNetworkConfigurationDB, 0, EIO) USE(_Z16HBLFileDBAddFilePKcS0_, 0, EIO) \
    USE(_Z21HBLFileDBAddDirectoryPKc, 0, EIO) USE(_Z23HBLGetHostAdapterBridgePKcPi, 0, EIO) \
    USE(_Z38HBLSetBridgeMappingForMultipleAdaptersiRK16HostAdapterChain, 0, EIO) \
    USE(_Z17HBLRestartServicejjPbS_b, 0, EIO) USE(_Z14HBLServiceStopjj, 0, EIO) \
    USE(_Z15HBLServiceStartjj, 0, EIO) USE(_Z25HBLGetVnetVirtAdapterNamejPcm, 0, EIO) \
    USE(_Z14HBLGetFileNamejjPcm, 0, EIO) \
    USE(_Z26NetCfgUpdateDatabaseFieldsP25HBLNetworkConfigurationDB, 0, EIO) \
    USE(_Z34HBLNetCfgLookupHostAdaptersForVnetP25HBLNetworkConfigurationDBiP16HostAdapterChainb, 0, EIO) \
    USE(_Z20HBLGetVnetSubnetAddrjPcm, 0, EIO) USE(_Z20HBLGetVnetSubnetMaskjPcm, 0, EIO) \
    USE(_Z25HBLGetVnetVirtAdapterAddrjPcmb, 0, EIO) USE(_Z15HBLGetBcastAddrPKcS0_Pc, 0, EIO) \
    USE(_Z20HBLVirtAdapterEnablej, 0, EIO) USE(_Z21HBLVirtAdapterDisablej, 0, EIO) \
    USE(_Z19HBLSetBridgeMappingPKci, 0, EIO) USE(_Z17HBLGetPidFilenamejjPPcPPKc, 0, EIO) \
    USE(_Z13HBLForkDaemonRK13DaemonProcess, -1, EAGAIN) \
    USE(_Z11HBLCopyFilePKcS0_, 0, EIO) USE(_Z13HBLCreateFilejjPKc, 0, EIO) \
    USE(_Z13HBLSetVnetCfgjPKcS0_, 0, EIO) USE(_Z17HBLNATRemoveParamjj, 0, EIO) \
    USE(_Z19NetCfgHashAddAnswerP25HBLNetworkConfigurationDBPKcS2_, 0, EIO) \
    USE(_Z26NetCfgHashAddBridgeMappingP25HBLNetworkConfigurationDBPKci, 0, EIO)
// clang-format on

namespace {

const char *watched;  // the function whose call behind so many fails; "": all are counted; null: none is
int callsBefore;
bool forGood;  // and each one after that
std::map<std::string, int> callsMade;

bool FailsNow(const char *name) {
    if (watched != nullptr && *watched == '\0') {
        callsMade[name]++;
    }
    if (watched == nullptr || strcmp(name, watched) != 0) {
        return false;
    }
    const int before = callsBefore--;
    return before == 0 || (forGood && before < 0);
}

}  // namespace

#define WRAP(name, failure, reason)                                                                \
    extern "C" long __real_##name(long, long, long, long, long, long);                             \
    extern "C" long __wrap_##name(long, long, long, long, long, long);                             \
    long __wrap_##name(long first, long second, long third, long fourth, long fifth, long sixth) { \
        if (FailsNow(#name)) {                                                                     \
            errno = reason;                                                                        \
            return failure;                                                                        \
        }                                                                                          \
        return __real_##name(first, second, third, fourth, fifth, sixth);                          \
    }
FOR_EACH_FUNCTION(WRAP)

// Its arguments are of all kinds.
extern "C" int __wrap_fprintf(FILE *stream, const char *format, ...);
int __wrap_fprintf(FILE *stream, const char *format, ...) {
    if (FailsNow("fprintf")) {
        errno = ENOSPC;
        return -1;
    }
    va_list args;
    va_start(args, format);
    const int length = vfprintf(stream, format, args);
    va_end(args);
    return length;
}

namespace {

#define NAME(name, failure, reason) #name,
constexpr const char *FUNCTIONS[] = {"fprintf", FOR_EACH_FUNCTION(NAME)};

// -s <fd> -d <pid file> ...; netifup: ... <node> <adapter>
const std::string DAEMON =
    "setsid sleep 600 > /dev/null 2>&1 & echo $! > $4; printf x > /proc/self/fd/$2; echo $@ > $0.arguments\n";
const std::string NETIFUP = "ip link show $6 > /dev/null 2>&1 || ip link add $6 type veth\n" + DAEMON;

constexpr const char *DATABASE = "/etc/orvane/networking";
constexpr const char *BACKUP = "/tmp/backup";
constexpr const char *FORMER = "/etc/orvane/networking.bak.0";

char text[128];
char otherText[128];
uint32_t size, otherSize;
uint32_t successes;  // of the calls that are made together
uint16_t port;

// Arguments of the calls.
const char *vnet;
const char *mac;
uint32_t room;     // in the buffers
uint32_t foreign;  // added to the number of a parameter
uint32_t version;

struct Call {
    const char *name;
    bool panics;     // when it lacks memory
    unsigned lines;  // of both logs, at all levels, of all that is tried with the call
    uint32_t words;  // the sum that LogLevels_Count tells, of the library's own log, and the calls' successes
    std::function<bool()> call;
};

// One network with everything, on a loaded library.
class Network {
  public:
    Network() {
        vnet = "zelan8";
        mac = "00:0C:29:00:00:01";
        room = sizeof text;
        foreign = 0;
        version = 1;
        WriteFileText(DATABASE, "VERSION=1,0\nanswer VNET_8_DHCP yes\n");
        WriteFileText(BACKUP,
                      "BACKUP_VERSION=0,0\nanswer VNET_2_INTERFACE eth0\nanswer VNET_8_DHCP no\n"
                      "answer VNET_8_HOSTONLY_HOSTADDR 192.168.40.1\n");
        // A cache that is read anew takes it from there.
        WriteFileText("/etc/orvane/config", "bindir = \"" + host_.Path("bin") + "\"\n");
        host_.Program("zelan-netifup", NETIFUP);
        for (const char *daemon : {"zelan-bridge", "zelan-natd", "zelan-dhcpd", "zelan-detect"}) {
            host_.Program(daemon, DAEMON);
        }
        host_.Program("orvane-ping", "exit 1\n");
        for (const char *feature : {"VIRTUAL_ADAPTER", "NAT", "DHCP"}) {
            host_.Answer(std::string("VNET_8_") + feature, "yes");
        }
        host_.Answer("VNET_8_HOSTONLY_SUBNET", "192.168.40.0");
        host_.Answer("VNET_8_DHCP_PARAM_SUB_DEFAULT_LEASE_TIME", "70");
        host_.Answer("VNET_8_HOSTONLY_NETMASK", "255.255.255.0");
        EXPECT_TRUE(HBLNetCfgAddDHCPMACToIP(nullptr, 8, mac, "192.168.40.9", false));
        EXPECT_TRUE(HBLNetCfgAddNATPortFwd(nullptr, 8, true, 80, "192.168.40.9", 80, "web", false));
        EXPECT_TRUE(HBLSetBridgeMapping("eth8", 8) && HBLSetBridgeMapping("eth5", 5));
        EXPECT_TRUE(HBLSetDefaultBridgeVnet(0));
        EXPECT_TRUE(HBL_UpdateDHCPFromConfig("zelan8") && HBL_UpdateNATFromConfig("zelan8"));
    }
    ~Network() {
        Restore();
        for (const uint32_t service :
             {HBL_SERVICE_BRIDGE, HBL_SERVICE_DHCP, HBL_SERVICE_NAT, HBL_SERVICE_NETIFUP}) {
            HBL_StopService("zelan8", service);
        }
        HBL_StopService("zelan0", HBL_SERVICE_BRIDGE);
        RunShell("ip link del zelan8; rm -rf /dev/zelan8 /etc/orvane/networking* /tmp/networking_export");
    }
    // What is stored, and what was generated from it.
    std::string State() const {
        const std::string copy = host_.Path("copy");
        HBLNetworkConfigurationDB *const db = cache_ != nullptr ? cache_ : *HBLNetCfgDefaultSlot();
        EXPECT_TRUE(NetCfgWriteDatabaseFile(db, copy.c_str(), false));
        std::string state = ReadFileText(copy);
        for (const char *file : {"conf/zelan8/dhcpd/dhcpd.conf", "conf/zelan8/nat/nat.conf"}) {
            state += "\n" + ReadFileText(host_.Path(file));
        }
        std::map<std::string, std::string> files;
        for (const std::string &folder : {host_.Path(""), std::string("/etc/orvane")}) {
            for (const auto &entry : std::filesystem::recursive_directory_iterator(folder)) {
                const std::string path = entry.path();
                const bool read = path == DATABASE || path.ends_with(".arguments");
                files[path] = read ? ReadFileText(path) : "";
            }
        }
        for (const auto &[path, content] : files) {
            state += path + "\n" + content;
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
    void TakeCacheAway() { cache_ = std::exchange(*HBLNetCfgDefaultSlot(), nullptr); }
    // Takes obstacles back, but for answers.
    void Restore() {
        if (cache_ != nullptr) {
            *HBLNetCfgDefaultSlot() = std::exchange(cache_, nullptr);
        }
        if (!HBLIsLoaded()) {
            HBLAddLoad();
        }
        std::filesystem::remove(host_.Path("networking.lck"));
    }
    static bool LockIsFree() { return HBLNetCfgLockConfig(nullptr) && HBLNetCfgUnlockConfig(nullptr); }

  private:
    FakePrograms host_;
    HBLNetworkConfigurationDB *cache_ = nullptr;
};

size_t Descriptors() {
    return static_cast<size_t>(std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}));
}

bool Watch(const char *function, int before, const std::function<bool()> &call) {
    const char *const former = std::exchange(watched, function);
    callsBefore = before;
    const bool done = call();
    watched = former;
    return done;
}
// What a call needs before it, which other calls are tried for.
bool Undisturbed(const std::function<bool()> &preparation) {
    return Watch(nullptr, callsBefore, preparation);
}

class Failures : public testing::TestWithParam<Call> {};

struct Obstacle {
    bool refused;  // a call that this makes impossible changes nothing
    std::function<void(Network *)> put;
};

const Obstacle OBSTACLES[] = {
    {true, [](Network *) { HBLDropLoad(); }},
    {true, [](Network *network) { network->Block(); }},
    {true, [](Network *network) { network->TakeCacheAway(); }},
    {true, [](Network *network) { network->Answer("VNET_8_VIRTUAL_ADAPTER_NAME", std::string(200, 'x')); }},
    {false, [](Network *network) { network->Answer("CONFIGDIR", std::string(1500, 'x')); }},
    {false, [](Network *network) { network->Answer("RUNDIR", std::string(1500, 'x')); }},
    {true, [](Network *) { vnet = nullptr; }},
    {true, [](Network *) { vnet = "zelan256"; }},
    {true, [](Network *) { mac = nullptr; }},
    {true, [](Network *) { mac = "00:0C:29:00:00"; }},
    {true, [](Network *) { room = 1; }},
    {true, [](Network *) { foreign = 1000; }},
    {true, [](Network *) { version = 2; }},
    {false,
     [](Network *network) {
         network->Answer(HBL_DEFAULT_BRIDGE_KEY, "1");
         HBLDefaultBridgeCopy() = HBL_DEFAULT_BRIDGE_UNREAD;  // as at a load
     }},
};

TEST_P(Failures, HaveAReasonAndLeaveNothingBehind) {
    const std::function<bool()> &call = GetParam().call;
    const LogCapture log;  // daemons are given one
    static unsigned logged;
    logged = 0;
    uint32_t words = 0;
    HBLSubnetTables() = {};
    const auto alsoCounted = [](const char *, va_list) { logged++; };
    Log_SetLogHook(alsoCounted);
    Log_SetWarningHook(alsoCounted);
    const auto count = [&words](const std::function<bool()> &disturbed, bool *reasons) {
        const LinesLogged before = LogLevels_Count();
        successes = 0;
        const bool result = disturbed();
        const LinesLogged after = LogLevels_Count();
        logged += after.all - before.all;
        words += after.words - before.words + result + successes;
        *reasons = after.reasons > before.reasons;
        return result;
    };
    std::string undisturbed;
    bool reasons = false;
    {
        const Network network;
        callsMade.clear();
        ASSERT_TRUE(count([&call] { return Watch("", 0, call); }, &reasons));
        undisturbed = network.State();
    }
    for (const char *function : std::span(FUNCTIONS).subspan(GetParam().panics ? 8 : 0)) {
        // What is found out once only is not asked for again.
        for (int k = 0; k < 2 * callsMade[function] && (k < 2 || callsBefore < 0); k++) {
            forGood = k % 2 == 1;
            SCOPED_TRACE(function + std::string(" ") + std::to_string(k));
            const Network network;
            const size_t descriptors = Descriptors();
            const bool result = count([&] { return Watch(function, k / 2, call); }, &reasons);
            EXPECT_GE(descriptors, Descriptors());
            EXPECT_TRUE(result || reasons);
            if (forGood) {  // nor can the way back be gone then
                EXPECT_TRUE(Network::LockIsFree() || *HBLNetCfgDefaultSlot() == nullptr);
                continue;
            }
            EXPECT_TRUE(Network::LockIsFree());
            EXPECT_TRUE(!reasons || call());
            EXPECT_EQ(undisturbed, network.State());
        }
    }
    for (const auto &obstacle : OBSTACLES) {
        SCOPED_TRACE(&obstacle - OBSTACLES);
        Network network;
        obstacle.put(&network);
        const std::string before = network.State();
        const bool result = count(call, &reasons);
        EXPECT_TRUE(result || reasons);
        EXPECT_TRUE(result || !obstacle.refused || before == network.State());
        network.Restore();
        EXPECT_TRUE(Network::LockIsFree());
    }
    EXPECT_EQ(std::pair(GetParam().lines, GetParam().words), std::pair(logged, words))
        << "a line that was added, lost or changed";
}

bool Features(bool (*function)(HBL_VnetFeatures *)) {
    HBL_VnetFeatures features = {};
    features.version = version;
    features.net = NetworkOf(8, version);
    return function(&features);
}

uint32_t *Size(uint32_t *of) {
    *of = room;
    return of;
}
uint32_t *Start() {
    static uint32_t offset;
    offset = 0;
    return &offset;
}

// Of calls that are all made.
bool All(std::initializer_list<bool> results) {
    successes += static_cast<uint32_t>(std::ranges::count(results, true));
    return std::ranges::all_of(results, std::identity());
}
// Where there is no subnet, and off, then once more with a clean-up.
bool TurnOn(bool (*set)(const char *vnet, bool use, bool cleanup)) {
    return Undisturbed([set] { return HBL_SetVnetSubnetAddr(vnet, nullptr) && set(vnet, false, false); }) &&
           set(vnet, true, false) && Undisturbed([] { return HBL_SetVnetSubnetAddr(vnet, "192.168.40.0"); });
}
bool TurnOff(bool (*set)(const char *vnet, bool use, bool cleanup)) {
    return set(vnet, false, false) && set(vnet, false, true);
}
bool Unloaded(bool (*call)()) {
    const bool loaded = HBLIsLoaded() && HBLDropLoad();
    const bool result = call();
    return loaded ? HBLAddLoad() && result : result;
}

const Call CALLS[] = {
    {"AddAnswer", false, 81, 2180008411,
     [] { return HBL_VnetCfgAddAnswer("VNET_8_HOSTONLY_SUBNET", "192.168.41.0"); }},
    {"RemoveAnswer", false, 37, 1376199255, [] { return HBL_VnetCfgRemoveAnswer("VNET_8_DHCP"); }},
    {"SetDefaultLogLevel", false, 295, 2231833820, [] { return HBL_SetDefaultLogLevel(9); }},
    {"StartNat", false, 1771, 4224145874, [] { return HBL_StartService(vnet, HBL_SERVICE_NAT); }},
    {"StartBridge", false, 6553, 1163075005,
     [] {
         return HBL_StartService(vnet, HBL_SERVICE_BRIDGE) && HBL_StartService("zelan0", HBL_SERVICE_BRIDGE);
     }},
    {"StopService", false, 310, 2438454924, [] { return HBL_StopService(vnet, HBL_SERVICE_NAT); }},
    {"DeleteVnet", false, 29186, 333776091, [] { return HBL_DeleteVnetFromDatabase(vnet); }},
    {"DhcpOff", false, 2316, 3298636442, [] { return TurnOff(HBL_SetVnetUseDHCP); }},
    {"DhcpOn", false, 2695, 2633270513, [] { return TurnOn(HBL_SetVnetUseDHCP); }},
    {"NatOff", false, 1029, 123942439, [] { return TurnOff(HBL_SetVnetUseNAT); }},
    {"NatOn", false, 2748, 2220864800, [] { return TurnOn(HBL_SetVnetUseNAT); }},
    {"AdapterOff", false, 855, 2459704711, [] { return TurnOff(HBL_SetVnetUseAdapter); }},
    {"AdapterOn", false, 2695, 995031291, [] { return TurnOn(HBL_SetVnetUseAdapter); }},
    {"SetParams", false, 1750, 2078056545,
     [] {
         return All({HBL_SetDHCPParam(vnet, HBL_PARAM_DHCP_LONGEST_LEASE + foreign, "60", 2),
                     HBL_SetNATParam(vnet, HBL_PARAM_NAT_UDP_TIMEOUT + foreign, "30", 2)});
     }},
    {"SetTie", false, 540, 2972814382, [] { return HBL_SetDHCPIPToMAC(vnet, "192.168.40.10", mac); }},
    {"RemoveTie", false, 733, 3236996730,
     [] {
         return Undisturbed([] { return HBL_SetDHCPIPToMAC(vnet, "192.168.40.9", mac); }) &&
                HBL_SetDHCPIPToMAC(vnet, nullptr, mac);
     }},
    {"UpdateDhcp", false, 24993, 4268725458,
     [] {
         return Undisturbed([] { return HBL_SetDHCPParam(vnet, HBL_PARAM_DHCP_LONGEST_LEASE, "60", 2); }) &&
                HBL_UpdateDHCPFromConfig(vnet);
     }},
    {"SetForward", false, 499, 4016977883,
     [] { return HBL_SetNATPortForward(vnet, true, 80, "192.168.40.10", 81, "ftp", 3); }},
    {"RemoveForward", false, 622, 3582332235,
     [] {
         return Undisturbed(
                    [] { return HBL_SetNATPortForward(vnet, true, 80, "192.168.40.9", 80, nullptr, 0); }) &&
                HBL_SetNATPortForward(vnet, true, 80, nullptr, 0, nullptr, 0);
     }},
    {"RemoveParams", false, 2524, 1034625312,
     [] {
         return Undisturbed([] {
                    return HBL_SetNATParam(vnet, HBL_PARAM_NAT_UDP_TIMEOUT, "30", 2) &&
                           HBL_SetDHCPParam(vnet, HBL_PARAM_DHCP_LONGEST_LEASE, "60", 2);
                }) &&
                All({HBL_SetNATParam(vnet, HBL_PARAM_NAT_UDP_TIMEOUT, nullptr, 0),
                     HBL_SetDHCPParam(vnet, HBL_PARAM_DHCP_LONGEST_LEASE, nullptr, 0)});
     }},
    {"UpdateNat", false, 5418, 507878051, [] { return HBL_UpdateNATFromConfig(vnet); }},
    {"EnableAdapter", false, 3540, 3086719847, [] { return HBL_EnableNetworkAdapter(vnet); }},
    {"UpdateAdapter", false, 4453, 1226901356,
     [] {
         return Undisturbed([] { return HBL_EnableNetworkAdapter(vnet); }) &&
                HBL_UpdateAdapterFromConfig(vnet);
     }},
    {"DisableAdapter", false, 3194, 471934039,
     [] {
         return Undisturbed([] { return HBL_EnableNetworkAdapter(vnet); }) && HBL_DisableNetworkAdapter(vnet);
     }},
    {"AdapterWithoutAnswer", false, 3639, 863463354,
     [] {
         return Undisturbed([] {
                    return HBL_SetVnetUseAdapter(vnet, true, false) && HBL_EnableNetworkAdapter(vnet) &&
                           HBL_SetVnetUseAdapter(vnet, false, false);
                }) &&
                HBL_UpdateAdapterFromConfig(vnet);
     }},
    {"AdapterList", false, 316, 1941728516,
     [] {
         HBL_HostAdapterList *list = nullptr;
         const bool got = HBL_GetHostAdapterList(version, &list);
         HBL_FreeHostAdapterList(list);
         return got;
     }},
    {"DefaultOff", false, 1292, 1511873555, [] { return SetDefaultBridge(HBL_VNET_NONE, version); }},
    {"MoveAdapter", false, 2687, 850040398, [] { return MoveAdapter("eth5", 8, version); }},
    {"Features", false, 4311, 1948613164,
     [] {
         return All({Features(HBL_GetVnetFeatures), Features(HBL_FindVnetWithFeatures)});
     }},
    {"SetSubnet", false, 1147, 699292728,
     [] { return HBL_SetVnetSubnetAddr(vnet, nullptr) && HBL_SetVnetSubnetAddr(vnet, "192.168.42.0"); }},
    {"Export", false, 1458, 4002042989, [] { return HBL_ExportDatabaseToFile(nullptr); }},
    {"Import", true, 4910, 736366674,
     [] {
         std::filesystem::remove(FORMER);
         return HBL_ImportDatabaseFromFile(BACKUP);
     }},
    {"Create", true, 762, 2421563786,
     [] {
         return Unloaded([] {
             std::filesystem::remove(FORMER);
             return HBL_CreateNetworkingDB(true);
         });
     }},
    {"Delete", false, 63, 3695328166, [] { return Unloaded(HBL_DeleteNetworkingDB); }},
    {"Load", true, 291, 2867018863,
     [] {
         HBLNetworkConfigurationDB *db = nullptr;
         return HBLNetCfgLoad(DATABASE, &db, false) && HBLNetCfgUnload(&db, false);
     }},
    {"Rewrite", false, 709, 523093654,
     [] {
         HBLNetworkConfigurationDB *db = nullptr;
         const auto change = [&db] {
             return HBLNetCfgLoad(DATABASE, &db, false) && HBLNetCfgAddAnswerString(db, "A", "2");
         };
         return Undisturbed(change) && HBLNetCfgUnload(&db, true);
     }},
    {"AssignSubnet", false, 1251, 2643167832,
     [] {
         return HBL_AssignSubnetAddressToVnet(vnet, true) &&
                Undisturbed([] { return HBL_SetVnetSubnetAddr(vnet, "192.168.40.0"); });
     }},
    {"Status", false, 1390, 225192971,
     [] {
         bool answer, other;
         HBL_NetworkID network = NetworkOf(0, version);
         return All({HBL_GetServiceStatus(vnet, HBL_SERVICE_DHCP) == HBL_SERVICE_STATUS_STOPPED,
                     HBL_CheckSubnetAvailability(vnet, false, 1, 1, &answer),
                     HBL_GetUnusedSubnet(text, room, otherText, room),
                     HBL_GetVnetAdapterStatus(vnet, &answer, &other), HBL_GetBridgeDefaultNetwork(&network)});
     }},
    {"Device", false, 200, 3211689571,
     [] { return HBL_DeleteZelanDevice(vnet) && HBL_CreateZelanDevice(vnet); }},
    {"Addresses", false, 893, 2218080771,
     [] {
         return HBL_SetVnetSubnetMask(vnet, "255.255.0.0") && HBL_SetVnetAdapterAddr(vnet, "192.168.40.1");
     }},
    {"GetTies", false, 715, 3927736546,
     [] {
         return All(
             {HBL_GetVnetUseDHCP(vnet), HBL_GetDHCPIPToMAC(vnet, text, Size(&size), mac),
              HBL_EnumDHCPIPToMAC(vnet, Start(), text, Size(&size), otherText, Size(&otherSize)),
              HBL_GetDHCPParam(vnet, HBL_PARAM_DHCP_FIRST_ADDRESS + foreign, true, text, Size(&size)),
              HBL_GetDHCPParam(vnet, HBL_PARAM_DHCP_DEFAULT_LEASE + foreign, true, text, Size(&size))});
     }},
    {"GetForwards", false, 349, 2428678424,
     [] {
         return All(
             {HBL_GetVnetUseNAT(vnet),
              HBL_GetNATPortForward(vnet, true, 80, text, Size(&size), &port, otherText, Size(&otherSize)),
              HBL_EnumNATPortForward(vnet, true, Start(), &port, text, Size(&size), &port, otherText,
                                     Size(&otherSize)),
              HBL_GetNATParam(vnet, HBL_PARAM_NAT_GATEWAY + foreign, true, text, Size(&size))});
     }},
    {"GetAddresses", false, 298, 428234539,
     [] {
         return All({HBL_GetVnetSubnetMask(vnet, text, Size(&size)),
                     HBL_GetVnetSubnetAddr(vnet, text, Size(&size)),
                     HBL_GetVnetAdapterAddr(vnet, text, Size(&size), true)});
     }},
};

INSTANTIATE_TEST_SUITE_P(Of, Failures, testing::ValuesIn(CALLS),
                         [](const auto &instance) { return instance.param.name; });

}  // namespace
