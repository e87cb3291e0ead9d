#include <gtest/gtest.h>

#include "lib/harbrel/base/services.h"
#include "lib/harbrel/services/daemons.h"
#include "lib/misc/owners.h"
#include "tests/support/command.h"
#include "tests/support/fakePrograms.h"
#include "tests/support/logCapture.h"

namespace {

std::string PidPath(uint32_t vnet, uint32_t service) {
    char *path = nullptr;
    const char *name = nullptr;
    if (!HBLGetPidFilename(vnet, service, &path, &name)) {
        return "none";
    }
    const MallocString owner(path);
    EXPECT_STREQ(HBLServiceName(service), name);
    return path;
}

struct PathCase {
    uint32_t service;
    uint32_t vnet;
    const char *byDefault;
    const char *answerKey;
    const char *withAnswers;  // RUNDIR /r, program "p"
};

TEST(PidFile, NameCarriesNumberNameOrNothingByService) {
    static constexpr PathCase CASES[] = {
        {HBL_SVC_BRIDGE, 0, "/var/run/zelan-bridge-0.pid", "BRIDGE_PROGRAM", "/r/p-0.pid"},
        {HBL_SVC_NAT, 8, "/var/run/zelan-natd-8.pid", "NAT_PROGRAM", "/r/p-8.pid"},
        {HBL_SVC_NETIFUP, 1, "/var/run/zelan-netifup-zelan1.pid", "NETIFUP_PROGRAM", "/r/p-zelan1.pid"},
        {HBL_SVC_DHCP, 255, "/var/run/zelan-dhcpd-zelan255.pid", "DHCP_PROGRAM", "/r/p-zelan255.pid"},
        {HBL_SVC_NETDETECT, 0, "/var/run/zelan-detect.pid", "NETDETECT_PROGRAM", "/r/p.pid"},
    };
    for (const PathCase &row : CASES) {
        FakePrograms cache;
        ASSERT_TRUE(HBLNetCfgRemoveAnswer(nullptr, "RUNDIR"));
        EXPECT_EQ(row.byDefault, PidPath(row.vnet, row.service));
        cache.Answer("RUNDIR", "/r");
        cache.Answer(row.answerKey, "p");
        EXPECT_EQ(row.withAnswers, PidPath(row.vnet, row.service));
    }
}

struct TextCase {
    const char *text;
    int32_t pid;
};

TEST(PidFile, FirstLineMustConvertAsAWholeAndBePositive) {
    static constexpr TextCase CASES[] = {
        {"4711\n", 4711},
        {"4711", 4711},
        {"4711\r\nmore\n", 4711},
        {"0x10\n", 16},
        {"010\n", 8},
        {"2147483647\n", INT32_MAX},
        {"2147483648\n", 0},
        {"4294967297\n", 0},
        {"0\n", 0},
        {"-5\n", 0},
        {"", 0},
        {"\n4711\n", 0},
        {"47 11\n", 0},
        {"47x\n", 0},
        {"pid\n", 0},
    };
    const FakePrograms cache;
    const std::string path = cache.Path("pid");
    for (const TextCase &row : CASES) {
        WriteFileText(path, row.text);
        bool openFailed = false;
        EXPECT_EQ(row.pid, HBLExtractPidFromFile(path.c_str(), &openFailed)) << row.text;
        EXPECT_FALSE(openFailed) << row.text;
    }
}

TEST(PidFile, MissingFileIsToldApart) {
    FakePrograms cache;
    LogCapture log;
    const std::string path = cache.Path("pid");
    bool openFailed = false;
    EXPECT_EQ(0, HBLExtractPidFromFile(path.c_str(), &openFailed));
    EXPECT_TRUE(openFailed);
    EXPECT_EQ("HBLExtractPidFromFile - Could not open the PID file: " + path +
                  ", error: No such file or directory\n",
              log.Take());
}

}  // namespace
