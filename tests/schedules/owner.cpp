// An owner's records: what a call has acknowledged is there.
#include <cstdio>
#include <cstring>
#include <map>
#include <string>

#include "lib/harbrel/harbrel.h"
#include "tests/schedules/actors.h"

namespace {

// One process's part of the database, and what it holds by the acknowledged changes. Key: text; value: text,
// empty when there is none.
class Owner {
  public:
    explicit Owner(Actor *actor)
        : actor_(actor),
          network_("zelan" + std::to_string(100 + actor->number)),
          prefix_(std::string("P").append(std::to_string(actor->number)).append("_")),
          adapter_("host" + std::to_string(actor->number)),
          kinds_(actor->withoutLock ? 1 : 5) {}

    // Loads anew every now and then, so that it rewrites the file too. False when something is not as it was
    // acknowledged, or is as it was refused.
    bool Run() {
        bool good = Load();
        for (int i = 0; good && Now() < actor_->until; ++i) {
            if (i % 300 == 299) {
                HBL_Unload();
                good = Load() && Agrees();
            }
            good = good && ChangeOne();
        }
        HBL_Unload();
        good = good && Load() && Agrees();
        HBL_Unload();
        return good;
    }

  private:
    using Model = std::map<std::string, std::string>;

    std::string Pick(const char *stem, int count) {
        return stem + std::to_string(actor_->random() % static_cast<unsigned>(count));
    }
    // The lock may be held by others for longer than a load waits.
    bool Load() {
        constexpr int TRIES = 5;
        int tries = 0;
        while (!HBL_Load() && ++tries < TRIES) {
            actor_->refused++;
        }
        if (tries == TRIES) {
            fprintf(stderr, "the database cannot be loaded\n");
        }
        return tries < TRIES;
    }
    void Note(bool acknowledged, std::string *place, const std::string &value) {
        if (acknowledged) {
            *place = value;
            actor_->written++;
        } else {
            actor_->refused++;
        }
    }
    bool ChangeOne() {
        const bool remove = actor_->random() % 3 == 0;
        switch (actor_->random() % kinds_) {
            case 0:
                return ChangeAnswer(Pick(prefix_.c_str(), 4), remove ? "" : Pick("value ", 1000));
            case 1:
                ChangeSubnet(remove ? "" : Pick("10.1.2.", 200));
                break;
            case 2:
                ChangeForward(Pick("8", 9), remove ? "" : Pick("9", 900));
                break;
            case 3:
                ChangeMapping(Pick("02:00:00:00:00:0", 9), remove ? "" : Pick("10.1.2.", 200));
                break;
            default:
                Move(remove);
        }
        return true;
    }
    bool ChangeAnswer(const std::string &key, const std::string &value) {
        Note(value.empty() ? HBL_VnetCfgRemoveAnswer(key.c_str())
                           : HBL_VnetCfgAddAnswer(key.c_str(), value.c_str()),
             &answers_[key], value);
        return AnswerAgrees(key, answers_[key]);
    }
    void ChangeSubnet(const std::string &value) {
        Note(HBL_SetVnetSubnetAddr(network_.c_str(), value.empty() ? nullptr : value.c_str()), &subnet_,
             value);
    }
    void ChangeForward(const std::string &port, const std::string &vmPort) {
        if (vmPort.empty() && forwards_[port].empty()) {
            return;  // the removal of none is a failure
        }
        Note(
            HBL_SetNATPortForward(network_.c_str(), true, static_cast<uint16_t>(stoi(port)),
                                  vmPort.empty() ? nullptr : "10.1.2.9",
                                  vmPort.empty() ? uint16_t{0} : static_cast<uint16_t>(stoi(vmPort)), "d", 1),
            &forwards_[port], vmPort);
    }
    void ChangeMapping(const std::string &mac, const std::string &ip) {
        if (ip.empty() && mappings_[mac].empty()) {
            return;
        }
        Note(HBL_SetDHCPIPToMAC(network_.c_str(), ip.empty() ? nullptr : ip.c_str(), mac.c_str()),
             &mappings_[mac], ip);
    }
    void Move(bool away) {
        HBL_HostAdapter adapter = {};
        adapter.version = 1;
        strcpy(adapter.deviceName, adapter_.c_str());
        HBL_NetworkID destination = {};
        destination.version = destination.type = 1;
        destination.vnet = away ? HBL_VNET_NONE : stoi(network_.substr(5));
        Note(HBL_BridgeMoveAdapter(&adapter, nullptr, &destination), &place_, away ? "" : network_);
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

    Actor *actor_;
    std::string network_;
    std::string prefix_;
    std::string adapter_;
    unsigned
        kinds_;  // 1 for answers alone, which take no lock and so meet the rewrites themselves, or 5 for all
    Model answers_;
    Model forwards_;
    Model mappings_;
    std::string subnet_;
    std::string place_;  // of the adapter
};

}  // namespace

bool Own(Actor *actor) {
    return Owner(actor).Run();
}
