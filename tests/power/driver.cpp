// What try-power has the library do, and its reading of databases.
//
//   power_driver ACTION    does one thing on the host that it runs on; status 0 when it went well
//   power_driver           reads paths from standard input, a line each, and answers each with the database
//   as
//                          the library understands it behind its size; -1 for one that does not load
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <functional>
#include <iostream>
#include <map>
#include <string>

#include "daemons/zelan-dhcpd/leaseFile.h"
#include "daemons/zelan-natd/macFile.h"
#include "lib/harbrel/database/database.h"
#include "lib/harbrel/harbrel.h"
#include "tests/support/command.h"

namespace {

constexpr const char *LEASES = "/etc/orvane/leases";

bool Move(const char *adapter, int network) {
    HBL_HostAdapter moved = {};
    moved.version = 1;
    strcpy(moved.deviceName, adapter);
    HBL_NetworkID destination = {};
    destination.version = destination.type = 1;
    destination.vnet = network;
    return HBL_BridgeMoveAdapter(&moved, nullptr, &destination);
}

// One change of each kind, replaced records among them.
bool Change() {
    return HBL_VnetCfgAddAnswer("VNET_1_DHCP", "no") && HBL_SetVnetSubnetAddr("zelan1", "10.7.2.0") &&
           HBL_SetNATPortForward("zelan8", true, 8080, "10.7.8.6", 81, "web", 3) &&
           HBL_SetDHCPIPToMAC("zelan8", "10.7.8.10", "00:0C:29:00:00:01") && Move("eth7", 3) &&
           HBL_VnetCfgRemoveAnswer("VNET_8_DHCP");
}

bool Unload() {
    HBL_Unload();
    return true;
}

bool TakeLeasesOver() {
    LeasePlan plan;
    plan.format = LeaseFormat::DNSMASQ;
    plan.owner = {0, 0};
    return static_cast<bool>(LeaseFile_Prepare(LEASES, plan));
}

const std::map<std::string, std::function<bool()>> ACTIONS = {
    {"change", [] { return HBL_Load() && Change(); }},  // and is gone without an unload
    {"rewrite", [] { return HBL_Load() && Change() && Unload(); }},
    {"look", [] { return HBL_Load() && Unload(); }},
    {"lock", [] { return HBL_Load() && HBL_VnetCfgAddAnswer("A", "1") && Unload(); }},
    {"import", [] { return HBL_ImportDatabaseFromFile("/tmp/settings"); }},
    {"import-loaded",
     [] { return HBL_Load() && HBL_ImportDatabaseFromFile("/tmp/settings") && Change() && Unload(); }},
    {"export", [] { return HBL_Load() && HBL_ExportDatabaseToFile(nullptr) && Unload(); }},
    {"create", [] { return HBL_CreateNetworkingDB(true); }},
    {"files",
     [] {
         return HBL_Load() && HBL_UpdateDHCPFromConfig("zelan8") && HBL_UpdateNATFromConfig("zelan8") &&
                Unload();
     }},
    {"leases", TakeLeasesOver},
    {"mac", [] { return MacFile_Obtain("/etc/orvane/mac") != MacAddress(); }},
};

// As the library writes what it has read; false when it cannot be read.
bool Understand(const std::string &path, std::string *database) {
    HBLNetworkConfigurationDB *db = nullptr;
    const std::string written = path + ".read";
    const bool read =
        HBLNetCfgLoad(path.c_str(), &db, false) && NetCfgWriteDatabaseFile(db, written.c_str(), false);
    if (db != nullptr) {
        HBLNetCfgUnload(&db, false);
    }
    *database = ReadFileText(written);
    unlink(written.c_str());
    return read;
}

}  // namespace

int main(int argc, char **argv) {
    if (argc > 1) {
        const auto action = ACTIONS.find(argv[1]);
        return action != ACTIONS.end() && action->second() ? 0 : 1;
    }
    for (std::string path; std::getline(std::cin, path);) {
        std::string database;
        const bool read = Understand(path, &database);
        printf("%zd\n%s", read ? static_cast<ssize_t>(database.size()) : -1, read ? database.c_str() : "");
        fflush(stdout);
    }
    return 0;
}
