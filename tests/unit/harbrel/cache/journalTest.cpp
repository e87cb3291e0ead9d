#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/mman.h>

#include <algorithm>
#include <functional>

#include "lib/harbrel/cache/journalWords.h"
#include "lib/harbrel/cache/tables.h"
#include "lib/misc/owners.h"
#include "tests/support/cacheTest.h"
#include "tests/support/fileSizeLimit.h"
#include "tests/support/logLevels.h"

using testing::HasSubstr;

namespace {

using Change = std::function<bool(HBLNetworkConfigurationDB *)>;
constexpr const char *MAC = "02:00:00:11:22:33";

// One family's changes and what they look like in the file.
struct Family {
    Change addOld, addNew, remove;
    std::string oldLine, newLine, removeLine;
    bool absentIsRemoved, equalIsNoChange;
    int linesOfRefusals;  // in the log, of an addition and a removal
};
const Family FAMILIES[] = {
    {[](auto *db) { return HBLNetCfgAddAnswerString(db, "K", "old"); },
     [](auto *db) { return HBLNetCfgAddAnswerString(db, "K", "new"); },
     [](auto *db) { return HBLNetCfgRemoveAnswer(db, "K"); }, "answer K old\n", "answer K new\n",
     "remove_answer K\n", true, false, 4},
    {[](auto *db) { return HBLNetCfgAddHostAdapterMapping(db, "eth0", 2, false); },
     [](auto *db) { return HBLNetCfgAddHostAdapterMapping(db, "eth0", -1, false); },
     [](auto *db) { return HBLNetCfgRemoveHostAdapterMapping(db, "eth0"); }, "add_bridge_mapping eth0 2\n",
     "add_bridge_mapping eth0 -1\n", "remove_bridge_mapping eth0\n", false, true, 6},
    {[](auto *db) { return HBLNetCfgAddDHCPMACToIP(db, 8, MAC, "10.0.0.1", false); },
     [](auto *db) { return HBLNetCfgAddDHCPMACToIP(db, 8, MAC, "10.0.0.2", false); },
     [](auto *db) { return HBLNetCfgRemoveDHCPMACToIP(db, 8, MAC); },
     "add_dhcp_mac_to_ip 8 02:00:00:11:22:33 10.0.0.1\n", "add_dhcp_mac_to_ip 8 02:00:00:11:22:33 10.0.0.2\n",
     "remove_dhcp_mac_to_ip 8 02:00:00:11:22:33\n", false, false, 5},
    {[](auto *db) { return HBLNetCfgAddNATPortFwd(db, 8, true, 80, "10.0.0.1", 81, "", false); },
     [](auto *db) { return HBLNetCfgAddNATPortFwd(db, 8, true, 80, "10.0.0.2", 82, nullptr, false); },
     [](auto *db) { return HBLNetCfgRemoveNATPortFwd(db, 8, true, 80); },
     "add_nat_portfwd 8 tcp 80 10.0.0.1 81 \n", "add_nat_portfwd 8 tcp 80 10.0.0.2 82\n",
     "remove_nat_portfwd 8 tcp 80\n", false, false, 5},
};

class JournalTest : public CacheTest {
  protected:
    // The start is larger than the log gets, so that a limit on the size of files does not reach the log.
    JournalTest() {
        for (int line = 0; line < 100; ++line) {
            start_ += "# " + std::string(2000, '.') + "\n";
        }
        Restart();
    }
    void Restart() { EXPECT_TRUE(Load(start_)); }
    // The lines of the file behind its start.
    std::string Journal() const {
        const std::string text = ReadFileText(path);
        EXPECT_TRUE(text.starts_with(start_)) << "the start of the file has changed";
        return text.substr(start_.size());
    }

    // Makes the change while the file can grow by so many bytes.
    bool WithRoomFor(size_t bytes, const Change &change) const {
        return OnFullDisk(db->fileIdentity.size + bytes, [&] { return change(db); });
    }

  private:
    std::string start_ = VERSION_LINE;
};

}  // namespace

TEST_F(JournalTest, ChangesReachCacheAndFile) {
    for (const Family &family : FAMILIES) {
        Restart();
        EXPECT_EQ(family.remove(db), family.absentIsRemoved);
        EXPECT_EQ(Journal(), "");
        EXPECT_TRUE(family.addOld(db));
        EXPECT_EQ(Records(), family.oldLine);
        EXPECT_TRUE(family.addNew(db));
        EXPECT_TRUE(family.addNew(db));
        EXPECT_EQ(Records(), family.newLine);
        EXPECT_TRUE(family.remove(db));
        EXPECT_EQ(Records(), "");
        const std::string change = family.removeLine + family.newLine;
        const std::string equalChange = family.equalIsNoChange ? "" : change;
        EXPECT_EQ(Journal(), family.oldLine + change + equalChange + family.removeLine);
        EXPECT_EQ(family.remove(db), family.absentIsRemoved);
        EXPECT_TRUE(NetCfgFileIsAsLastSeen(db));
    }
}

// The room for further bytes runs out at each byte of the two lines of a replacement. Whatever the point, the
// cache holds the old record and the file whole lines only, and the next change finds a sound file. A new
// record whose undo fails too stays.
TEST_F(JournalTest, FullDiskAtAnyByteLeavesWholeLines) {
    for (const Family &family : FAMILIES) {
        Restart();
        log.Take();
        EXPECT_FALSE(WithRoomFor(0, family.addNew));
        EXPECT_EQ(Records(), family.newLine);
        ASSERT_TRUE(family.addOld(db));
        EXPECT_FALSE(WithRoomFor(0, family.remove));
        EXPECT_EQ(std::ranges::count(log.Take(), '\n'), family.linesOfRefusals);
        const size_t needed = family.removeLine.size() + family.newLine.size();
        std::string journal = Journal();
        for (size_t room = 0; room < needed; ++room) {
            EXPECT_FALSE(WithRoomFor(room, family.addNew)) << room;
            EXPECT_EQ(Records(), family.oldLine) << room;
            // The undo writes its removal line too as soon as there is room for a second one.
            for (size_t fits = room / family.removeLine.size(); fits > 0; --fits) {
                journal += family.removeLine;
            }
            EXPECT_EQ(Journal(), journal) << room;
        }
        EXPECT_TRUE(family.addNew(db));
        EXPECT_EQ(Journal(), journal + family.removeLine + family.newLine);
        EXPECT_TRUE(NetCfgFileIsAsLastSeen(db));
    }
}

// Some of the steps need more than one failure.
TEST_F(JournalTest, EachStepHasItsWordsInEachFamily) {
    const RecordFields record = {.key = "K", .value = "v", .hostPort = 53, .vmPort = 54, .description = "d"};
    const LinesLogged before = LogLevels_Count();
    for (const JournalWords &words :
         {ANSWER_JOURNAL_WORDS, BRIDGE_JOURNAL_WORDS, DHCP_JOURNAL_WORDS, NAT_JOURNAL_WORDS}) {
        for (auto step = JournalStep{}; step <= JournalStep::RemovePutBack;
             step = JournalStep(int(step) + 1)) {
            TellJournalStep(words, step, {.record = record});
        }
    }
    const LinesLogged after = LogLevels_Count();
    EXPECT_EQ(std::tuple(40u, 40u, 3178098389u),
              std::tuple(after.all - before.all, after.reasons - before.reasons, after.words - before.words));
}

// What cannot be cut off again is kept away from the next line.
TEST_F(JournalTest, TornLineThatStaysIsEndedByTheNextOne) {
    const FileDescriptor file(memfd_create("journal", MFD_ALLOW_SEALING | MFD_CLOEXEC));
    ASSERT_EQ(0, fcntl(file.get(), F_ADD_SEALS, F_SEAL_SHRINK));
    const std::string name = "/proc/self/fd/" + std::to_string(file.get());
    ASSERT_NE(nullptr, db->stream = freopen(name.c_str(), "a+", db->stream));
    ASSERT_TRUE(NetCfgTrackFile(db));
    EXPECT_FALSE(OnFullDisk(9, [this] { return HBLNetCfgAddAnswerString(db, "A", "torn off"); }));
    EXPECT_TRUE(HBLNetCfgAddAnswerString(db, "B", "1"));
    EXPECT_TRUE(HBLNetCfgAddAnswerString(db, "C", "1"));
    EXPECT_EQ("answer A \nanswer B 1\nanswer C 1\n", ReadFileText(name));
}

TEST_F(JournalTest, UndoIsJournalledWhenThereIsRoomForIt) {
    const std::string removal = "remove_answer K\n";
    const std::string old = "answer K old\n";
    const Change tooLong = [](auto *cache) {
        return HBLNetCfgAddAnswerString(cache, "K", std::string(200, 'n').c_str());
    };
    ASSERT_TRUE(HBLNetCfgAddAnswerString(db, "K", "old"));
    EXPECT_FALSE(WithRoomFor(2 * removal.size() + old.size(), tooLong));
    EXPECT_EQ(Records(), old);
    EXPECT_EQ(Journal(), old + removal + removal + old);
}

TEST_F(JournalTest, RecordsThatWouldNotReadBackAreRefused) {
    const auto answer = [this](const std::string &key, const std::string &value) {
        return HBLNetCfgAddAnswerString(db, key.c_str(), value.c_str());
    };
    const auto mapping = [this](const std::string &adapter, int32_t vnet) {
        return HBLNetCfgAddHostAdapterMapping(db, adapter.c_str(), vnet, false);
    };
    const auto forward = [this](const char *vmIP, const std::string &description) {
        return HBLNetCfgAddNATPortFwd(db, 8, true, 1, vmIP, 2, description.c_str(), false);
    };
    EXPECT_FALSE(answer("K", "a\nanswer X y"));
    EXPECT_FALSE(answer("K", "a\r"));
    EXPECT_FALSE(answer("K", ""));
    EXPECT_FALSE(answer("", "v"));
    EXPECT_FALSE(answer("a b", "v"));
    EXPECT_FALSE(answer("K", std::string(2048 - 9, 'v')));  // "answer K " and the value make a line of 2048
    const std::string longKey(2048 - 14, 'k');              // with "remove_answer " a line of 2048
    EXPECT_FALSE(answer(longKey, "v"));
    EXPECT_FALSE(mapping("e 1", 1));
    EXPECT_FALSE(mapping(std::string(128, 'n'), 1));
    EXPECT_FALSE(mapping("eth0", -2));
    EXPECT_FALSE(HBLNetCfgAddDHCPMACToIP(db, 256, MAC, "10.0.0.1", false));
    EXPECT_FALSE(forward("1.2.3.4", std::string(128, 'd')));
    EXPECT_FALSE(forward("1.2.3.4", "a\nb"));
    EXPECT_FALSE(forward("1.2.3.4 5", "d"));
    EXPECT_EQ(Records() + Journal(), "");
    ASSERT_TRUE(NetCfgHashAddAnswer(db, longKey.c_str(), "read from a file"));
    EXPECT_FALSE(HBLNetCfgRemoveAnswer(db, longKey.c_str()));
    ASSERT_TRUE(NetCfgHashRemoveAnswer(db, longKey.c_str()));
    EXPECT_EQ(Journal(), "");
    const std::string longest(2047 - 9, 'v');
    EXPECT_TRUE(answer("K", longest));
    EXPECT_EQ(Journal(), "answer K " + longest + "\n");
    EXPECT_THAT(log.Take(), HasSubstr("NetCfgAddAnswerStringInt - Record refused, it could not be read back: "
                                      "empty key or name, or a blank or line end in it\n"));
}

TEST_F(JournalTest, TextsOfTheCacheItselfMayBeArgumentsOfItsChange) {
    ASSERT_TRUE(HBLNetCfgAddAnswerString(db, "KEY", "value"));
    auto *entry = static_cast<NetworkConfigDictionaryEntry *>(nullptr);
    ASSERT_TRUE(HashTable_Lookup(db->dictHash, "key", reinterpret_cast<void **>(&entry)));
    EXPECT_TRUE(HBLNetCfgAddAnswerString(db, entry->key, entry->value));
    ASSERT_TRUE(HashTable_Lookup(db->dictHash, "key", reinterpret_cast<void **>(&entry)));
    EXPECT_TRUE(HBLNetCfgRemoveAnswer(db, entry->key));
    EXPECT_EQ(Journal(), "answer KEY value\nremove_answer KEY\nanswer KEY value\nremove_answer KEY\n");
}

TEST_F(JournalTest, BulkRemovalJournalsOnlyWhatItRemovesAndEmptiesTheCacheWhateverTheFileTakes) {
    NetCfgHashAddNATPortFwd(db, 8, true, 1, "1.2.3.4", 2, nullptr);
    NetCfgHashAddNATPortFwd(db, 8, false, 3, "1.2.3.4", 4, nullptr);
    NetCfgHashAddDHCPMACToIP(db, 8, MAC, "10.0.0.1");
    NetCfgHashAddDHCPMACToIP(db, 9, MAC, "10.0.0.1");
    EXPECT_TRUE(HBLNetCfgRemoveAllNATPortFwd(db, 8, true, false, true));
    ASSERT_NE(db->natConfig[8], nullptr);
    EXPECT_EQ(db->natConfig[8]->tcpHash, nullptr);
    EXPECT_TRUE(HBLNetCfgRemoveAllNATPortFwd(db, 8, true, true, false));
    EXPECT_EQ(db->natConfig[8], nullptr);
    EXPECT_TRUE(HBLNetCfgRemoveAllDHCPMACToIPMapping(db, 8, true));
    EXPECT_TRUE(HBLNetCfgRemoveAllDHCPMACToIPMapping(db, 8, true)) << "nothing left to remove";
    EXPECT_EQ(Journal(), "remove_nat_portfwd 8 tcp 1\nremove_dhcp_mac_to_ip 8 02:00:00:11:22:33\n");
    EXPECT_TRUE(NetCfgFileIsAsLastSeen(db));
    EXPECT_EQ(Records(), "add_dhcp_mac_to_ip 9 02:00:00:11:22:33 10.0.0.1\n");
    NetCfgHashAddNATPortFwd(db, 8, false, 3, "1.2.3.4", 4, nullptr);
    NetCfgHashAddNATPortFwd(db, 8, false, 5, "1.2.3.4", 4, nullptr);
    const rlim_t full = db->fileIdentity.size;
    HBLLogSetMask(LOG_WRN | LOG_INFO2);
    EXPECT_FALSE(OnFullDisk(full, [&] { return HBLNetCfgRemoveAllNATPortFwd(db, 8, true, true, true); }));
    EXPECT_THAT(log.Take(), HasSubstr("HBLNetCfgRemoveAllNATPortFwd - All the forwarded UDP ports could not "
                                      "be deleted\nNetCfgNATPortFwdFreeEntry - Free called over vnet: 8"));
    EXPECT_FALSE(OnFullDisk(full, [&] { return HBLNetCfgRemoveAllDHCPMACToIPMapping(db, 9, true); }));
    EXPECT_EQ(Records(), "");
}
