// What a daemon that guests' bytes have turned hostile can still do, by trying it.
#include "daemons/confinement/confinement.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <pwd.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstring>
#include <functional>
#include <string>

#include "lib/misc/owners.h"
#include "tests/support/command.h"

namespace {

constexpr int SYSTEM_CALLS[] = {SYS_openat, SYS_socket, SYS_connect, SYS_getuid, SYS_getgid, SYS_kill};
constexpr ReachablePath PATHS[] = {{"/etc"}, {"/var/log", true}, {"/no/such/folder"}};
constexpr uint16_t PORTS[] = {53};

// Nobody listens, so that a connection which is let through is refused by the other side.
int Connect(uint16_t port) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    FileDescriptor handle(socket(AF_INET, SOCK_STREAM, 0));
    return connect(handle.get(), reinterpret_cast<sockaddr *>(&address), sizeof address);
}

int Open(const char *path, int flags) {
    return FileDescriptor(open(path, flags, 0644)) ? 0 : -1;
}

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

// A process of the own user, as every other daemon is one.
pid_t StartAnother() {
    int ready[2] = {-1, -1};
    EXPECT_EQ(0, pipe(ready));
    pid_t child = fork();
    if (child == 0) {
        const bool confined = Confine({});
        close(ready[0]);
        close(ready[1]);
        pause();
        _exit(confined ? 0 : 1);
    }
    char none = 0;
    close(ready[1]);
    EXPECT_EQ(0, read(ready[0], &none, sizeof none));
    close(ready[0]);
    return child;
}

TEST(Confinement, LeavesWhatIsNamedAndNothingElse) {
    const Confinement confinement = {
        .systemCalls = SYSTEM_CALLS, .files = true, .paths = PATHS, .tcp = true, .tcpPorts = PORTS};
    ASSERT_EQ(0, chmod("/var/log", 0777));
    constexpr long PORTS_SINCE = 4;
    constexpr long SIGNALS_SINCE = 6;
    const long landlock = syscall(SYS_landlock_create_ruleset, nullptr, 0, 1);
    const pid_t another = StartAnother();
    const struct {
        const char *name;
        int error;
        std::function<int()> attempt;
    } attempts[] = {
        {"read a file within reach", 0, [] { return Open("/etc/hosts", O_RDONLY); }},
        {"write it", EACCES, [] { return Open("/var/log/../../etc/hosts", O_WRONLY); }},
        {"make one where it may", 0, [] { return Open("/var/log/made", O_WRONLY | O_CREAT); }},
        {"make one elsewhere", EACCES, [] { return Open("/tmp/made", O_WRONLY | O_CREAT); }},
        {"read one elsewhere", EACCES, [] { return Open("/proc/version", O_RDONLY); }},
        {"speak to the named port", ECONNREFUSED, [] { return Connect(53); }},
        {"speak to another", landlock >= PORTS_SINCE ? EACCES : ECONNREFUSED, [] { return Connect(54); }},
        {"open a raw socket", EPERM, [] { return socket(AF_INET, SOCK_RAW, IPPROTO_ICMP); }},
        {"kill another daemon", landlock >= SIGNALS_SINCE ? EPERM : 0,
         [another] { return kill(another, 0); }},
#ifndef HARBREL_ALL_SYSTEM_CALLS
        {"name itself a leader", EPERM, [] { return setsid(); }},
        {"map memory that it could run", EPERM,
         [] {
             return mmap(nullptr, 4096, PROT_READ | PROT_WRITE | PROT_EXEC, MAP_PRIVATE | MAP_ANONYMOUS, -1,
                         0) == MAP_FAILED
                        ? -1
                        : 0;
         }},
#endif
    };
    for (const auto &row : attempts) {
        EXPECT_EQ(row.error, ErrorOf(confinement, row.attempt)) << row.name;
    }
    kill(another, SIGKILL);
    waitpid(another, nullptr, 0);
}

// Also as root, whose every file and process it could get at.
TEST(Confinement, LeavesAForeignProgramItselfAlone) {
    const Confinement confinement = {.ownUser = false, .foreignProgram = true};
    const pid_t another = StartAnother();
    // The kernel does not look at the upper half.
    constexpr long SET_OWNER = F_SETOWN | 1L << 32;
    const rlimit limit = {1024, 1024};
    const struct {
        const char *name;
        int error;
        std::function<long()> attempt;
    } attempts[] = {
        {"signal a process", EPERM, [=] { return kill(another, 0); }},
        {"have it signalled", EPERM, [=] { return syscall(SYS_fcntl, 0, SET_OWNER, another); }},
        {"limit it", EPERM, [=] { return prlimit(another, RLIMIT_NOFILE, &limit, nullptr); }},
        {"limit itself", 0, [=] { return prlimit(0, RLIMIT_NOFILE, &limit, nullptr); }},
        {"open a file's mode", EPERM, [] { return chmod("/etc/shadow", 0666); }},
        {"take a namespace", EPERM, [] { return syscall(SYS_clone, CLONE_NEWUSER | SIGCHLD, 0, 0, 0, 0); }},
        {"be looked into", 0, [] { return prctl(PR_GET_DUMPABLE) == 0 ? 0 : -1; }},
        {"take one out of sight", ENOSYS, [] { return syscall(SYS_clone3, nullptr, 0); }},
        {"fork", 0,
         [] {
             const pid_t child = fork();
             return child == 0 ? (_exit(0), 0) : waitpid(child, nullptr, 0);
         }},
        {"speak to the host's managers", EPERM,
         [] { return syscall(SYS_socket, AF_UNIX | 1L << 32, SOCK_STREAM | SOCK_CLOEXEC, 0); }},
        {"speak to the system's log", 0, [] { return socket(AF_UNIX, SOCK_DGRAM, 0); }},
        {"speak to the network", 0, [] { return socket(AF_INET, SOCK_STREAM, 0); }},
    };
    for (const auto &row : attempts) {
        EXPECT_EQ(row.error, ErrorOf(confinement, row.attempt)) << row.name;
    }
    kill(another, SIGKILL);
    waitpid(another, nullptr, 0);
}

// What a process says that is refused a call while it is confined, and whether it may go on.
std::string SaidWithout(int call, int error) {
    sock_filter filter[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<uint32_t>(call), 0, 1),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | static_cast<uint32_t>(error)),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog program = {sizeof filter / sizeof filter[0], filter};
    const pid_t child = fork();
    if (child == 0) {
        const FileDescriptor said(open("/tmp/said", O_WRONLY | O_CREAT | O_TRUNC, 0600));
        const bool ready =
            dup2(said.get(), STDERR_FILENO) >= 0 && prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
        _exit(ready && Confine({.files = true, .paths = PATHS, .tcp = true, .tcpPorts = PORTS}) ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    const std::string said = ReadFileText("/tmp/said");
    return (status == 0 ? "goes on" : "ends") + said.substr(std::min(said.find(" - "), said.size()));
}

TEST(Confinement, WhatTheKernelRefusesIsSaid) {
    const std::string user = "ends - cannot become the user " + std::to_string(getpwnam("harbrel")->pw_uid);
    const struct {
        int call;
        std::string said;
    } cases[] = {
        {SYS_getcpu, "goes on"},
        {SYS_landlock_create_ruleset, "goes on - this kernel keeps no files out of reach: Too many users\n"},
        {SYS_landlock_add_rule, "goes on - cannot put files out of reach: Too many users\n"},
        {SYS_landlock_restrict_self, "goes on - cannot put files out of reach: Too many users\n"},
        {SYS_setgroups, user + ": Too many users\n"},
        {SYS_setresgid, user + ": Too many users\n"},
        {SYS_setresuid, user + ": Too many users\n"},
        {SYS_capset, "ends - cannot give capabilities up: Too many users\n"},
    };
    for (const auto &row : cases) {
        EXPECT_EQ(row.said, SaidWithout(row.call, EUSERS)) << row.call;
    }
}

TEST(Confinement, RunsAsTheOwnUserOrNobodyWithoutAnyGroup) {
    const passwd *own = getpwnam("harbrel");
    ASSERT_NE(nullptr, own);
    for (const auto &[user, group] : {std::pair(own->pw_uid, own->pw_gid), std::pair(65534U, 65534U)}) {
        EXPECT_EQ(0, ErrorOf({},
                             [user = user, group = group] {
                                 const bool changed = getuid() == user && geteuid() == user &&
                                                      getegid() == group && getgroups(0, nullptr) == 0 &&
                                                      setuid(0) != 0;
                                 errno = EINVAL;
                                 return changed ? 0 : -1;
                             }))
            << user;
        ASSERT_EQ(0, unlink("/etc/passwd"));
        ASSERT_EQ(0, Open("/etc/passwd", O_WRONLY | O_CREAT));
    }
}

}  // namespace
