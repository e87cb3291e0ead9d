// What all daemons owe the library: arguments, PID file, status report, detaching.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <iterator>
#include <sstream>

#include "lib/misc/owners.h"
#include "tests/support/daemonStart.h"

namespace {

TEST(DaemonContract, WrongArgumentsAreNamedAndNothingIsReported) {
    constexpr char PID_FILE[] = "/var/run/x.pid";
    mknod("/dev/zelan8", S_IFCHR | 0600, makedev(119, 8));
    WriteFileText("/tmp/conf", "subnet 10.1.2.0 netmask 255.255.255.0 {}\n");
    mknod("/dev/other", S_IFCHR | 0600, makedev(10, 8));
    static constexpr struct {
        const char *program, *arguments, *complaint;
    } CASES[] = {
        {"zelan-netifup", "-s {W} -d /var/run/x.pid /dev/zelan8", "usage:"},
        {"zelan-netifup", "-s {W} /dev/zelan8 zelan8", "option -d is missing"},
        {"zelan-netifup", "-d /var/run/x.pid /dev/zelan8 zelan8 -s", "option -s needs an argument"},
        {"zelan-netifup", "-s 999 -d /var/run/x.pid /dev/zelan8 zelan8", "descriptor 999 is not open"},
        {"zelan-netifup", "-s 1x -d /var/run/x.pid /dev/zelan8 zelan8", "not 1x"},
        {"zelan-netifup", "-s {W} -d /var/run/x.pid -x /dev/zelan8 zelan8", "unknown option -x"},
        {"zelan-netifup", "-s {W} -d /var/run/x.pid /dev/zelan9 zelan9", "/dev/zelan9: No such file"},
        {"zelan-netifup", "-s {W} -d /var/run/x.pid /dev/other zelan9", "no device node of a network"},
        {"zelan-netifup", "-s {W} -d /var/run/x.pid /dev/zelan8 sixteen_letters_",
         "cannot name an interface"},
        {"zelan-bridge", "-s {W} -d /var/run/x.pid -n 256", "from 0 to 255, not 256"},
        {"zelan-bridge", "-s {W} -d /var/run/x.pid -n 0 -i", "option -i needs a name"},
        {"zelan-bridge", "-s {W} -d /var/run/x.pid -n 0 -ia -eb", "usage:"},
        {"zelan-dhcpd", "-s {W} -cf c -lf l -pf /var/run/x.pid zelan256", "usage:"},
        {"zelan-dhcpd", "-s {W} -cf /tmp/conf -lf /tmp/leases -pf /no/such/folder/x.pid zelan8",
         "x.pid: No such file"},
        {"zelan-natd", "-s {W} -d /var/run/x.pid -m m -c /no/nat.conf", "/no/nat.conf: No such"},
        {"zelan-watch", "", "usage: --sweep"},
        {"zelan-detect", "-s {W} -s {W} -d /var/run/x.pid", "option -s is given twice"},
        {"zelan-netifup", "-s {W} -d /no/such/folder/x.pid /dev/zelan8 zelan8", "x.pid: No such file"},
    };
    for (const auto &row : CASES) {
        unlink(("/var/log/" + std::string(row.program) + ".log").c_str());
        std::istringstream words(row.arguments);
        const std::vector<std::string> arguments(std::istream_iterator<std::string>(words), {});
        const DaemonStart start = StartDaemonWith(row.program, PID_FILE, arguments);
        EXPECT_NE(0, start.status) << row.complaint;
        EXPECT_EQ("", start.report) << row.complaint;
        EXPECT_NE(std::string::npos, start.Log().find(row.complaint)) << row.complaint << "\n" << start;
        EXPECT_NE(0, access(PID_FILE, F_OK)) << row.complaint;
    }
    EXPECT_TRUE(WaitUntil(NothingIsLeft)) << LeftOver();
}

TEST(DaemonContract, DaemonIsNamedByItsPidFileAndHoldsNothingOfItsStarters) {
    const FileDescriptor stray(open("/etc/passwd", O_RDONLY));
    const DaemonStart start = MustComeUp(StartNetifup(8));
    EXPECT_EQ(0, start.status);
    const std::string pid = std::to_string(start.pid);
    EXPECT_EQ("zelan-netifup\n", ReadFileText("/proc/" + pid + "/comm"));
    EXPECT_EQ(pid + "\n", ReadFileText(start.pidFile));
    EXPECT_EQ("zelan-netifup-zelan8.pid\n", RunShell("ls /var/run | grep pid").output)
        << "a temporary file was left";
    const CommandResult session = RunShell("ps -o sid=,tty= -p " + pid);
    EXPECT_NE(std::string::npos, session.output.find(pid)) << session;
    CommandResult held;
    // Once it has been told to begin.
    EXPECT_TRUE(WaitUntil([&held] {
        held = RunShell(
            "for pid in $(ps -e -o pid=,comm= | awk '/zelan/ {print $1}'); do ls -l /proc/$pid/fd; done");
        return held.output.find("pipe:") == std::string::npos;
    })) << held;
    EXPECT_NE(std::string::npos, held.output.find("pidfd")) << "the watcher looks at no process\n" << held;
    EXPECT_EQ(std::string::npos, held.output.find("passwd")) << held;
}

TEST(DaemonContract, StartersLimitsAndEnvironmentAreNotTheDaemons) {
    mknod("/dev/zelan8", S_IFCHR | 0600, makedev(119, 9));
    // Soft limits: hard ones can be raised only where the host lets us.
    Must(
        "ulimit -S -t 3; ulimit -S -n 64; umask 0; export SECRET=1; exec 9> /tmp/status > /tmp/log 2>&1; "
        "exec nice -n 19 " +
        ProgramPath("zelan-netifup") + " -s 9 -d /var/run/x.pid /dev/zelan8 zelan8");
    const std::string pid = ReadFileText("/var/run/x.pid");
    const std::string folder = "/proc/" + pid.substr(0, pid.find('\n'));
    const std::string limits = ReadFileText(folder + "/limits");
    EXPECT_TRUE(RunShell("grep -q 'Max cpu time *unlimited' " + folder + "/limits").Succeeded()) << limits;
    EXPECT_TRUE(RunShell("grep -q 'Max open files *1024' " + folder + "/limits").Succeeded()) << limits;
    EXPECT_EQ("0\n", RunShell("awk '{print $19}' " + folder + "/stat").output);
    EXPECT_EQ("Umask:\t0022\nNoNewPrivs:\t1\n",
              RunShell("grep -E '^(Umask|NoNewPrivs)' " + folder + "/status").output);
    EXPECT_EQ("0\n", RunShell("grep -c SECRET /proc/$(pgrep -x zelan-watch)/environ").output);
    EXPECT_EQ("/var/run/x.pid\n", RunShell("find /var/run/x.pid -perm 0644").output);
    EXPECT_TRUE(HasLink("zelan-sw8")) << "the node's numbers, not its name, told the network";
}

// The PID file's process; zelan-watch is the one that keeps a capability, to clean up with.
TEST(DaemonContract, WaitingDaemonHasNoPrivilegeLeft) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    const char *const confined = " 1 0 ";  // no filter, since a sanitizer's own calls are not known
#else
    const char *const confined = " 1 2 ";
#endif
    const DaemonStart netifup = MustComeUp(StartNetifup(8));
    const DaemonStart detect = MustComeUp(StartDaemon("zelan-detect", "zelan-detect", {}));
    WriteFileText("/etc/nat.conf", "[host]\nip = 10.1.2.2\nnetmask = 255.255.255.0\n");
    const DaemonStart natd = MustComeUp(
        StartDaemon("zelan-natd", "zelan-natd-8", {"-m", "/run/zelan-natd-8.mac", "-c", "/etc/nat.conf"}));
    const std::string own = RunShell("id -u harbrel").output;
    for (const pid_t pid : {netifup.pid, detect.pid, natd.pid}) {
        const std::string line =
            "awk '/^(Uid|CapInh|CapEff|CapBnd|NoNewPrivs|Seccomp):/ {printf \"%s \", $2}' /proc/";
        EXPECT_TRUE(WaitUntil([&] {
            const std::string state = RunShell(line + std::to_string(pid) + "/status").output;
            return state.starts_with(own.substr(0, own.size() - 1) + " 0000000000000000 0000000000000000 ") &&
                   state.ends_with(confined);
        })) << RunShell("cat /proc/" + std::to_string(pid) + "/status").output;
    }
    EXPECT_EQ("CapEff:\t0000000000001000\n",
              RunShell("grep CapEff /proc/$(pgrep -x zelan-watch)/status").output);
}

}  // namespace
