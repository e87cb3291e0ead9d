#include "tests/support/daemonStart.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

std::ostream &operator<<(std::ostream &stream, const DaemonStart &start) {
    return stream << "status " << start.status << ", report of " << start.report.size() << " bytes, pid "
                  << start.pid << ", log:\n"
                  << start.Log();
}

std::string LogOfDaemons(const std::string &path) {
    return RunShell("sed '/ this kernel keeps no TCP ports/d' " + path).output;
}

DaemonStart MustComeUp(DaemonStart start) {
    EXPECT_TRUE(start.CameUp()) << start;
    return start;
}

DaemonStart StartDaemon(const std::string &program, const std::string &name,
                        const std::vector<std::string> &arguments) {
    std::string pidFile = "/var/run/" + name + ".pid";
    std::vector<std::string> all = {"-s", "{W}", "-d", pidFile};
    all.insert(all.end(), arguments.begin(), arguments.end());
    return StartDaemonWith(program, pidFile, all);
}

DaemonStart StartDaemonWith(const std::string &program, const std::string &pidFile,
                            const std::vector<std::string> &arguments, const std::string &under) {
    // Without a standard input, whose number their first file must not get.
    std::string line = "exec 9>&1 <&- >> /var/log/" + program + ".log 2>&1; exec " + under + " '" +
                       ProgramPath(program) + "'";
    for (const std::string &argument : arguments) {
        line += " '" + (argument == "{W}" ? "9" : argument) + "'";
    }
    const CommandResult result = RunShell(line, std::chrono::seconds(10));
    EXPECT_FALSE(result.timedOut) << "the status pipe is still held open";
    DaemonStart start = {result.status, result.output, 0, pidFile, "/var/log/" + program + ".log"};
    start.pid = static_cast<pid_t>(strtol(ReadFileText(pidFile).c_str(), nullptr, 10));
    return start;
}

void KillDaemon(const DaemonStart &start) {
    EXPECT_TRUE(start.pid > 0 && kill(start.pid, SIGKILL) == 0) << start.pid;
    unlink(start.pidFile.c_str());
}

DaemonStart StartNetifup(int network) {
    constexpr unsigned ZELAN_MAJOR = 119;
    std::string name = "zelan" + std::to_string(network);
    mknod(("/dev/" + name).c_str(), S_IFCHR | 0600, makedev(ZELAN_MAJOR, static_cast<unsigned>(network)));
    return StartDaemon("zelan-netifup", "zelan-netifup-" + name, {"/dev/" + name, name});
}

bool BothGuestsAreKnown() {
    return RunShell("nft list set bridge zelan guests | grep -qE '\"zelan-sw8\"|\".*\".*\"'").Succeeded();
}

std::string LeftOver() {
    const CommandResult left = RunShell(
        "ip -br link | grep '^zelan'; ip netns list-id | grep -v name:; "
        "ps -e -o comm= | grep -E '^(zelan|dnsmasq|dhcpd)'; nft list tables; "
        "ls /run /run/zelan | grep -E '^(daemon|nat-share|forwarding)|^watch$|new$'");
    return left.output + left.errors;
}
