// What a daemon that guests' bytes have turned hostile can still do, by trying it.
#include "daemons/confinement/confinement.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/capability.h>
#include <pwd.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "lib/misc/owners.h"
#include "tests/support/netns.h"

namespace {

constexpr int SYSTEM_CALLS[] = {SYS_openat, SYS_socket, SYS_connect, SYS_getuid, SYS_getgid, SYS_kill};
constexpr ReachablePath PATHS[] = {{"/etc"}, {"/no/such/folder"}, {"/etc/hosts/none"}};
constexpr uint16_t PORTS[] = {53};

// Of connect and bind. Nobody listens, so that a connection which is let through is refused by the other
// side.
int TryPort(int (*call)(int, const sockaddr *, socklen_t), uint16_t port) {
    const sockaddr_in address = {AF_INET, htons(port), {htonl(INADDR_LOOPBACK)}, {}};
    const FileDescriptor handle(socket(AF_INET, SOCK_STREAM, 0));
    return call(handle.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address);
}

int Open(const char *path, int flags) {
    return FileDescriptor(open(path, flags, 0644)) ? 0 : -1;
}

#ifndef HARBREL_ALL_SYSTEM_CALLS
int Map(int use) {
    return mmap(nullptr, 1, use, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0) == MAP_FAILED ? -1 : 0;
}
#endif

// The errno value that the attempt ends with in a confined process, 0 when it succeeds.
int ErrorOf(const Confinement &confinement, const std::function<long()> &attempt) {
    pid_t child = fork();
    if (child == 0) {
        if (!Confine(confinement)) {
            _exit(255);
        }
        _exit(attempt() < 0 ? errno : 0);
    }
    int status = -1;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -status;
}

struct Attempt {
    const char *name;
    int error;
    std::function<long()> attempt;
};

void ExpectErrors(const Confinement &confinement, const std::vector<Attempt> &attempts) {
    for (const Attempt &row : attempts) {
        EXPECT_EQ(row.error, ErrorOf(confinement, row.attempt)) << row.name;
    }
}

// A process of the own user, as every other daemon is one.
struct AnotherDaemon : BackgroundCommand {
    AnotherDaemon() : BackgroundCommand({"setpriv", "--reuid=harbrel", "sleep", "600"}) {
        EXPECT_TRUE(WaitUntil(
            [this] { return ReadFileText("/proc/" + std::to_string(pid()) + "/comm") == "sleep\n"; }));
    }
};

TEST(Confinement, LeavesWhatIsNamedAndNothingElse) {
    constexpr long SIGNALS_SINCE = 6;
    const long landlock = syscall(SYS_landlock_create_ruleset, nullptr, 0, 1);
    const AnotherDaemon another;
    ExpectErrors({.systemCalls = SYSTEM_CALLS, .files = true, .paths = PATHS},
                 {
                     {"open a raw socket", EPERM, [] { return socket(AF_INET, SOCK_RAW, IPPROTO_ICMP); }},
                     {"read a file within reach", 0, [] { return Open("/etc/hosts", O_RDONLY); }},
                     {"kill another daemon", landlock >= SIGNALS_SINCE ? EPERM : 0,
                      [&] { return kill(another.pid(), 0); }},
#ifndef HARBREL_ALL_SYSTEM_CALLS
                     {"name itself a leader", EPERM, [] { return setsid(); }},
                     {"map memory", 0, [] { return Map(PROT_WRITE); }},
                     {"map memory that it could run", EPERM, [] { return Map(PROT_EXEC); }},
#endif
                 });
}

// Also as root, to whom every file would be open.
TEST(Confinement, KeepsFilesAndPortsOutOfReach) {
    constexpr ReachablePath REACH[] = {
        {"/etc"}, {"/var/log", true}, {"/usr", false, true}, {"/etc/hosts", true}};
    const Confinement confinement = {
        .ownUser = false, .files = true, .paths = REACH, .tcp = true, .tcpPorts = PORTS};
    constexpr long CUTTING_SINCE = 3, PORTS_SINCE = 4;
    const long landlock = syscall(SYS_landlock_create_ruleset, nullptr, 0, 1);
    const int beyondCutting = landlock >= CUTTING_SINCE ? EACCES : 0;
    const int beyondPorts = landlock >= PORTS_SINCE ? EACCES : 0;
    WriteFileText("/tmp/other", "");
    Must("cp /usr/bin/true /var/log/true");
    ExpectErrors(
        confinement,
        {
            {"list a folder", 0, [] { return Open("/etc", O_RDONLY | O_DIRECTORY); }},
            {"list one elsewhere", EACCES, [] { return Open("/tmp", O_RDONLY | O_DIRECTORY); }},
            {"write a named file", 0, [] { return Open("/etc/hosts", O_RDWR | O_TRUNC); }},
            {"make a file", 0, [] { return Open("/var/log/made", O_WRONLY | O_CREAT); }},
            {"cut it short", 0, [] { return truncate("/var/log/made", 0); }},
            {"cut another one short", beyondCutting, [] { return truncate("/tmp/other", 0); }},
            {"remove it", 0, [] { return unlink("/var/log/made"); }},
            {"remove another one", EACCES, [] { return unlink("/tmp/other"); }},
            {"make a folder", EACCES, [] { return mkdir("/var/log/folder", 0755); }},
            {"run a program", 0, [] { return execl("/usr/bin/true", "true", nullptr); }},
            {"run one that it could write", EACCES, [] { return execl("/var/log/true", "true", nullptr); }},
            {"run a file that it may write", EACCES, [] { return execl("/etc/hosts", "true", nullptr); }},
            {"speak to the named port", ECONNREFUSED, [] { return TryPort(connect, 53); }},
            {"speak to another port", beyondPorts == 0 ? ECONNREFUSED : EACCES,
             [] { return TryPort(connect, 54); }},
            {"serve a port", beyondPorts, [] { return TryPort(bind, 1234); }},
        });
}

// Also as root, whose every file and process it could get at.
TEST(Confinement, LeavesAForeignProgramItselfAlone) {
    const AnotherDaemon another;
    // The kernel does not look at the upper half.
    constexpr long SET_OWNER = F_SETOWN | 1L << 32;
    const rlimit limit = {1024, 1024};
    static constexpr int ADMIN[] = {CAP_SYS_ADMIN};  // so that calls are not refused for its lack
    ExpectErrors(
        {.capabilities = ADMIN, .ownUser = false, .foreignProgram = true},
        {
            {"signal a process", EPERM, [&] { return kill(another.pid(), 0); }},
            {"have it signalled", EPERM, [&] { return syscall(SYS_fcntl, 0, SET_OWNER, another.pid()); }},
            {"limit it", EPERM, [&] { return prlimit(another.pid(), RLIMIT_NOFILE, &limit, nullptr); }},
            {"limit itself", 0, [&] { return prlimit(0, RLIMIT_NOFILE, &limit, nullptr); }},
            {"open a file's mode", EPERM, [] { return chmod("/etc/shadow", 0666); }},
            {"take a namespace", EPERM,
             [] { return syscall(SYS_clone, CLONE_NEWUSER | SIGCHLD, 0, 0, 0, 0); }},
            {"be looked into", 0, [] { return prctl(PR_GET_DUMPABLE) == 0 ? 0 : -1; }},
            {"take one out of sight", ENOSYS, [] { return syscall(SYS_clone3, nullptr, 0); }},
            {"run another program", 0, [] { return system("true") == 0 ? 0 : -1; }},
            {"speak to the host's managers", EPERM,
             [] { return syscall(SYS_socket, AF_UNIX | 1L << 32, SOCK_STREAM | SOCK_CLOEXEC, 0); }},
            {"speak to the system's log", 0, [] { return socket(AF_UNIX, SOCK_DGRAM, 0); }},
            {"speak to the network", 0, [] { return socket(AF_INET, SOCK_STREAM, 0); }},
            {"use calls that have the same number everywhere", 0,
             [] {
                 std::string refused;
                 for (long call = SYS_pidfd_send_signal; call < SYS_pidfd_send_signal + 100; call++) {
                     refused += syscall(call, -1, 0, 0, 0, 0) < 0 && errno == EPERM
                                    ? std::to_string(call) + " "
                                    : "";
                 }
                 WriteFileText("/tmp/refused", refused);
                 return 0;
             }},
        });
    EXPECT_EQ("424 425 426 427 428 429 430 431 432 433 434 438 440 442 448 452 463 466 467 469 ",
              ReadFileText("/tmp/refused"));
}

// What a process says that is refused a call while it is confined, and whether it may go on.
std::string SaidWithout(int call) {
    const pid_t child = fork();
    if (child == 0) {
        const FileDescriptor said(open("/tmp/said", O_WRONLY | O_CREAT | O_TRUNC, 0600));
        const bool ready = dup2(said.get(), STDERR_FILENO) >= 0 && RefuseCall(call, EUSERS);
        _exit(ready && Confine({.files = true, .paths = PATHS, .tcp = true, .tcpPorts = PORTS}) ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    return RunShell(
               "sed '/ this kernel keeps no TCP ports/d; s/.* - //; s/: Too many users//; s/user "
               "[1-9].*/user/' /tmp/said")
               .output +
           (status == 0 ? "goes on\n" : "ends\n");
}

TEST(Confinement, WhatTheKernelRefusesIsSaid) {
    std::string said;
    for (int call : {SYS_getcpu, SYS_landlock_create_ruleset, SYS_landlock_add_rule,
                     SYS_landlock_restrict_self, SYS_setgroups, SYS_setresgid, SYS_setresuid, SYS_capset}) {
        said += SaidWithout(call);
    }
    const std::string files = "cannot put files out of reach\ngoes on\n",
                      user = "cannot become the user\nends\n";
    EXPECT_EQ("goes on\nthis kernel keeps no files out of reach\ngoes on\n" + files + files + user + user +
                  user + "cannot give capabilities up\nends\n",
              said);
}

TEST(Confinement, RunsAsTheOwnUserOrNobodyWithoutAnyGroup) {
    const passwd *own = getpwnam("harbrel");
    ASSERT_NE(nullptr, own);
    static constexpr int KEPT[] = {CAP_NET_RAW, CAP_BPF};
    static constexpr char KEPT_TEXT[] = "CapPrm:\t0000008000002000\nCapEff:\t0000008000002000\n";
    for (const auto &[user, group] : {std::pair(own->pw_uid, own->pw_gid), std::pair(65534U, 65534U)}) {
        EXPECT_EQ(0, ErrorOf({.capabilities = KEPT},
                             [user = user, group = group] {
                                 const bool changed =
                                     getuid() == user && geteuid() == user && getegid() == group &&
                                     getgroups(0, nullptr) == 0 &&
                                     ReadFileText("/proc/self/status").find(KEPT_TEXT) != std::string::npos;
                                 errno = EINVAL;
                                 return changed ? 0 : -1;
                             }))
            << user;
        ASSERT_EQ(0, unlink("/etc/passwd"));
        ASSERT_EQ(0, Open("/etc/passwd", O_WRONLY | O_CREAT));
    }
}

}  // namespace
