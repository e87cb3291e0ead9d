#include <gtest/gtest.h>
#include <netdb.h>

#include <string>

#include "daemons/zelan-natd/macFile.h"
#include "daemons/zelan-natd/nameServers.h"
#include "tests/support/command.h"
#include "tests/support/tempFolder.h"

namespace {

TEST(MacFile, OnlyAMachinesAddressIsTaken) {
    const std::pair<const char *, bool> cases[] = {
        {"02:1f:00:A0:55:3C\n", true},   {"02:1f:00:A0:55:3C", true},     {"00:00:00:00:00:00\n", false},
        {"01:00:5e:00:00:01\n", false},  {"ff:ff:ff:ff:ff:ff\n", false},  {"02:1f:00:A0:55\n", false},
        {"02:1f:00:A0:55:3C:00", false}, {"02-1f-00-A0-55-3C\n", false},  {"02:1f:00:A0:55:3\n", false},
        {"02:1f:00:A0:55:-3\n", false},  {" 02:1f:00:A0:55:3C\n", false}, {"", false},
    };
    for (const auto &[text, usable] : cases) {
        MacAddress mac = {};
        EXPECT_EQ(usable, MacFile_Parse(text, &mac)) << text;
        EXPECT_EQ(usable, mac == (MacAddress{0x02, 0x1f, 0x00, 0xa0, 0x55, 0x3c})) << text;
    }
}

TEST(MacFile, AddressIsKeptAndAGarbledOneReplaced) {
    TempFolder folder;
    const std::string path = folder / "natd.mac";
    const MacAddress first = MacFile_Obtain(path.c_str());
    EXPECT_EQ(first, MacFile_Obtain(path.c_str()));
    WriteFileText(path, "garbage\n");
    const MacAddress second = MacFile_Obtain(path.c_str());
    EXPECT_NE(first, second);
    EXPECT_EQ(second, MacFile_Obtain(path.c_str()));
    EXPECT_EQ(2, second[0] & 3) << "not a machine's own, locally administered address";
}

TEST(NameServers, AreThoseThatTheFileNames) {
    const std::pair<const char *, const char *> cases[] = {
        {"nameserver 10.0.0.1\nnameserver 10.0.0.2", "10.0.0.1:53 10.0.0.2:53 "},
        {"search a\noptions edns0\n \tnameserver\t 127.0.0.53 # local\n", "127.0.0.53:53 "},
        {"nameserver 2001:db8::1\nnameserver fe80::1%lo\n", "2001:db8::1:53 fe80::1%lo:53 "},
        {"#nameserver 10.0.0.1\n; nameserver 10.0.0.1\n", "127.0.0.1:53 "},
        {"nameserver\nnameserver example.org\nnameservers 10.0.0.1\n", "127.0.0.1:53 "},
    };
    for (const auto &[text, expected] : cases) {
        std::string servers;
        for (const NameServer &server : NameServers_Parse(text)) {
            char host[NI_MAXHOST] = "", port[NI_MAXSERV] = "";
            getnameinfo(reinterpret_cast<const sockaddr *>(&server.address), server.size, host, sizeof host,
                        port, sizeof port, NI_NUMERICHOST | NI_NUMERICSERV);
            servers.append(host).append(":").append(port).append(" ");
        }
        EXPECT_EQ(expected, servers) << text;
    }
}

}  // namespace
