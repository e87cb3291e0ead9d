// The file lock's rules that need no lock directory.
#include <gmock/gmock.h>
#include <unistd.h>

#include <algorithm>
#include <tuple>

#include "lib/file/fileLockInternal.h"
#include "lib/misc/digest.h"
#include "tests/support/generalLog.h"
#include "tests/support/otherProcess.h"

TEST(FileLockNames, AcceptsALetterFiveDigitsAndTheSuffix) {
    for (const char *name : {"M00000.lck", "D12345.lck", "E99999.lck", "M00001x.lck"}) {
        EXPECT_TRUE(FileLockIsValidName(name)) << name;
    }
    for (const char *name : {"", "M", "M.lck", "M1234.lck", "foo.lck", "X12345.lck", "m12345.lck", "M12345",
                             "M12345.lc", "M12345.lck~", "M1234a.lck", "M-1234.lck", "M12345lck"}) {
        EXPECT_FALSE(FileLockIsValidName(name)) << name;
    }
}

TEST(FileLockMember, ReadsEveryFormOfARecordAndNothingElse) {
    const struct {
        std::string text;
        std::optional<std::string> payload, checksum;
        uint32_t ticket;
    } cases[] = {
        {"id 12 7 X", {}, {}, 7},
        {"id 12 7 S [", {}, {}, 7},
        {"id 12 7 X 4711 other=1 lc=99 more=a=b", "4711", "99", 7},
        {"id 12 4294967295 S pc=5", "pc=5", {}, 4294967295u},
        {"id 12 7 X p 6=6 7=7 8=8 9=9 a=a b=b c=c d=d e=e f=f g=g", "p", {}, 7},
    };
    for (const auto &c : cases) {
        FileLockValues member;
        ASSERT_TRUE(FileLockParseMember(c.text, &member)) << c.text;
        EXPECT_EQ(member.machineID, "id") << c.text;
        EXPECT_EQ(member.executionID, "12") << c.text;
        EXPECT_EQ(member.payload, c.payload) << c.text;
        EXPECT_EQ(member.locationChecksum, c.checksum) << c.text;
        EXPECT_EQ(member.lamportNumber, c.ticket) << c.text;
    }
    for (const char *text :
         {"id 12 7", "id 12 seven X", "id 12 7 x", "id 12 7 X [ lc", "id 12 7 X [ =99",
          "id 12 7 X [ lc=", "id 12 7 X p 6=6 7=7 8=8 9=9 a=a b=b c=c d=d e=e f=f g=g h=h"}) {
        FileLockValues member;
        EXPECT_FALSE(FileLockParseMember(text, &member)) << text;
    }
}

TEST(FileLockMember, LocationChecksumTakesBytesAsSigned) {
    EXPECT_EQ(FileLockLocationChecksum("/a"), "5861557");
    EXPECT_EQ(FileLockLocationChecksum("\xC3\xA9"), "5857809");
}

TEST(FileLockWait, PausesAddUpToTheDescribedTimes) {
    std::vector<uint32_t> totals;  // of all pauses up to and with this one
    for (unsigned counter = 0; counter <= 41; counter++) {
        totals.push_back((totals.empty() ? 0 : totals.back()) + FileLockPauseLength(counter));
    }
    EXPECT_THAT(std::vector({totals[0], totals[20], totals[21], totals[22], totals[39], totals[41]}),
                testing::ElementsAre(100, 2100, 2300, 2600, 23000, 27000));
}

TEST(FileLockMachine, MatchesByTheFormsOfBothIDs) {
    const std::string own = FileLockGetMachineID();
    EXPECT_EQ(own.size(), 16u);
    EXPECT_EQ(own.find('/'), std::string::npos);
    std::string decodable = own;
    std::replace(decodable.begin(), decodable.end(), '-', '/');
    std::vector<uint8_t> raw;
    ASSERT_TRUE(Base64_Decode(decodable, &raw));
    raw[0] ^= 0xFF;  // another host name, the same hardware
    const std::string renamedHost = Base64_Encode(raw.data(), raw.size());
    raw[11] ^= 0xFF;
    const std::string otherHardware = Base64_Encode(raw.data(), raw.size());
    const std::tuple<std::string, std::string, bool> cases[] = {
        {own, own, true},
        {own, renamedHost, false},
        {own, "uuid=" + own, false},
        {"uuid=1-2", "uuid=1-2", true},
        {"uuid=1-2", "uuid=1-3", false},
        {"uuid=1-2", own, true},
        {"uuid=1-2", renamedHost, true},
        {"uuid=1-2", otherHardware, false},
        {"uuid=1-2", "AAAA", false},
    };
    for (const auto &[mine, other, match] : cases) {
        EXPECT_EQ(FileLockMachineIDMatch(mine, other), match) << mine << " " << other;
    }
}

TEST(FileLockOwner, CreationTimeIsField22WhateverTheCommandIsCalled) {
    const char numbers[] = " S 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18 815 20 21";
    for (const char *name : {"4 (sh)", "4 (a b)", "4 (a) b) S 1 (c)"}) {
        EXPECT_EQ(FileLockCreationTimeFromStat((std::string(name) + numbers).c_str()), 815u) << name;
    }
}

TEST(FileLockOwner, DeadProcessesAndReusedNumbersAreNoOwners) {
    const pid_t child = StartChild([] { return true; });
    ASSERT_TRUE(EndsWell(child));
    const std::string dead = std::to_string(child);
    const std::string alive = std::to_string(getpid());
    const std::string birth = std::to_string(FileLockProcessCreationTime(getpid()));
    const std::tuple<std::string, std::string, bool> cases[] = {
        {dead, birth, false},           {dead, "pc=" + birth, false}, {alive, "pc=" + birth, true},
        {alive, "pc=1" + birth, false}, {alive, "1" + birth, true},   {alive, "pc=0", true},
        {alive, "pc=x", true},          {"x", "pc=1", true},
    };
    GeneralLog log;
    for (const auto &[executionID, payload, valid] : cases) {
        EXPECT_EQ(FileLockValidOwner(executionID, payload), valid) << executionID + payload;
    }
    EXPECT_EQ(
        "warning: FILE: FileLockValidOwner payload conversion error on pc=x. Assuming valid.\n"
        "warning: FILE: FileLockValidOwner pid conversion error on x. Assuming valid.\n",
        log.Take());
    const uid_t former = geteuid();
    const uid_t other = former == 0 ? 65534 : former;
    EXPECT_EQ(0, seteuid(other));
    EXPECT_TRUE(FileLockValidOwner(alive, birth));
    EXPECT_EQ(other, geteuid()) << "whoever it asked as";
    EXPECT_EQ(0, seteuid(former));
}
