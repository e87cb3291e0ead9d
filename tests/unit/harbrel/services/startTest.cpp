// Starting daemons, with shell scripts in their place that note what they were given.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <iterator>
#include <sstream>

#include "lib/harbrel/base/services.h"
#include "lib/harbrel/bridging/bridging.h"
#include "lib/harbrel/services/daemons.h"
#include "tests/support/command.h"
#include "tests/support/fakePrograms.h"
#include "tests/support/logCapture.h"

namespace {

using testing::HasSubstr;

constexpr const char *REPORT = "printf x > /proc/self/fd/$2\n";
constexpr const char *NOTE_ARGUMENTS = "printf '%s\\n' \"$0\" \"$@\" > $DIR/arguments\n";

std::vector<std::string> Lines(const std::string &text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

class ServiceStart : public testing::Test {
  protected:
    // What the daemon was given behind "-s <fd>", with this test's directory as DIR.
    std::string Arguments(uint32_t vnet, uint32_t service) {
        EXPECT_TRUE(HBLServiceStart(vnet, service));
        std::vector<std::string> lines = Lines(ReadFileText(cache_.Path("arguments")));
        EXPECT_LT(3U, lines.size());
        EXPECT_EQ("-s", lines[1]);
        EXPECT_LT(2, std::stoi(lines[2]));
        lines.erase(lines.begin() + 1, lines.begin() + 3);
        std::string text;
        for (const std::string &line : lines) {
            text += (text.empty() ? "" : " ") + line;
        }
        for (size_t at; (at = text.find(cache_.Path(""))) != std::string::npos;) {
            text.replace(at, cache_.Path("").size(), "DIR/");
        }
        return text;
    }

    FakePrograms cache_;
    LogCapture quiet_;
};

struct ArgumentsCase {
    uint32_t service;
    uint32_t vnet;
    const char *program;
    const char *answerKey;  // changes the PID file's name and not the program
    const char *arguments;
};

TEST_F(ServiceStart, EachDaemonGetsItsVector) {
    static constexpr ArgumentsCase CASES[] = {
        {HBL_SVC_NETIFUP, 1, "zelan-netifup", "NETIFUP_PROGRAM",
         "DIR/bin/zelan-netifup -d DIR/run/other-zelan1.pid /dev/zelan1 host1"},
        {HBL_SVC_DHCP, 8, "zelan-dhcpd", "DHCP_PROGRAM",
         "DIR/bin/zelan-dhcpd -cf DIR/conf/zelan8/dhcpd/dhcpd.conf -lf DIR/conf/zelan8/dhcpd/dhcpd.leases "
         "-pf DIR/run/other-zelan8.pid zelan8"},
        {HBL_SVC_NAT, 255, "zelan-natd", "NAT_PROGRAM",
         "DIR/bin/zelan-natd -d DIR/run/other-255.pid -m DIR/run/zelan-natd-255.mac "
         "-c DIR/conf/zelan255/nat/nat.conf"},
        {HBL_SVC_NETDETECT, 0, "zelan-detect", "NETDETECT_PROGRAM",
         "DIR/bin/zelan-detect -d DIR/run/other.pid"},
    };
    cache_.Answer("VNET_1_VIRTUAL_ADAPTER_NAME", "host1");
    for (const ArgumentsCase &row : CASES) {
        cache_.Program(row.program, std::string(NOTE_ARGUMENTS) + REPORT);
        cache_.Answer(row.answerKey, "other");
        EXPECT_EQ(row.arguments, Arguments(row.vnet, row.service));
    }
}

TEST_F(ServiceStart, BridgeExcludesOnTheDefaultNetworkAndIncludesElsewhere) {
    cache_.Program("zelan-bridge", std::string(NOTE_ARGUMENTS) + REPORT);
    ASSERT_TRUE(HBLSetDefaultBridgeVnet(0));
    EXPECT_EQ("DIR/bin/zelan-bridge -d DIR/run/zelan-bridge-0.pid -n 0", Arguments(0, HBL_SVC_BRIDGE));

    for (const auto &[adapter, vnet] : {std::pair{"eth1", 2}, {"eth2", HBL_VNET_NONE}, {"eth3", 0}}) {
        ASSERT_TRUE(HBLNetCfgAddHostAdapterMapping(nullptr, adapter, vnet, false));
    }
    const std::string onDefault = Arguments(0, HBL_SVC_BRIDGE);
    EXPECT_THAT(onDefault, HasSubstr(" -n 0 -e"));
    EXPECT_THAT(onDefault, HasSubstr(" -eeth1"));
    EXPECT_THAT(onDefault, HasSubstr(" -eeth2"));
    EXPECT_THAT(onDefault, Not(HasSubstr("eth3")));
    EXPECT_EQ("DIR/bin/zelan-bridge -d DIR/run/zelan-bridge-2.pid -n 2 -ieth1", Arguments(2, HBL_SVC_BRIDGE));
}

TEST_F(ServiceStart, VectorGrowsWithTheAdapters) {
    cache_.Program("zelan-bridge", std::string(NOTE_ARGUMENTS) + REPORT);
    ASSERT_TRUE(HBLSetDefaultBridgeVnet(0));
    // Seven elements stand before the adapters: these counts leave two slots of 16 free, one, none, and far
    // less.
    for (int count = 0; count < 109; count++) {
        if (count == 7 || count == 8 || count == 9 || count == 108) {
            std::istringstream words(Arguments(2, HBL_SVC_BRIDGE));
            const auto isAdapter = [](const std::string &word) { return word.starts_with("-ix"); };
            using WordIterator = std::istream_iterator<std::string>;
            EXPECT_EQ(count, std::count_if(WordIterator(words), WordIterator(), isAdapter));
        }
        ASSERT_TRUE(HBLNetCfgAddHostAdapterMapping(nullptr, ("x" + std::to_string(count)).c_str(), 2, false));
    }
}

struct OutcomeCase {
    const char *situation;
    const char *script;
    bool result;
    const char *log;
};

TEST_F(ServiceStart, SuccessIsAnyReportAndNothingElse) {
    static constexpr OutcomeCase CASES[] = {
        {"two bytes", "printf '\\002\\001' > /proc/self/fd/$2; exit 1", true,
         "Child process wrote status value: 258\n"},
        {"one byte", REPORT, true, "Child process wrote status value: 120\n"},
        {"no report", "exit 0", false, "Daemon process did not report status, returning failure\n"},
        {"killed", "kill -9 $$", false, "Daemon process did not report status, returning failure\n"},
        {"late report", "(sleep 0.1; printf x > /proc/self/fd/$2) &", true, "status value: 120\n"},
    };
    for (const OutcomeCase &row : CASES) {
        SCOPED_TRACE(row.situation);
        LogCapture log(LOG_ERR | LOG_WRN | LOG_INFO);
        cache_.Program("zelan-detect", row.script);
        EXPECT_EQ(row.result, HBLServiceStart(0, HBL_SVC_NETDETECT));
        const std::string lines = log.Take();
        EXPECT_THAT(lines, HasSubstr(row.log));
        EXPECT_THAT(lines, HasSubstr(", reported error: none\n"));
    }
}

TEST_F(ServiceStart, FailedExecLeavesItsReasonInTheLogOnce) {
    const std::string path = cache_.Path("bin/zelan-detect");
    struct ExecCase {
        const char *prepare;
        const char *reason;
    };
    static constexpr ExecCase CASES[] = {
        {"true", "No such file or directory"},
        {"mkdir $0", "Permission denied"},
        {"rmdir $0; echo > $0", "Permission denied"},
        {"chmod 755 $0", "Exec format error"},
    };
    for (const ExecCase &row : CASES) {
        ASSERT_TRUE(RunCommand({"sh", "-c", row.prepare, path}).Succeeded());
        LogCapture log(LOG_ERR | LOG_WRN);
        HBLLog(LOG_ERR, nullptr, "written before");
        testing::internal::CaptureStdout();
        printf("also written before");
        EXPECT_FALSE(HBLServiceStart(0, HBL_SVC_NETDETECT));
        fflush(stdout);
        EXPECT_EQ("also written before", testing::internal::GetCapturedStdout());
        const std::vector<std::string> lines = Lines(log.Take());
        ASSERT_EQ(4U, lines.size()) << testing::PrintToString(lines);
        EXPECT_EQ("written before", lines[0]);
        EXPECT_EQ("HBLServiceStart - exec(): Error while starting daemon: " + path + ", error: " + row.reason,
                  lines[1]);
        EXPECT_EQ("HBLServiceStart - Daemon process did not report status, returning failure", lines[3]);
    }
}

TEST_F(ServiceStart, LogShowsTheVectorAndTakesTheDaemonsOutput) {
    cache_.Program("zelan-detect", "echo out; echo err >&2\n" + std::string(REPORT));
    LogCapture log(127);
    ASSERT_TRUE(HBLServiceStart(0, HBL_SVC_NETDETECT));
    const std::string text = log.Take();
    const std::string path = cache_.Path("bin/zelan-detect");
    EXPECT_THAT(text, HasSubstr("HBLServiceStart - Fork and exec command and arguments: " + path +
                                "\nHBLServiceStart - Argument: 0, " + path +
                                "\nHBLServiceStart - Argument: 1, -s\n"));
    EXPECT_THAT(text, HasSubstr("Argument: 4, " + cache_.Path("run/zelan-detect.pid") +
                                "\nHBLServiceStart - Attempting to fork a child for the service daemon\n"));
    EXPECT_THAT(text, HasSubstr("HBLServiceStart - Duping Fds status 1, 2\n"
                                "HBLServiceStart - Child process started\nout\nerr\n"));
}

// The descriptors of the daemon as "number -> file", without the one on which the shell reads the script. The
// scripts below look at themselves from a subshell: for a plain command the shell changes its own descriptors
// and signals for a moment.
std::vector<std::string> InheritedDescriptors(const FakePrograms &cache) {
    std::vector<std::string> found;
    for (const std::string &line : Lines(ReadFileText(cache.Path("descriptors")))) {
        const size_t arrow = line.find(" -> ");
        if (arrow != std::string::npos && line.find("/bin/zelan-") == std::string::npos) {
            found.push_back(line.substr(line.rfind(' ', arrow - 1) + 1));
        }
    }
    return found;
}

TEST_F(ServiceStart, DaemonInheritsStandardDescriptorsAndTheWriteEndAlone) {
    cache_.Program("zelan-detect",
                   "(ls -l /proc/$$/fd > $DIR/descriptors); echo $2 > $DIR/end\n" + std::string(REPORT));
    LogCapture log;
    const int stray = open("/dev/null", O_RDONLY);
    EXPECT_TRUE(HBLServiceStart(0, HBL_SVC_NETDETECT));
    close(stray);
    const std::string end = Lines(ReadFileText(cache_.Path("end"))).at(0);
    const auto isLog = HasSubstr(" -> /tmp/logCapture.");
    EXPECT_THAT(InheritedDescriptors(cache_),
                testing::UnorderedElementsAre(
                    testing::StartsWith("0 -> "), AllOf(testing::StartsWith("1 "), isLog),
                    AllOf(testing::StartsWith("2 "), isLog), testing::StartsWith(end + " -> pipe:")));
}

TEST_F(ServiceStart, WorksWithTheStandardDescriptorsClosed) {
    cache_.Program("zelan-detect", std::string(NOTE_ARGUMENTS) + "echo output\n" + REPORT);
    LogCapture log;
    const pid_t child = fork();
    if (child == 0) {
        for (int fd : {0, 1, 2}) {
            close(fd);
        }
        _exit(HBLServiceStart(0, HBL_SVC_NETDETECT) ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    EXPECT_EQ(0, status);
    EXPECT_EQ("output\n", log.Take());
    EXPECT_LT(2, std::stoi(Lines(ReadFileText(cache_.Path("arguments"))).at(2)));
}

TEST_F(ServiceStart, IgnoredInterruptCarriesOverAndNothingIsBlocked) {
    cache_.Program("zelan-detect",
                   "(grep -E 'Sig(Ign|Blk)' /proc/$$/status > $DIR/signals)\n" + std::string(REPORT));
    const sighandler_t before = signal(SIGINT, SIG_IGN);
    EXPECT_TRUE(HBLServiceStart(0, HBL_SVC_NETDETECT));
    signal(SIGINT, before);
    const std::string signals = ReadFileText(cache_.Path("signals"));
    unsigned long long blocked = 1;
    unsigned long long ignored = 0;
    ASSERT_EQ(2, sscanf(signals.c_str(), "SigBlk: %llx SigIgn: %llx", &blocked, &ignored)) << signals;
    EXPECT_EQ(0U, blocked);
    EXPECT_TRUE((ignored >> (SIGINT - 1)) & 1) << signals;
}

TEST_F(ServiceStart, FailsBeforeTheForkWithoutAVector) {
    LogCapture log;
    EXPECT_FALSE(HBLServiceStart(0, 9));
    EXPECT_EQ("HBLServiceStart - Invalid service name 9\n", log.Take());
    cache_.Answer("VNET_8_VIRTUAL_ADAPTER_NAME", "sixteen-letters-");
    EXPECT_FALSE(HBLServiceStart(8, HBL_SVC_NETIFUP));
    EXPECT_EQ("HBLServiceStart - Cannot obtain virtual adapter name\n", log.Take());
}

}  // namespace
