// A network behind NAT: a guest on the switch, a computer outside, and the host between them.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "tests/support/conversation.h"
#include "tests/support/daemonStart.h"

inline constexpr const char *HOST = "203.0.113.1";
inline constexpr const char *OUTSIDE = "203.0.113.9";
inline constexpr const char *GUEST = "192.168.10.50";
inline constexpr const char *GATEWAY = "192.168.10.2";
// Long enough for an answer that comes at all.
inline constexpr std::chrono::milliseconds SHORT{700};

inline std::string Configuration(const std::string &host = "", const std::string &udp = "",
                                 const std::string &tcp = "") {
    return std::string("# Linux NAT configuration file\n[host]\n# NAT gateway address\nip = ") + GATEWAY +
           "\nnetmask = 255.255.255.0\ndevice = /dev/zelan8\n" + host +
           "[udp]\ntimeout = 1234\n[incomingudp]\n" + udp + "\n[incomingtcp]\n" + tcp + "\n";
}

inline DaemonStart StartNat(const std::string &configuration, const std::string &network = "8") {
    const std::string folder = "/etc/orvane/zelan" + network + "/nat";
    Must("mkdir -p " + folder);
    WriteFileText(folder + "/nat.conf", configuration);
    const std::string name = "zelan-natd-" + network;
    return StartDaemon("zelan-natd", name, {"-m", "/var/run/" + name + ".mac", "-c", folder + "/nat.conf"});
}

// Network 9, 192.168.11.0/24 with the gateway at .2.
inline DaemonStart StartAnotherNat(const std::string &tcp = "") {
    return StartNat(
        "[host]\nip = 192.168.11.2\nnetmask = 255.255.255.0\ndevice = /dev/zelan9\n[incomingtcp]\n" + tcp,
        "9");
}

// The address that a request came from.
inline std::string Peer(const std::string &, const std::string &peer) {
    return peer;
}

class NatNetwork : public testing::Test {
  protected:
    void SetUp() override {
        outside_.ConnectToHost("eth0", "eth0", std::string(OUTSIDE) + "/24");
        Must(std::string("ip address add ") + HOST + "/24 dev eth0");
    }

    void Start(const std::string &configuration) {
        start_ = MustComeUp(StartNat(configuration));
        guest_ = std::make_unique<Machine>("zelan-g");
        guest_->ConnectToBridge("zelan-sw8", "eth0", std::string(GUEST) + "/24");
        Must(std::string("ip -n zelan-g route add default via ") + GATEWAY);
    }

    bool GuestPings(const std::string &address) const {
        return guest_->Run("ping -c 1 -W 2 " + address).Succeeded();
    }

    Machine outside_{"outside"};
    DaemonStart start_;
    std::unique_ptr<Machine> guest_;
};
