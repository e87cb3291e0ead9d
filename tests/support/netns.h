// Network namespaces that stand for guests and for computers outside, seen and made through ip(8).
#pragma once

#include <string>
#include <vector>

#include "tests/support/command.h"

// A network namespace that lives as long as this object.
class Machine {
  public:
    explicit Machine(const std::string &name);
    Machine(Machine &&) = delete;
    ~Machine();

    const std::string &name() const { return name_; }

    // Runs a line of shell inside.
    CommandResult Run(const std::string &line, std::chrono::milliseconds deadline = COMMAND_DEADLINE) const;
    // The words that start a program inside, for BackgroundCommand.
    std::vector<std::string> Inside(const std::vector<std::string> &arguments) const;

    // Joins this machine to the host by a cable, up at both ends; an address is as in "192.168.8.5/24".
    void ConnectToHost(const std::string &hostName, const std::string &machineName,
                       const std::string &address = "");
    // The same with the host's end plugged into a bridge, which is how a guest joins a network.
    void ConnectToBridge(const std::string &bridge, const std::string &machineName,
                         const std::string &address = "");

  private:
    void BringUp(const std::string &hostName, const std::string &machineName, const std::string &address);

    std::string name_;
};

// Runs a line of shell that must succeed.
void Must(const std::string &line);

// Whether the host has an interface of that name, as ip(8) sees it.
inline bool HasLink(const std::string &name) {
    return RunCommand({"ip", "link", "show", "dev", name}).Succeeded();
}

// The IPv4 address, its width and its broadcast address, as "10.0.0.1/24 brd 10.0.0.255", and a line end.
std::string AddressOf(const std::string &link);
