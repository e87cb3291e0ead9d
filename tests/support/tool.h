// harbrelCLI on the private host: what it finds there, whole runs of it, and what they leave behind.
#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>

#include "tests/support/daemonStart.h"
#include "tests/support/netns.h"

class ToolTest : public testing::Test {
  protected:
    static constexpr const char *FOLDER = "/run/programs";
    static constexpr const char *DATABASE = "/etc/orvane/networking";

    // The programs of this build, each of which a test may replace.
    ToolTest() {
        std::filesystem::create_directory(FOLDER);
        for (const char *name :
             {"zelan-bridge", "zelan-netifup", "zelan-dhcpd", "zelan-natd", "zelan-detect", "orvane-ping"}) {
            std::filesystem::create_symlink(ProgramPath(name), Program(name));
        }
        WriteFileText("/etc/orvane/config", std::string("bindir = \"") + FOLDER + "\"\n");
    }

    static std::string Program(const std::string &name) { return std::string(FOLDER) + "/" + name; }
    static void Replace(const std::string &name, const std::string &script) {
        std::filesystem::remove_all(Program(name));
        WriteFileText(Program(name), "#!/bin/sh\n" + script);
        EXPECT_EQ(0, chmod(Program(name).c_str(), 0755));
    }

    static std::vector<std::string> Command(const std::vector<std::string> &arguments,
                                            const std::string &program = "harbrelCLI") {
        std::vector<std::string> command = {ProgramPath(program)};
        command.insert(command.end(), arguments.begin(), arguments.end());
        return command;
    }
    static CommandResult Run(const std::vector<std::string> &arguments) {
        return RunCommand(Command(arguments), std::chrono::seconds(60));
    }
    static void Expect(const CommandResult &result, int status, const std::string &output,
                       const std::string &errors) {
        EXPECT_EQ(status, result.status);
        EXPECT_EQ(output, result.output);
        EXPECT_EQ(errors, result.errors);
    }

    // Settings of network N, whose subnet is 10.7.N.0.
    static std::string Subnet(int network) {
        const std::string key = "answer VNET_" + std::to_string(network);
        return key + "_HOSTONLY_NETMASK 255.255.255.0\n" + key + "_HOSTONLY_SUBNET 10.7." +
               std::to_string(network) + ".0\n";
    }
    static std::string Feature(int network, const std::string &feature) {
        return "answer VNET_" + std::to_string(network) + "_" + feature + " yes\n";
    }
    static void WriteDatabase(const std::string &records) {
        WriteFileText(DATABASE, "VERSION=1,0\n" + records);
    }
    // With the files of DHCP and NAT made for them, as an upgrade does.
    static void Install(const std::string &records) {
        WriteDatabase(records);
        const CommandResult result = Run({"--postinstall", "tool,1.0,2.0"});
        EXPECT_TRUE(result.Succeeded()) << result;
        std::filesystem::remove("/etc/orvane/networking.bak.0");
    }

    static std::string PidFile(const std::string &daemon) { return "/var/run/" + daemon + ".pid"; }
    static pid_t Pid(const std::string &daemon) {
        return static_cast<pid_t>(strtol(ReadFileText(PidFile(daemon)).c_str(), nullptr, 10));
    }
    static bool Runs(pid_t pid) { return pid > 0 && kill(pid, 0) == 0; }
    // Those that run at all, whatever the PID files say.
    static std::string Daemons() {
        return RunShell("ps -e -o comm= | grep -E '^(zelan-|dnsmasq|dhcpd)' | grep -v zelan-watch").output;
    }
    // Names in a folder, in their order, with a blank behind each.
    static std::string Names(const std::string &pattern) {
        return RunShell("for f in " + pattern + "; do [ -e \"$f\" ] && printf '%s ' \"${f##*/}\"; done")
            .output;
    }
    static std::string PidFiles() { return Names("/var/run/*.pid"); }
    static std::string Nodes() { return Names("/dev/zelan*"); }
    static std::string Log() { return LogOfDaemons("/var/log/harbrel"); }
};
