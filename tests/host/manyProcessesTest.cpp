// Processes that change one database at once, beside one that loads and unloads without pause: what a call
// has acknowledged is there.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <map>
#include <random>

#include "tests/host/loadedLibrary.h"
#include "tests/support/otherProcess.h"

namespace {

constexpr const char *STOP = "/tmp/stop";
constexpr int FORWARDS = 1000;  // what takes time to read gives the others time to come between

// One process's part of the database, and what it holds by the acknowledged changes. Key: text; value: text,
// empty when there is none.
class Changer {
  public:
    // `kinds`: 1 for answers alone, up to 5 for all kinds of change.
    Changer(int number, unsigned kinds)
        : network_("zelan" + std::to_string(10 + number)),
          prefix_(std::string("P").append(std::to_string(number)).append("_")),
          adapter_("host" + std::to_string(number)),
          kinds_(kinds),
          random_(static_cast<unsigned>(number) + 1) {}

    // Loads anew every now and then, so that it rewrites the file too. False when a change fails or something
    // is not as acknowledged.
    bool Run(int changes) {
        bool good = HBL_Load();
        for (int i = 0; good && i < changes; ++i) {
            if (i % 300 == 299) {
                HBL_Unload();
                good = HBL_Load() && Agrees();
            }
            good = good && ChangeOne();
        }
        HBL_Unload();
        good = good && HBL_Load() && Agrees();
        HBL_Unload();
        return good;
    }

  private:
    using Model = std::map<std::string, std::string>;

    std::string Pick(const char *stem, int count) {
        return stem + std::to_string(random_() % static_cast<unsigned>(count));
    }
    bool ChangeOne() {
        const bool remove = random_() % 3 == 0;
        switch (random_() % kinds_) {
            case 0:
                return ChangeAnswer(Pick(prefix_.c_str(), 4), remove ? "" : Pick("value ", 1000));
            case 1:
                return ChangeSubnet(remove ? "" : Pick("10.1.2.", 200));
            case 2:
                return ChangeForward(Pick("8", 9), remove ? "" : Pick("9", 900));
            case 3:
                return ChangeMapping(Pick("02:00:00:00:00:0", 9), remove ? "" : Pick("10.1.2.", 200));
            default:
                return Move(remove);
        }
    }
    bool ChangeAnswer(const std::string &key, const std::string &value) {
        answers_[key] = value;
        return (value.empty() ? HBL_VnetCfgRemoveAnswer(key.c_str())
                              : HBL_VnetCfgAddAnswer(key.c_str(), value.c_str())) &&
               AnswerAgrees(key, value);
    }
    bool ChangeSubnet(const std::string &value) {
        subnet_ = value;
        return HBL_SetVnetSubnetAddr(network_.c_str(), value.empty() ? nullptr : value.c_str());
    }
    bool ChangeForward(const std::string &port, const std::string &vmPort) {
        if (vmPort.empty() && forwards_[port].empty()) {
            return true;  // the removal of none is a failure
        }
        forwards_[port] = vmPort;
        return HBL_SetNATPortForward(
            network_.c_str(), true, static_cast<uint16_t>(stoi(port)), vmPort.empty() ? nullptr : "10.1.2.9",
            vmPort.empty() ? uint16_t{0} : static_cast<uint16_t>(stoi(vmPort)), "d", 1);
    }
    bool ChangeMapping(const std::string &mac, const std::string &ip) {
        if (ip.empty() && mappings_[mac].empty()) {
            return true;
        }
        mappings_[mac] = ip;
        return HBL_SetDHCPIPToMAC(network_.c_str(), ip.empty() ? nullptr : ip.c_str(), mac.c_str());
    }
    bool Move(bool away) {
        HBL_HostAdapter adapter = {};
        adapter.version = 1;
        strcpy(adapter.deviceName, adapter_.c_str());
        HBL_NetworkID destination = {};
        destination.version = destination.type = 1;
        destination.vnet = away ? HBL_VNET_NONE : stoi(network_.substr(5));
        return HBL_BridgeMoveAdapter(&adapter, nullptr, &destination);
    }

    static bool Same(const char *what, const std::string &key, const std::string &wanted,
                     const std::string &found) {
        if (wanted != found) {
            fprintf(stderr, "%s %s: '%s' instead of '%s'\n", what, key.c_str(), found.c_str(),
                    wanted.c_str());
        }
        return wanted == found;
    }
    static bool AnswerAgrees(const std::string &key, const std::string &value) {
        const char *found = "";
        return Same("answer", key, value, HBL_VnetCfgGetAnswer(key.c_str(), &found) ? found : "");
    }
    bool ForwardAgrees(const std::string &port, const std::string &vmPort) const {
        char ip[16];
        uint32_t ipLength = sizeof ip;
        uint16_t found = 0;
        const bool there = HBL_GetNATPortForward(network_.c_str(), true, static_cast<uint16_t>(stoi(port)),
                                                 ip, &ipLength, &found, nullptr, nullptr);
        return Same("forward", port, vmPort, there ? std::to_string(found) : "");
    }
    bool MappingAgrees(const std::string &mac, const std::string &ip) const {
        char found[16] = "";
        uint32_t length = sizeof found;
        return Same("mapping", mac, ip,
                    HBL_GetDHCPIPToMAC(network_.c_str(), found, &length, mac.c_str()) ? found : "");
    }
    bool Agrees() const {
        bool good = true;
        for (const auto &[key, value] : answers_) {
            good = AnswerAgrees(key, value) && good;
        }
        for (const auto &[port, vmPort] : forwards_) {
            good = ForwardAgrees(port, vmPort) && good;
        }
        for (const auto &[mac, ip] : mappings_) {
            good = MappingAgrees(mac, ip) && good;
        }
        char subnet[16] = "";
        uint32_t length = sizeof subnet;
        return Same("subnet", network_, subnet_,
                    HBL_GetVnetSubnetAddr(network_.c_str(), subnet, &length) ? subnet : "") &&
               good;
    }

    std::string network_;
    std::string prefix_;
    std::string adapter_;
    unsigned kinds_;
    std::mt19937 random_;
    Model answers_;
    Model forwards_;
    Model mappings_;
    std::string subnet_;
};

struct Share {
    unsigned kinds;
    int changes;
};

void ChangeBesideRewrites(const std::vector<Share> &shares) {
    std::filesystem::remove(STOP);
    std::string database = "VERSION=1,0\nanswer HBL_LOGLEVEL 0\n";
    for (int port = 1; port <= FORWARDS; ++port) {
        database.append("add_nat_portfwd 9 tcp ").append(std::to_string(port)).append(" 10.0.9.9 80\n");
    }
    WriteFileText("/etc/orvane/networking", database);
    const pid_t rewriter = StartChild([] {
        while (access(STOP, F_OK) != 0) {
            if (HBL_Load()) {
                HBL_Unload();
            }
        }
        return true;
    });
    std::vector<pid_t> children;
    for (const Share &share : shares) {
        const int number = static_cast<int>(children.size());
        children.push_back(
            StartChild([number, share] { return Changer(number, share.kinds).Run(share.changes); }));
    }
    for (const pid_t child : children) {
        EXPECT_TRUE(EndsWell(child));
    }
    WriteFileText(STOP, "");
    EXPECT_TRUE(EndsWell(rewriter));
}

using ManyProcesses = LibraryTest;
using ManyProcessesSlow = LibraryTest;

// Answers take no lock, and so meet the rewrites themselves.
TEST_F(ManyProcesses, LoseNoAcknowledgedChangeToAnothersRewrite) {
    ChangeBesideRewrites({{1, 2500}});
    ChangeBesideRewrites({{5, 40}, {5, 40}});
}

TEST_F(ManyProcessesSlow, LoseNoneOfTensOfThousandsOfChanges) {
    ChangeBesideRewrites({{1, 20000}, {1, 20000}});
    ChangeBesideRewrites({{5, 2500}, {5, 2500}, {5, 2500}});
}

}  // namespace
