// harbrelctl on the private host, with a network behind NAT on it.
#pragma once

#include <memory>

#include "tests/support/tool.h"

class EditorTest : public ToolTest {
  protected:
    static std::vector<std::string> EditorCommand(const std::vector<std::string> &arguments) {
        return Command(arguments, "harbrelctl");
    }
    static CommandResult Edit(const std::string &line) {
        return RunShell("exec " + ProgramPath("harbrelctl") + " " + line);
    }
    static CommandResult MustEdit(const std::string &line) {
        CommandResult result = Edit(line);
        EXPECT_TRUE(result.Succeeded()) << line << "\n" << result;
        return result;
    }

    // zelan8 on 10.7.8.0/24, with all its services.
    static std::string Nat8() {
        return Subnet(8) + Feature(8, "DHCP") + Feature(8, "NAT") + Feature(8, "VIRTUAL_ADAPTER");
    }
    static void StartNat8(const std::string &records = "") {
        Install(Nat8() + "answer HBL_DEFAULT_BRIDGE_VNET -1\n" + records);
        MustEdit("start zelan8");
    }

    // A guest on a network's switch, with a MAC address that ends in `number`.
    static std::unique_ptr<Machine> Plug(int network, int number) {
        auto guest = std::make_unique<Machine>("zelan-g" + std::to_string(number));
        const std::string bridge = "zelan-sw" + std::to_string(network);
        guest->ConnectToBridge(bridge, "eth0");
        Must("ip -n " + guest->name() + " link set eth0 address 02:00:00:00:00:0" + std::to_string(number) +
             " && ip link set " + bridge + " type bridge fdb_flush");  // it may have learned the former one
        return guest;
    }
    // Takes a lease and its address and router; the address.
    static std::string TakeLease(const Machine &guest) {
        WriteFileText(
            "/tmp/client",
            "#!/bin/sh\n[ \"$1\" = bound ] || exit 0\nip address flush dev $interface\n"
            "ip address add $ip/$mask dev $interface\nip route replace default via ${router:-$serverid}\n"
            "printf $ip\n");
        Must("chmod +x /tmp/client");
        return guest.Run("udhcpc -i eth0 -f -q -n -t 10 -T 1 -s /tmp/client").output;
    }
};
