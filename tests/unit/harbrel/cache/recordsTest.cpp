#include <gmock/gmock.h>

#include "tests/unit/harbrel/cache/cacheFixture.h"

using testing::HasSubstr;

namespace {
class RecordsTest : public CacheTest {};
}  // namespace

TEST_F(RecordsTest, VersionLineIsReadWhole) {
    const struct {
        const char *text;
        bool accepted;
        uint32_t major, minor;
        const char *line;
    } cases[] = {
        {"1,0", true, 1, 0, ""},
        {"1,7", true, 1, 7, ""},
        {"0x1,0", true, 1, 0, ""},
        {"2,0", false, 9, 9, "ParseVersionString - Unsupported major version, supported: 1, actual: 2\n"},
        {"-1,0", false, 9, 9,
         "ParseVersionString - Cannot parse major version of database file, aborting parsing\n"},
        {",", false, 9, 9,
         "ParseVersionString - Cannot parse major version of database file, aborting parsing\n"},
        {"1", false, 9, 9,
         "ParseVersionString - Cannot parse or invalid minor version of database file, aborting parsing\n"},
        {"1,0 ", false, 9, 9,
         "ParseVersionString - Cannot parse or invalid minor version of database file, aborting parsing\n"},
    };
    for (const auto &row : cases) {
        uint32_t major = 9;
        uint32_t minor = 9;
        EXPECT_EQ(ParseVersionString(row.text, &major, &minor, 1), row.accepted) << row.text;
        EXPECT_EQ(major, row.major) << row.text;
        EXPECT_EQ(minor, row.minor) << row.text;
        EXPECT_EQ(log.Take(), row.line) << row.text;
    }
    EXPECT_TRUE(ParseVersionString("1,0", nullptr, nullptr, 1));
}

TEST_F(RecordsTest, RecordLinesAreAppliedOrDroppedWithTheirReason) {
    const std::string long127(127, 'x');
    const struct {
        std::string lines;
        std::string records;  // what is left in the cache
        const char *warning;  // of the parser; the loader's line must follow
    } cases[] = {
        {"answer MY_NOTE two  words \n", "answer MY_NOTE two  words \n", nullptr},
        {"  ANSWER   K v\n", "answer K v\n", nullptr},
        {"answers K v\n# note\n", "", nullptr},
        {"answer K a\nanswer k b\n", "answer k b\n", nullptr},
        {"answer K a\nremove_answer k\nremove_answer k\n", "", nullptr},
        {"answer VNET_1_HOSTONLY_SUBNET\n", "", "DictRecordParseFunct - Empty value for key"},
        {"answer\n", "", "DictRecordParseFunct - Failed to extract key"},
        {"ADD_BRIDGE_MAPPING eth0 0\n", "add_bridge_mapping eth0 0\n", nullptr},
        {"add_bridge_mapping eth0 -1\n", "add_bridge_mapping eth0 -1\n", nullptr},
        {"add_bridge_mapping eth0 0xff\n", "add_bridge_mapping eth0 255\n", nullptr},
        {"add_bridge_mapping eth0 -2\n", "",
         "BridgeMappingRecordParseFunct - Failed to parse vnet number or invalid vnet number"},
        {"add_bridge_mapping eth0 256\n", "",
         "BridgeMappingRecordParseFunct - Failed to parse vnet number or invalid vnet number"},
        {"add_bridge_mapping " + long127 + " 1\n", "add_bridge_mapping " + long127 + " 1\n", nullptr},
        {"add_bridge_mapping x" + long127 + " 1\n", "",
         "BridgeMappingRecordParseFunct - Failed to parse host adapter or invalid host adpater name"},
        {"remove_bridge_mapping eth0\n", "",
         "BridgeMappingRecordParseFunct - Failed to remove bridge mapping in hash table"},
        {"add_dhcp_mac_to_ip 1 2:0:0:a:b:c 192.168.1.5\n",
         "add_dhcp_mac_to_ip 1 02:00:00:0A:0B:0C 192.168.1.5\n", nullptr},
        {"add_dhcp_mac_to_ip 1 2:0:0:a:b:c 192.168.1.5\nremove_dhcp_mac_to_ip 1 02:00:00:0a:0b:0c\n", "",
         nullptr},
        {"add_dhcp_mac_to_ip -1 2:0:0:a:b:c 192.168.1.5\n", "",
         "DhcpMacRecordParseFunct - Failed to parse vnet number or invalid vnet number"},
        {"add_dhcp_mac_to_ip 1 2:0:0:a:b 192.168.1.5\n", "",
         "DhcpMacRecordParseFunct - Failed to parse MAC address or invalid MAC address"},
        {"add_dhcp_mac_to_ip 1 2:0:0:a:b:c 192.168.1.256\n", "",
         "DhcpMacRecordParseFunct - Failed to parse IP address or invalid IP address"},
        {"add_nat_portfwd 8 TCP 010 1.2.3.4 80\n", "add_nat_portfwd 8 tcp 8 1.2.3.4 80 \n", nullptr},
        {"add_nat_portfwd 8 udp 1 1.2.3.4 80  a b\nadd_nat_portfwd 8 tcp 1 1.2.3.4 81 c\n",
         "add_nat_portfwd 8 tcp 1 1.2.3.4 81 c\nadd_nat_portfwd 8 udp 1 1.2.3.4 80  a b\n", nullptr},
        {"add_nat_portfwd 8 tcp 1 1.2.3.4 80 " + long127 + "\n",
         "add_nat_portfwd 8 tcp 1 1.2.3.4 80 " + long127 + "\n", nullptr},
        {"add_nat_portfwd 8 tcp 1 1.2.3.4 80 x" + long127 + "\n", "add_nat_portfwd 8 tcp 1 1.2.3.4 80\n",
         nullptr},
        {"add_nat_portfwd 8 TCP 0 1.2.3.4 80\n", "", "NatFwdRecordParseFunct - Failed to parse host port"},
        {"add_nat_portfwd 8 TCP 1 1.2.3.4 65536\n", "", "NatFwdRecordParseFunct - Failed to parse host port"},
        {"add_nat_portfwd 8 sctp 1 1.2.3.4 80\n", "", "NatFwdRecordParseFunct - Failed to parse tcp/udp"},
        {"add_nat_portfwd 256 tcp 1 1.2.3.4 80\n", "",
         "NatFwdRecordParseFunct - Failed to extract vnet number or invalid vnet number"},
        {"add_nat_portfwd 8 tcp 1 1.2.3 80\n", "",
         "NatFwdRecordParseFunct - Failed to parse VM IP address or invalid address"},
        {"remove_nat_portfwd 8 tcp 1\n", "",
         "NatFwdRecordParseFunct - Failed to remove NAT port forward from hash table"},
        {"   \n", "", ""},
    };
    HBLLogSetMask(LOG_ERR | LOG_WRN);
    for (const auto &row : cases) {
        Forget();
        log.Take();
        Apply(row.lines);
        EXPECT_EQ(Records(), row.records) << row.lines;
        const std::string lines = log.Take();
        const std::string dropped = "HBLNetCfgLoad - Failed to parse record at line #: 2, data: " + row.lines;
        if (row.warning != nullptr) {
            EXPECT_THAT(lines,
                        HasSubstr((*row.warning != '\0' ? row.warning + std::string("\n") : "") + dropped));
        } else {
            EXPECT_EQ(lines.find("Failed to parse"), std::string::npos) << lines;
        }
    }
}

TEST_F(RecordsTest, RemovalBeforeTheFirstAnswerIsOnlyWarnedOf) {
    HBLLogSetMask(LOG_ERR | LOG_WRN);
    Apply("remove_answer K\n");
    EXPECT_EQ(log.Take(), "DictRecordParseFunct - Cannot delete from empty hash table\n");
}
