#include <gmock/gmock.h>

#include <functional>
#include <vector>

#include "lib/harbrel/cache/tables.h"
#include "tests/unit/harbrel/cache/cacheFixture.h"

using testing::HasSubstr;

namespace {

using Change = std::function<bool(HBLNetworkConfigurationDB *)>;
constexpr const char *MAC = "02:00:00:11:22:33";

// One family's changes, what they look like in the file, and the log when the file takes no line at all.
struct FamilyCase {
    const char *name;
    Change addOld, addNew, remove;
    std::string oldLine, newLine, removeLine;
    bool absentIsRemoved;
    std::string newFails, replacementFails;
};

const std::vector<FamilyCase> &Families() {
    static const std::vector<FamilyCase> cases = {
        {"answer", [](auto *db) { return HBLNetCfgAddAnswerString(db, "K", "old"); },
         [](auto *db) { return HBLNetCfgAddAnswerString(db, "K", "new"); },
         [](auto *db) { return HBLNetCfgRemoveAnswer(db, "K"); }, "answer K old\n", "answer K new\n",
         "remove_answer K\n", true, R"(
NetCfgAddAnswerStringInt - Failed to write to K:new to database file, error: No space left on device
HBLNetCfgRemoveAnswer - Failed to remove "K" in database file
NetCfgAddAnswerStringInt - Failed to remove newly added record, K:new
)",
         R"(
NetCfgAddAnswerStringInt - Failed to remove: K from database file, error: No space left on device
NetCfgAddAnswerStringInt - Failed to remove: K from database file, error: No space left on device
NetCfgAddAnswerStringInt - Failed to restore previous values K:old
)"},
        {"bridgeMapping", [](auto *db) { return HBLNetCfgAddHostAdapterMapping(db, "eth0", 2, false); },
         [](auto *db) { return HBLNetCfgAddHostAdapterMapping(db, "eth0", -1, false); },
         [](auto *db) { return HBLNetCfgRemoveHostAdapterMapping(db, "eth0"); },
         "add_bridge_mapping eth0 2\n", "add_bridge_mapping eth0 -1\n", "remove_bridge_mapping eth0\n", false,
         R"(
HBLNetCfgAddHostAdapterMapping - Failed to write bridge for adapter: eth0 To vnet: -1 to database file, error: No space left on device
HBLNetCfgRemoveHostAdapterMapping - Failed to remove Bridge mapping for adapter: eth0 from database file
HBLNetCfgRemoveHostAdapterMapping - Removing Bridge mapping failed
HBLNetCfgAddHostAdapterMapping - Failed to remove newly added record, adapter: eth0, vnet:-1
)",
         R"(
HBLNetCfgAddHostAdapterMapping - Failed to remove bridge mapping for adapter: eth0 To vnet: -1 from database file, error: No space left on device
HBLNetCfgAddHostAdapterMapping - Failed to remove bridge mapping for adapter: eth0 To vnet: 2 from database file, error: No space left on device
HBLNetCfgAddHostAdapterMapping - Failed to restore previous values of Bridge mapping adapter: eth0, vnet: 2
)"},
        {"dhcpMapping", [](auto *db) { return HBLNetCfgAddDHCPMACToIP(db, 8, MAC, "10.0.0.1", false); },
         [](auto *db) { return HBLNetCfgAddDHCPMACToIP(db, 8, MAC, "10.0.0.2", false); },
         [](auto *db) { return HBLNetCfgRemoveDHCPMACToIP(db, 8, MAC); },
         "add_dhcp_mac_to_ip 8 02:00:00:11:22:33 10.0.0.1\n",
         "add_dhcp_mac_to_ip 8 02:00:00:11:22:33 10.0.0.2\n", "remove_dhcp_mac_to_ip 8 02:00:00:11:22:33\n",
         false, R"(
HBLNetCfgLookupDHCPMACToIP - List of DHCP mappings is empty
HBLNetCfgAddDHCPMACToIP - Failed to add DHCP address mapping record for MAC: 02:00:00:11:22:33 To IP: 10.0.0.2
HBLNetCfgRemoveDHCPMACToIP - Failed to remove DHCP address mapping for MAC: 02:00:00:11:22:33
HBLNetCfgAddDHCPMACToIP - Failed to remove newly added record, 02:00:00:11:22:33:10.0.0.2
)",
         R"(
HBLNetCfgAddDHCPMACToIP - Failed to remove DHCP address mapping for MAC: 02:00:00:11:22:33 To IP: 10.0.0.2
HBLNetCfgAddDHCPMACToIP - Failed to remove DHCP address mapping for MAC: 02:00:00:11:22:33 To IP: 10.0.0.1
HBLNetCfgAddDHCPMACToIP - Failed to restore previous values 02:00:00:11:22:33:10.0.0.1
)"},
        {"portForward",
         [](auto *db) { return HBLNetCfgAddNATPortFwd(db, 8, true, 80, "10.0.0.1", 81, "", false); },
         [](auto *db) { return HBLNetCfgAddNATPortFwd(db, 8, true, 80, "10.0.0.2", 82, nullptr, false); },
         [](auto *db) { return HBLNetCfgRemoveNATPortFwd(db, 8, true, 80); },
         "add_nat_portfwd 8 tcp 80 10.0.0.1 81 \n", "add_nat_portfwd 8 tcp 80 10.0.0.2 82\n",
         "remove_nat_portfwd 8 tcp 80\n", false, R"(
HBLNetCfgLookupNATPortFwd - List of NAT forwarded ports is empty
HBLNetCfgAddNATPortFwd - Failed to add port forward record for tcp port 80
HBLNetCfgRemoveNATPortFwd - Failed to remove NAT port forward for tcp port 80 from database file, error: No space left on device
HBLNetCfgAddNATPortFwd - Failed to remove newly added record, vnet: 8, tcp, port 80, vmip: 10.0.0.2, vmPort: 82
)",
         R"(
HBLNetCfgAddNATPortFwd - Failed to remove port forward record for tcp port 80
HBLNetCfgAddNATPortFwd - Failed to remove port forward record for tcp port 80
HBLNetCfgAddNATPortFwd - Failed to restore previous values, vnet: 8, tcp, port 80, vmip: 10.0.0.1, vmPort: 81
)"},
    };
    return cases;
}

class JournalTest : public CacheTest {};
class JournalFamilyTest : public CacheTest, public testing::WithParamInterface<FamilyCase> {};

}  // namespace

INSTANTIATE_TEST_SUITE_P(Families, JournalFamilyTest, testing::ValuesIn(Families()),
                         [](const auto &family) { return family.param.name; });

TEST_P(JournalFamilyTest, ChangesReachCacheAndFile) {
    const FamilyCase &family = GetParam();
    EXPECT_EQ(family.remove(db), family.absentIsRemoved);
    EXPECT_EQ(Journal(), "");
    EXPECT_TRUE(family.addOld(db));
    EXPECT_EQ(Records(), family.oldLine);
    EXPECT_TRUE(family.addNew(db));
    EXPECT_EQ(Records(), family.newLine);
    EXPECT_TRUE(family.remove(db));
    EXPECT_EQ(Records(), "");
    EXPECT_EQ(Journal(), family.oldLine + family.removeLine + family.newLine + family.removeLine);
    EXPECT_EQ(family.remove(db), family.absentIsRemoved);
    EXPECT_TRUE(NetCfgFileIsAsLastSeen(db));
}

// A new record stays when its undo fails too; a replaced or removed one is put back.
TEST_P(JournalFamilyTest, CacheKeepsARecordWhenTheFileRefusesEveryLine) {
    const FamilyCase &family = GetParam();
    const std::string path = db->path;
    OpenStream("/dev/full");
    EXPECT_FALSE(family.addNew(db));
    EXPECT_EQ(Records(), family.newLine);
    EXPECT_EQ("\n" + log.Take(), family.newFails);
    OpenStream(path.c_str());
    ASSERT_TRUE(family.addOld(db));
    const std::string journal = Journal();
    OpenStream("/dev/full");
    EXPECT_FALSE(family.addNew(db));
    EXPECT_EQ(Records(), family.oldLine);
    EXPECT_EQ("\n" + log.Take(), family.replacementFails);
    EXPECT_FALSE(family.remove(db));
    EXPECT_EQ(Records(), family.oldLine);
    EXPECT_EQ(Journal(), journal);
}

// The room for further bytes runs out at each byte of the two lines of a replacement. Whatever the point, the
// cache holds the old record and the file whole lines only, and the next change finds a sound file.
TEST_P(JournalFamilyTest, FullDiskAtAnyByteLeavesWholeLines) {
    const FamilyCase &family = GetParam();
    ASSERT_TRUE(family.addOld(db));
    const size_t needed = family.removeLine.size() + family.newLine.size();
    std::string journal = Journal();
    for (size_t room = 0; room < needed; ++room) {
        {
            const FileSizeLimit limit(db->fileIdentity.size + room);
            EXPECT_FALSE(family.addNew(db)) << room;
        }
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

TEST_F(JournalTest, UndoneReplacementIsJournalledWhenThereIsRoomForIt) {
    ASSERT_TRUE(HBLNetCfgAddAnswerString(db, "K", "old"));
    const std::string removal = "remove_answer K\n";
    const std::string old = "answer K old\n";
    {
        const FileSizeLimit limit(db->fileIdentity.size + 2 * removal.size() + old.size());
        EXPECT_FALSE(HBLNetCfgAddAnswerString(db, "K", std::string(200, 'n').c_str()));
    }
    EXPECT_EQ(Records(), old);
    EXPECT_EQ(Journal(), old + removal + removal + old);
}

TEST_F(JournalTest, UndoneNewRecordIsJournalledWhenThereIsRoomForIt) {
    const std::string removal = "remove_answer K\n";
    {
        const FileSizeLimit limit(db->fileIdentity.size + removal.size());
        EXPECT_FALSE(HBLNetCfgAddAnswerString(db, "K", std::string(200, 'n').c_str()));
    }
    EXPECT_EQ(Records(), "");
    EXPECT_EQ(Journal(), removal);
}

TEST_F(JournalTest, EqualValuesAreJournalledAgainButForMappingsAndSwitches) {
    const std::string longest(127, 'd');
    const struct {
        Change change;
        std::string journal;
    } cases[] = {
        {[](auto *c) { return HBLNetCfgAddAnswerInt32(c, "K", -1); }, "answer K -1\n"},
        {[](auto *c) { return HBLNetCfgAddAnswerInt32(c, "k", -1); }, "remove_answer k\nanswer k -1\n"},
        {[](auto *c) { return HBLNetCfgSetAnswerBool(c, "B", false); }, ""},
        {[](auto *c) { return HBLNetCfgSetAnswerBool(c, "B", true); }, "answer B yes\n"},
        {[](auto *c) { return HBLNetCfgSetAnswerBool(c, "b", true); }, ""},
        {[](auto *c) { return HBLNetCfgSetAnswerBool(c, "B", false); }, "remove_answer B\nanswer B no\n"},
        {[](auto *c) { return HBLNetCfgAddHostAdapterMapping(c, "eth0", 3, false); },
         "add_bridge_mapping eth0 3\n"},
        {[](auto *c) { return HBLNetCfgAddHostAdapterMapping(c, "ETH0", 3, false); }, ""},
        {[](auto *c) { return HBLNetCfgAddAnswerString(c, "BINDIR", "/opt/x"); }, ""},
        {[&](auto *c) { return HBLNetCfgAddNATPortFwd(c, 8, true, 1, "1.2.3.4", 2, longest.c_str(), false); },
         "add_nat_portfwd 8 tcp 1 1.2.3.4 2 " + longest + "\n"},
        {[](auto *c) { return HBLNetCfgRemoveNATPortFwd(c, 8, true, 1); }, "remove_nat_portfwd 8 tcp 1\n"},
    };
    std::string journal;
    for (const auto &row : cases) {
        EXPECT_TRUE(row.change(db)) << row.journal;
        EXPECT_EQ(Journal(), journal += row.journal);
    }
}

TEST_F(JournalTest, RecordsThatWouldNotReadBackAreRefused) {
    const std::string name128(128, 'n');
    const struct {
        const char *name;
        bool accepted;
        Change change;
    } cases[] = {
        {"line end in value", false,
         [](auto *c) { return HBLNetCfgAddAnswerString(c, "K", "a\nanswer X y"); }},
        {"carriage return", false, [](auto *c) { return HBLNetCfgAddAnswerString(c, "K", "a\r"); }},
        {"empty value", false, [](auto *c) { return HBLNetCfgAddAnswerString(c, "K", ""); }},
        {"empty key", false, [](auto *c) { return HBLNetCfgAddAnswerString(c, "", "v"); }},
        {"blank in key", false, [](auto *c) { return HBLNetCfgAddAnswerString(c, "a b", "v"); }},
        {"line of 2048", false,
         [](auto *c) { return HBLNetCfgAddAnswerString(c, "K", std::string(2048 - 9, 'v').c_str()); }},
        {"line of 2047", true,
         [](auto *c) { return HBLNetCfgAddAnswerString(c, "K", std::string(2047 - 9, 'v').c_str()); }},
        {"blank in adapter", false,
         [](auto *c) { return HBLNetCfgAddHostAdapterMapping(c, "e 1", 1, false); }},
        {"long adapter", false,
         [&](auto *c) { return HBLNetCfgAddHostAdapterMapping(c, name128.c_str(), 1, false); }},
        {"network -2", false, [](auto *c) { return HBLNetCfgAddHostAdapterMapping(c, "eth0", -2, false); }},
        {"network 256", false,
         [](auto *c) { return HBLNetCfgAddDHCPMACToIP(c, 256, MAC, "10.0.0.1", false); }},
        {"long description", false,
         [&](auto *c) {
             return HBLNetCfgAddNATPortFwd(c, 8, true, 1, "1.2.3.4", 2, name128.c_str(), false);
         }},
        {"line end in description", false,
         [](auto *c) { return HBLNetCfgAddNATPortFwd(c, 8, true, 1, "1.2.3.4", 2, "a\nb", false); }},
        {"blank in address", false,
         [](auto *c) { return HBLNetCfgAddNATPortFwd(c, 8, true, 1, "1.2.3.4 5", 2, nullptr, false); }},
    };
    for (const auto &row : cases) {
        const std::string records = Records();
        const std::string journal = Journal();
        log.Take();
        EXPECT_EQ(row.change(db), row.accepted) << row.name;
        EXPECT_EQ(Records() == records && Journal() == journal, !row.accepted) << row.name;
        EXPECT_EQ(log.Take().find("could not be read back") != std::string::npos, !row.accepted) << row.name;
    }
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

TEST_F(JournalTest, LinesGoBehindWhatAnotherProcessAppended) {
    ASSERT_TRUE(HBLNetCfgAddAnswerString(db, "A", "1"));
    FILE *other = fopen(db->path, "a");
    fputs("answer OTHER longer than ours\nanswer CUT off", other);
    fclose(other);
    EXPECT_FALSE(NetCfgFileIsAsLastSeen(db));
    ASSERT_TRUE(HBLNetCfgAddAnswerString(db, "B", "2"));
    EXPECT_FALSE(NetCfgFileIsAsLastSeen(db)) << "our own line must not hide the other one's";
    EXPECT_THAT(Journal(), HasSubstr("answer OTHER longer than ours\n"));

    ASSERT_TRUE(NetCfgTrackFile(db));
    other = fopen(db->path, "a");
    fputs("answer CUT off", other);
    fclose(other);
    ASSERT_TRUE(NetCfgTrackFile(db));
    ASSERT_TRUE(HBLNetCfgAddAnswerString(db, "C", "3"));
    EXPECT_THAT(Journal(), HasSubstr("answer CUT off\nanswer C 3\n"));
    EXPECT_TRUE(NetCfgFileIsAsLastSeen(db));
}

TEST_F(JournalTest, BulkRemovalJournalsOnlyWhatItRemoves) {
    Apply(
        "add_nat_portfwd 8 tcp 1 1.2.3.4 2\nadd_nat_portfwd 8 udp 3 1.2.3.4 4\n"
        "add_dhcp_mac_to_ip 8 02:00:00:11:22:33 10.0.0.1\nadd_dhcp_mac_to_ip 9 02:00:00:11:22:33 10.0.0.1\n");
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
}

TEST_F(JournalTest, BulkRemovalEmptiesTheCacheEvenWhenTheFileRefuses) {
    Apply(
        "add_nat_portfwd 8 udp 3 1.2.3.4 4\nadd_nat_portfwd 8 udp 5 1.2.3.4 4\n"
        "add_dhcp_mac_to_ip 8 02:00:00:11:22:33 10.0.0.1\n");
    OpenStream("/dev/full");
    HBLLogSetMask(LOG_ERR | LOG_WRN);
    EXPECT_FALSE(HBLNetCfgRemoveAllNATPortFwd(db, 8, true, true, true));
    EXPECT_THAT(
        log.Take(),
        HasSubstr("HBLNetCfgRemoveAllNATPortFwd - All the forwarded UDP ports could not be deleted\n"));
    EXPECT_FALSE(HBLNetCfgRemoveAllDHCPMACToIPMapping(db, 8, true));
    EXPECT_THAT(
        log.Take(),
        HasSubstr("HBLNetCfgRemoveAllDHCPMACToIPMapping - All the DHCP mappings could not be deleted\n"));
    EXPECT_EQ(Records(), "");
}

TEST_F(JournalTest, FailedTableAddLeavesNoHolderBehind) {
    EXPECT_FALSE(NetCfgHashAddDHCPMACToIP(db, 256, MAC, "10.0.0.1"));
    EXPECT_THAT(log.Take(),
                HasSubstr("NetCfgHashAddDHCPMACToIP - Failed to insert DHCP entry into hash table\n"));
    EXPECT_FALSE(NetCfgHashRemoveNATPortFwd(db, 3, true, 1));
    EXPECT_EQ(log.Take(),
              "NetCfgHashRemoveNATPortFwd - Cannot delete port list entry from empty port list\n");
}
