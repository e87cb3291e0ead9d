// What all daemons owe the library: arguments, PID file, status report, detaching.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <iterator>
#include <regex>
#include <sstream>

#include "lib/misc/owners.h"
#include "tests/support/daemonStart.h"

namespace {

// C stands for the contract's arguments, and what is said begins with the program's name.
constexpr char WRONG_ARGUMENTS[] =
    R"(zelan-netifup C /dev/zelan8 => usage: -s DESCRIPTOR -d PIDFILE /dev/zelan<N> ADAPTER
zelan-netifup -s {W} /dev/zelan8 zelan8 => option -d is missing
zelan-netifup C /dev/zelan8 zelan8 -s => option -s needs an argument
zelan-netifup -s 999 -d /var/run/x.pid /dev/zelan8 zelan8 => the status descriptor 999 is not open
zelan-netifup -s 1x -d /var/run/x.pid /dev/zelan8 zelan8 => option -s needs the number of a descriptor, not 1x
zelan-netifup C -x /dev/zelan8 zelan8 => unknown option -x
zelan-netifup C /dev/zelan9 zelan9 => /dev/zelan9: No such file or directory
zelan-netifup C /dev/other zelan9 => /dev/other is no device node of a network
zelan-netifup C /dev/zelan8 sixteen_letters_ => "sixteen_letters_" cannot name an interface
zelan-bridge C -n 256 => option -n needs a network's number from 0 to 255, not 256
zelan-bridge C -n 0 -i => option -i needs a name attached to it
zelan-bridge C -n 0 -ia -eb => usage: -s DESCRIPTOR -d PIDFILE -n NETWORK [-eADAPTER]... or [-iADAPTER]...
zelan-dhcpd -s {W} -cf c -lf l -pf /var/run/x.pid zelan256 => usage: -s DESCRIPTOR -cf CONFIGURATION -lf LEASES -pf PIDFILE zelan<N>
zelan-natd C -m m -c /no/nat.conf => /no/nat.conf: No such file or directory
zelan-natd C -m /no-7.d/m -c /tmp/nat.conf => neither the configuration nor the MAC file's name tells the network
zelan-natd C -m m -c /tmp/nat.conf more => usage: -s DESCRIPTOR -d PIDFILE -m MACFILE -c CONFIGURATION
zelan-watch => usage: --sweep
zelan-detect -s {W} C => option -s is given twice
zelan-detect C more => usage: -s DESCRIPTOR -d PIDFILE
zelan-netifup -s {W} -d /no/such/folder/x.pid /dev/zelan8 zelan8 => cannot write the PID file /no/such/folder/x.pid: No such file or directory
)";

TEST(DaemonContract, WrongArgumentsAreNamedAndNothingIsReported) {
    constexpr char PID_FILE[] = "/var/run/x.pid";
    Must("mknod /dev/zelan8 c 119 8; echo > /dev/other");
    WriteFileText("/tmp/nat.conf", "[host]\nip = 10.1.2.2\nnetmask = 255.255.255.0\n");
    std::istringstream rows(WRONG_ARGUMENTS);
    for (std::string row; getline(rows, row);) {
        const size_t arrow = row.find(" => ");
        std::istringstream words(std::regex_replace(row.substr(0, arrow), std::regex(" C\\b"),
                                                    std::string(" -s {W} -d ") + PID_FILE));
        std::string program;
        words >> program;
        const std::vector<std::string> arguments(std::istream_iterator<std::string>(words), {});
        unlink(("/var/log/" + program + ".log").c_str());
        const DaemonStart start = StartDaemonWith(program, PID_FILE, arguments);
        EXPECT_NE(0, start.status) << row;
        EXPECT_EQ("", start.report) << row;
        EXPECT_EQ(program + " - " + row.substr(arrow + 4) + "\n", start.Log());
        EXPECT_NE(0, access(PID_FILE, F_OK)) << row;
    }
    EXPECT_TRUE(WaitUntil(NothingIsLeft)) << LeftOver();
}

#if defined(__SANITIZE_ADDRESS__)
constexpr char LIMITS[] = "t:3 f:99 s:99 n:64";  // its shadow memory counts as data
#else
constexpr char LIMITS[] = "t:3 f:99 d:99999 s:99 n:64";
#endif

// Whatever the starter had.
TEST(DaemonContract, DaemonIsNamedByItsPidFileAndHoldsNothingOfItsStarters) {
    const FileDescriptor stray(open("/etc/passwd", O_RDONLY));
    mknod("/dev/zelan8", S_IFCHR | 0600, makedev(119, 9));
    // Soft limits: hard ones can be raised only where the host lets us.
    const DaemonStart start = MustComeUp(StartDaemonWith(
        "zelan-netifup", "/var/run/x.pid", {"-s", "{W}", "-d", "/var/run/x.pid", "/dev/zelan8", "zelan8"},
        std::string("sh -c 'for limit in ") + LIMITS +
            "; do ulimit -S -${limit%:*} ${limit#*:}; done; umask 0; "
            "export SECRET=1; exec nice -n 19 \"$@\"' "
            "x"));
    EXPECT_EQ(0, start.status);
    const std::string pid = std::to_string(start.pid);
    const std::string process = "/proc/" + pid;
    EXPECT_EQ("zelan-netifup\n", ReadFileText(process + "/comm"));
    EXPECT_EQ(pid + "\n", ReadFileText(start.pidFile));
    EXPECT_EQ("644 x.pid\n", RunShell("cd /var/run; stat -c '%a %n' *pid*").output)
        << "a temporary file was left";
    EXPECT_EQ(pid + " ?\n", RunShell("ps -o sid=,tty= -p " + pid + " | sed 's/^ *//; s/  */ /'").output);
    EXPECT_EQ("/ 0 0022\n", RunShell("echo $(readlink /proc/" + pid + "/cwd) $(awk '{print $19}' /proc/" +
                                     pid + "/stat) $(sed -n 's/^Umask:.//p' /proc/" + pid + "/status)")
                                .output);
    EXPECT_EQ(R"(cpu time unlimited unlimited
file size unlimited unlimited
data size unlimited unlimited
stack size 8388608 unlimited
core file size 0 0
resident set unlimited unlimited
open files 1024
address space unlimited unlimited
file locks unlimited unlimited
nice priority 0 0
realtime priority 0 0
)",
              RunShell("grep -vE 'process|lock.*mem|pending|msg|timeout|Units' " + process +
                       "/limits |"
                       " sed -E 's/ +/ /g; s/Max //; s/(open.*1024).*/\\1/; s/ (seconds|bytes|locks)? *$//'")
                  .output);
    EXPECT_EQ("PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin\n",
              RunShell("tr '\\0' '\\n' < /proc/$(pgrep -x zelan-watch)/environ").output);
    EXPECT_TRUE(HasLink("zelan-sw8")) << "the node's name, not its numbers, tells the network";
    CommandResult held;
    // Once it has been told to begin.
    EXPECT_TRUE(WaitUntil([&held] {
        held = RunShell(
            "for pid in $(ps -e -o pid=,comm= | awk '/zelan/ {print $1}'); do ls -l /proc/$pid/fd; done;"
            " ss -xH state established");
        return held.output.find("pipe:") == std::string::npos &&
               held.output.find("/watch") == std::string::npos;
    })) << held;
    EXPECT_NE(std::string::npos, held.output.find("pidfd")) << "the watcher looks at no process\n" << held;
    EXPECT_EQ(std::string::npos, held.output.find("passwd")) << held;
    const DaemonStart second = StartDaemonWith(
        "zelan-netifup", "/var/run/y.pid", {"-s", "{W}", "-d", "/var/run/y.pid", "/dev/zelan8", "zelan8"});
    EXPECT_EQ("", second.report);
    EXPECT_EQ("zelan-netifup - another daemon serves this network\n", second.Log());
    EXPECT_EQ(pid + "\n", ReadFileText(start.pidFile));
}

// Of each: that it sleeps, its user, the capabilities that it has and that it could get, and whether its
// calls are filtered.
TEST(DaemonContract, WaitingDaemonHasNoPrivilegeLeft) {
    Must("ip link add eth1 type veth peer name eth2");
    WriteFileText("/etc/nat.conf", "[host]\nip = 10.1.2.2\nnetmask = 255.255.255.0\n");
    const DaemonStart daemons[] = {
        StartNetifup(8), StartDaemon("zelan-detect", "zelan-detect", {}),
        StartDaemon("zelan-natd", "zelan-natd-8", {"-m", "/run/zelan-natd-8.mac", "-c", "/etc/nat.conf"}),
        StartDaemon("zelan-bridge", "zelan-bridge-0", {"-n", "0", "-ieth1"})};
    for (const DaemonStart &daemon : daemons) {
        MustComeUp(daemon);
    }
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    const std::string filter = " 0 ";  // since a sanitizer's own calls are not known
#else
    const std::string filter = " 2 ";
#endif
    const std::string none = " 0000000000000000 0000000000000000 ";
    const std::string own = RunShell("printf %s $(id -u harbrel)").output;
    const std::string expected =
        "zelan-bridge S 0 00000080000030e0 00000080000030e0 00000080000030e0 1 0 \n"
        "zelan-detect S " +
        own + none + "00000000000010e0 1" + filter + "\nzelan-natd S " + own + none + "00000000002014e0 1" +
        filter + "\nzelan-netifup S " + own + none + "00000000000030e0 1" + filter +
        "\nzelan-watch S 0 0000000000001000 0000000000001000 0000000000001000 1 0 \n";
    std::string standing;
    EXPECT_TRUE(WaitUntil([&] {
        standing = RunShell(
                       "for p in $(pgrep ^zelan-); do awk "
                       "'/^(Name|State|Uid|CapPrm|CapEff|CapBnd|NoNewPrivs|Seccomp):/"
                       " {printf \"%s \", $2} END {print \"\"}' /proc/$p/status; done | sort")
                       .output;
        return standing == expected;
    })) << standing
        << expected;
}

}  // namespace
