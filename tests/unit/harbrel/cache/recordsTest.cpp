#include <gmock/gmock.h>

#include "tests/support/cacheTest.h"

using testing::HasSubstr;

using RecordsTest = CacheTest;

TEST_F(RecordsTest, ReplayedLinesLeaveTheirRecords) {
    const std::string long127(127, 'x');
    const std::pair<std::string, std::string> cases[] = {
        {"answer MY_NOTE two  words \n", "answer MY_NOTE two  words \n"},
        {"  ANSWER   K v\n", "answer K v\n"},
        {"answer K a\nanswer k b\n", "answer k b\n"},
        {"remove_answer K\nanswer K a\nremove_answer k\nremove_answer k\n", ""},
        {"add_bridge_mapping eth0 -1\n", "add_bridge_mapping eth0 -1\n"},
        {"add_bridge_mapping eth0 0xff\n", "add_bridge_mapping eth0 255\n"},
        {"add_bridge_mapping " + long127 + " 1\n", "add_bridge_mapping " + long127 + " 1\n"},
        {"add_dhcp_mac_to_ip 1 2:0:0:a:b:c 192.168.1.5\n",
         "add_dhcp_mac_to_ip 1 02:00:00:0A:0B:0C 192.168.1.5\n"},
        {"add_dhcp_mac_to_ip 1 2:0:0:a:b:c 1.2.3.4\nremove_dhcp_mac_to_ip 1 02:00:00:0a:0b:0c\n", ""},
        {"add_nat_portfwd 8 TCP 010 1.2.3.4 80\n", "add_nat_portfwd 8 tcp 8 1.2.3.4 80 \n"},
        {"add_nat_portfwd 8 udp 1 1.2.3.4 80  a b\nadd_nat_portfwd 8 tcp 1 1.2.3.4 81 c\n",
         "add_nat_portfwd 8 tcp 1 1.2.3.4 81 c\nadd_nat_portfwd 8 udp 1 1.2.3.4 80  a b\n"},
        // Answers and adapters by their bytes, forwards as texts, networks by number.
        {"answer VNET_1_DHCP yes\nanswer VNET_10_DHCP no\nanswer BINDIR /bin\nanswer a a\nanswer Z z\n",
         "answer VNET_10_DHCP no\nanswer VNET_1_DHCP yes\nanswer Z z\nanswer a a\n"},
        {"add_nat_portfwd 9 tcp 1 1.2.3.4 1\nadd_nat_portfwd 8 tcp 8080 1.2.3.4 80\nadd_nat_portfwd 8 tcp "
         "443 "
         "1.2.3.4 443\n",
         "add_nat_portfwd 8 tcp 443 1.2.3.4 443 \nadd_nat_portfwd 8 tcp 8080 1.2.3.4 80 \nadd_nat_portfwd 9 "
         "tcp "
         "1 1.2.3.4 1 \n"},
        {"add_bridge_mapping eth1 2\nadd_bridge_mapping Eth2 2\nadd_bridge_mapping wlan0 "
         "-1\nadd_dhcp_mac_to_ip "
         "200 2:0:0:0:0:1 1.2.3.4\nadd_dhcp_mac_to_ip 3 2:0:0:0:0:2 1.2.3.4\n",
         "add_dhcp_mac_to_ip 3 02:00:00:00:00:02 1.2.3.4\nadd_dhcp_mac_to_ip 200 02:00:00:00:00:01 1.2.3.4\n"
         "add_bridge_mapping wlan0 -1\nadd_bridge_mapping Eth2 2\nadd_bridge_mapping eth1 2\n"},
        {"add_nat_portfwd 8 tcp 1 1.2.3.4 80 " + long127 + "\n",
         "add_nat_portfwd 8 tcp 1 1.2.3.4 80 " + long127 + "\n"},
        {"add_nat_portfwd 8 tcp 1 1.2.3.4 80 x" + long127 + "\n", "add_nat_portfwd 8 tcp 1 1.2.3.4 80\n"},
    };
    for (const auto &[lines, records] : cases) {
        LoadRecords(lines);
        EXPECT_EQ(Records(), records) << lines;
        EXPECT_THAT(log.Take(), testing::Not(HasSubstr("Failed to parse"))) << lines;
    }
}

TEST_F(RecordsTest, BadLineIsDroppedWithItsReason) {
    const std::pair<std::string, const char *> cases[] = {
        {"   ", ""},
        {"answer", "Failed to extract key\n"},
        {"answer VNET_1_HOSTONLY_SUBNET", "Empty value for key\n"},
        {"add_bridge_mapping eth0 -2", "Failed to parse vnet number or invalid vnet number\n"},
        {"add_bridge_mapping eth0 256", "Failed to parse vnet number or invalid vnet number\n"},
        {"add_bridge_mapping " + std::string(128, 'x') + " 1",
         "Failed to parse host adapter or invalid host adpater name\n"},
        {"remove_bridge_mapping eth0", "Failed to remove bridge mapping in hash table\n"},
        {"add_dhcp_mac_to_ip -1 2:0:0:a:b:c 1.2.3.4", "Failed to parse vnet number or invalid vnet number\n"},
        {"add_dhcp_mac_to_ip 1 2:0:0:a:b 1.2.3.4", "Failed to parse MAC address or invalid MAC address\n"},
        {"add_dhcp_mac_to_ip 1 2:0:0:a:b:c 1.2.3.256", "Failed to parse IP address or invalid IP address\n"},
        {"add_nat_portfwd 8 TCP 0 1.2.3.4 80", "Failed to parse host port\n"},
        {"add_nat_portfwd 8 TCP 1 1.2.3.4 65536", "Failed to parse host port\n"},
        {"add_nat_portfwd 8 sctp 1 1.2.3.4 80", "Failed to parse tcp/udp\n"},
        {"add_nat_portfwd 256 tcp 1 1.2.3.4 80", "Failed to extract vnet number or invalid vnet number\n"},
        {"add_nat_portfwd 8 tcp 1 1.2.3 80", "Failed to parse VM IP address or invalid address\n"},
        {"remove_nat_portfwd 8 tcp 1", "Failed to remove NAT port forward from hash table\n"},
    };
    HBLLogSetMask(LOG_ERR | LOG_WRN);
    for (const auto &[line, reason] : cases) {
        LoadRecords(line + "\n");
        EXPECT_EQ(Records(), "") << line;
        EXPECT_THAT(log.Take(),
                    HasSubstr(std::string(reason) +
                              "HBLNetCfgLoad - Failed to parse record at line #: 2, data: " + line + "\n"));
    }
}
