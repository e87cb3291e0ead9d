#include <gtest/gtest.h>

#include <string>

#include "lib/harbrel/cache/tables.h"
#include "tests/support/cacheTest.h"

using DatabaseRewrite = CacheTest;

TEST_F(DatabaseRewrite, RecordsStandInTheirOrderAndBinDirIsDropped) {
    LoadRecords("");
    NetCfgHashAddAnswer(db, "VNET_1_DHCP", "yes");
    NetCfgHashAddAnswer(db, "VNET_10_DHCP", "no");
    NetCfgHashAddAnswer(db, "a", "small letters last");
    NetCfgHashAddAnswer(db, "BINDIR", "/usr/bin");
    NetCfgHashAddNATPortFwd(db, 9, true, 1, "10.0.9.2", 1, "");
    NetCfgHashAddNATPortFwd(db, 8, false, 53, "10.0.8.2", 53, nullptr);
    NetCfgHashAddNATPortFwd(db, 8, true, 8080, "10.0.8.2", 80, nullptr);
    NetCfgHashAddNATPortFwd(db, 8, true, 443, "10.0.8.2", 443, "two  words ");
    NetCfgHashAddDHCPMACToIP(db, 200, "02:00:00:00:00:01", "10.0.200.3");
    NetCfgHashAddDHCPMACToIP(db, 3, "02:00:00:00:00:02", "10.0.3.3");
    NetCfgHashAddBridgeMapping(db, "eth1", 2);
    NetCfgHashAddBridgeMapping(db, "Eth2", 2);
    NetCfgHashAddBridgeMapping(db, "wlan0", -1);
    EXPECT_EQ(
        "answer VNET_10_DHCP no\n"
        "answer VNET_1_DHCP yes\n"
        "answer a small letters last\n"
        "add_nat_portfwd 8 tcp 443 10.0.8.2 443 two  words \n"
        "add_nat_portfwd 8 tcp 8080 10.0.8.2 80\n"
        "add_nat_portfwd 8 udp 53 10.0.8.2 53\n"
        "add_nat_portfwd 9 tcp 1 10.0.9.2 1 \n"
        "add_dhcp_mac_to_ip 3 02:00:00:00:00:02 10.0.3.3\n"
        "add_dhcp_mac_to_ip 200 02:00:00:00:00:01 10.0.200.3\n"
        "add_bridge_mapping wlan0 -1\n"
        "add_bridge_mapping Eth2 2\n"
        "add_bridge_mapping eth1 2\n",
        Records());
}
