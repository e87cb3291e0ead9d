#include "tests/support/netns.h"

#include <gtest/gtest.h>

void Must(const std::string &line) {
    CommandResult result = RunShell(line);
    EXPECT_TRUE(result.Succeeded()) << line << "\n" << result;
}

std::string AddressOf(const std::string &link) {
    return RunShell("ip -o -4 addr show dev " + link + " | sed -n 's/.*inet \\(.*\\) scope.*/\\1/p'").output;
}

Machine::Machine(const std::string &name) : name_(name) {
    Must("ip netns add " + name_ + " && ip -n " + name_ + " link set lo up");
}

Machine::~Machine() {
    RunCommand({"ip", "netns", "delete", name_});
}

CommandResult Machine::Run(const std::string &line, std::chrono::milliseconds deadline) const {
    return RunCommand(Inside({"sh", "-c", line}), deadline);
}

std::vector<std::string> Machine::Inside(const std::vector<std::string> &arguments) const {
    std::vector<std::string> all = {"ip", "netns", "exec", name_};
    all.insert(all.end(), arguments.begin(), arguments.end());
    return all;
}

void Machine::ConnectToHost(const std::string &hostName, const std::string &machineName,
                            const std::string &address) {
    Must("ip link add name " + hostName + " type veth peer name " + machineName + " netns " + name_);
    BringUp(hostName, machineName, address);
}

void Machine::BringUp(const std::string &hostName, const std::string &machineName,
                      const std::string &address) {
    Must("ip link set " + hostName + " up && ip -n " + name_ + " link set " + machineName + " up");
    if (!address.empty()) {
        Must("ip -n " + name_ + " address add " + address + " dev " + machineName);
    }
}

void Machine::ConnectToBridge(const std::string &bridge, const std::string &machineName,
                              const std::string &address) {
    const std::string hostName = name_ + "-" + machineName;
    // In one step: an interface that hangs on nothing might be an adapter of the host.
    Must("ip link add name " + hostName + " master " + bridge + " type veth peer name " + machineName +
         " netns " + name_);
    BringUp(hostName, machineName, address);
}
