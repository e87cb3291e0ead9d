#include "daemons/zelan-natd/natConf.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <tuple>

namespace {

// As the library writes it.
constexpr const char *WHOLE = R"(# Linux NAT configuration file
[host]
ip = 192.168.10.2
netmask = 255.255.255.0
device = /dev/zelan8
# Allow PORT/EPRT FTP commands (they need incoming TCP stream ...)
activeFTP = 0
allowAnyOUI = 0
[udp]
timeout = +0x1E
[incomingudp]
6000 = 192.168.10.50:6001

[incomingtcp]
6000 = 192.168.10.51:80
65535 = 192.168.10.52:1

)";

std::string Shown(const NatConf &conf) {
    std::ostringstream text;
    text << Ipv4_Text(conf.gateway) << "/" << conf.prefix << " on " << conf.network << ", FTP "
         << conf.activeFtp << ", OUI " << conf.allowAnyOui << ", " << conf.udpTimeout << " s";
    for (const PortForward &forward : conf.forwards) {
        text << (forward.tcp ? ", TCP " : ", UDP ") << forward.hostPort << " to " << Ipv4_Text(forward.guest)
             << ":" << forward.guestPort;
    }
    return text.str();
}

TEST(NatConf, WhatIsLeftOutHasItsDefault) {
    const std::pair<const char *, const char *> cases[] = {
        {WHOLE,
         "192.168.10.2/24 on 8, FTP 0, OUI 0, 30 s, UDP 6000 to 192.168.10.50:6001, "
         "TCP 6000 to 192.168.10.51:80, TCP 65535 to 192.168.10.52:1"},
        {"[host]\n\tip=10.0.0.1 \nnetmask\t=\t255.255.255.252", "10.0.0.1/30 on -1, FTP 1, OUI 1, 60 s"},
        // As the library lets them be stored, which must not take the network's service down.
        {"[host]\nip = +10. -0.0.001\nnetmask = 255.255.255.0\ndevice = /dev/zelan255\n[udp]\ntimeout = 010",
         "10.0.0.1/24 on 255, FTP 1, OUI 1, 8 s"},
        {"[host]\nip = 10.0.0.1\nnetmask = 255.255.255.0\n[udp]\ntimeout = \v+0X7fffFFFF",
         "10.0.0.1/24 on -1, FTP 1, OUI 1, 2147483647 s"},
    };
    for (const auto &[text, shown] : cases) {
        NatConf conf;
        NatConfFault fault;
        ASSERT_TRUE(NatConf_Parse(text, &conf, &fault)) << fault.line << ": " << fault.reason;
        EXPECT_EQ(shown, Shown(conf));
    }
}

TEST(NatConf, BrokenFileIsRefusedWithLineAndReason) {
    const std::string begin = "[host]\nip = 192.168.10.2\nnetmask = 255.255.255.0\n";
    const std::tuple<std::string, int, const char *> cases[] = {
        {"", 0, "ip or netmask is missing"},
        {"[host]\nip = 192.168.10.0\nnetmask = 255.255.255.0\n", 0, "no host of its subnet"},
        {"[host]\nip = 192.168.10.255\nnetmask = 255.255.255.0\n", 0, "no host of its subnet"},
        {"ip = 192.168.10.2\n", 1, "before the first section"},
        {"\n# c\n[dns]\n", 3, "no such section"},
        {"[host\n", 1, "does not end"},
        {"[host]\nip\n", 2, "of the form key = value"},
        {begin + "[incomingudp]\n0 = 192.168.10.5:1\n", 5, "no port"},
        {begin + "[incomingtcp]\n80 = 192.168.10.5:80:1\n", 5, "no address and port"},
        {"[host]\nip = 192.168.0010.2\n", 2, "no IPv4 address"},
        {"[host]\nnetmask = 255.0.255.0\n", 2, "no netmask"},
        {"[host]\nnetmask = 255.255.255.254\n", 2, "no netmask"},
        {begin + "ip = 192.168.10.3\n", 4, "stands twice"},
        {begin + "device = /dev/zelan256\n", 4, "no device"},
        {begin + "activeFTP = 2\n", 4, "0 or 1"},
        {begin + "[udp]\ntimeout = +-1\n", 5, "number of seconds"},
        {begin + "[udp]\ntimeout = 2147483648\n", 5, "number of seconds"},
        {begin + "[udp]\ntimeout = 08\n", 5, "number of seconds"},
        {begin + "[incomingudp]\n65536 = 192.168.10.5:1\n", 5, "no port"},
        {begin + "[incomingtcp]\n80 = 192.168.10.5:0\n", 5, "no address and port"},
        {begin + "[incomingtcp]\n80 = 192.168.10.5:1\n0x50 = 192.168.10.6:1\n", 6, "forwarded twice"},
        {begin + std::string("# a\0b\n", 6), 4, "zero byte"},
    };
    for (const auto &[text, line, reason] : cases) {
        NatConf conf;
        NatConfFault fault;
        EXPECT_FALSE(NatConf_Parse(text, &conf, &fault)) << text;
        EXPECT_EQ(line, fault.line) << text;
        EXPECT_NE(std::string::npos, fault.reason.find(reason)) << text << fault.reason;
    }
}

}  // namespace
