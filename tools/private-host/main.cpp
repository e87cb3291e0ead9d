// private-host: runs one command on a host of its own.
//
//   private-host [--keep DIR]... [--hostname NAME] [--] COMMAND [ARGUMENT]...
//
// The command gets namespaces of its own: an /etc whose changes are lost, empty folders where the product
// writes, a /dev in which nodes can be made, and the loopback alone. Everything ends with the command. --keep
// DIR leaves a folder visible below an emptied one. Exit status: the command's own, or 128 and its signal; 77
// where the kernel refuses (a skip for test runners); 125 when the setup failed; 127 when nothing could be
// run.
#include <fcntl.h>
#include <getopt.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include "lib/misc/owners.h"

namespace {

constexpr int STATUS_SKIPPED = 77;
constexpr int STATUS_SETUP_FAILED = 125;
constexpr int STATUS_EXEC_FAILED = 127;

struct Options {
    std::vector<std::string> keptFolders;
    std::string hostname = "private-host";
};

// A folder that must stay reachable, held open from before its path is hidden.
struct KeptFolder {
    std::string path;
    FileDescriptor handle;
};

// A refusal for want of privilege or of the facility is a skip; anything else is a fault.
[[noreturn]] void StopSetup(const char *what) {
    int error = errno;
    bool refused = error == EPERM || error == EACCES || error == ENOSYS || error == ENOSPC || error == EINVAL;
    fprintf(stderr, "private-host: %s%s: %s\n", refused ? "SKIPPED, the kernel refuses: " : "", what,
            strerror(error));
    _exit(refused ? STATUS_SKIPPED : STATUS_SETUP_FAILED);
}

void MountOrStop(const char *type, const char *target, unsigned long flags, const char *data) {
    if (mount(type, target, type, flags, data) != 0) {
        StopSetup(target);
    }
}

void MakeFolders(const std::string &path) {
    std::error_code error;
    std::filesystem::create_directories(path, error);
    if (error) {
        errno = error.value();
        StopSetup(path.c_str());
    }
}

void AppendLine(const char *path, const char *line) {
    FileDescriptor file(open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644));
    if (!file || write(file.get(), line, strlen(line)) < 0) {
        StopSetup(path);
    }
}

// The user of the daemons, whom a package would make; the number only has to be nobody else's.
void AddDaemonUser() {
    AppendLine("/etc/passwd", "harbrel:x:64119:64119:virtual networks:/nonexistent:/usr/sbin/nologin\n");
    AppendLine("/etc/group", "harbrel:x:64119:\n");
}

// An overlay, or a copy in memory, in which the tool's folder can be made without appearing on the real host.
void MakePrivateEtc() {
    const char *scratch = "/tmp";
    MountOrStop("tmpfs", scratch, 0, "mode=0755");
    MakeFolders("/tmp/upper");
    MakeFolders("/tmp/work");
    if (mount("overlay", "/etc", "overlay", 0, "lowerdir=/etc,upperdir=/tmp/upper,workdir=/tmp/work") != 0) {
        std::error_code ignored;
        MakeFolders("/tmp/etc");
        for (const auto &entry : std::filesystem::directory_iterator("/etc", ignored)) {
            std::filesystem::copy(
                entry.path(), "/tmp/etc" / entry.path().filename(),
                std::filesystem::copy_options::recursive | std::filesystem::copy_options::copy_symlinks,
                ignored);
        }
        if (mount("/tmp/etc", "/etc", nullptr, MS_BIND, nullptr) != 0) {
            StopSetup("/etc");
        }
    }
    umount2(scratch, MNT_DETACH);
    AddDaemonUser();

    // The real file may lead into /run, which is empty here, and this network has no name server anyway.
    unlink("/etc/resolv.conf");
    FileDescriptor resolver(open("/etc/resolv.conf", O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
}

void EmptyFolder(const char *path, const char *options) {
    MakeFolders(path);
    MountOrStop("tmpfs", path, MS_NOSUID, options);
}

void MakeDeviceNode(const char *path, mode_t mode, unsigned major, unsigned minor) {
    if (mknod(path, S_IFCHR | mode, makedev(major, minor)) != 0 || chmod(path, mode) != 0) {
        StopSetup(path);
    }
}

void MakePrivateDev() {
    MountOrStop("tmpfs", "/dev", MS_NOSUID, "mode=0755");
    MakeFolders("/dev/net");
    MakeDeviceNode("/dev/null", 0666, 1, 3);
    MakeDeviceNode("/dev/zero", 0666, 1, 5);
    MakeDeviceNode("/dev/full", 0666, 1, 7);
    MakeDeviceNode("/dev/random", 0666, 1, 8);
    MakeDeviceNode("/dev/urandom", 0666, 1, 9);
    MakeDeviceNode("/dev/tty", 0666, 5, 0);
    MakeDeviceNode("/dev/net/tun", 0600, 10, 200);
    MakeFolders("/dev/pts");
    MountOrStop("devpts", "/dev/pts", MS_NOSUID | MS_NOEXEC, "newinstance,ptmxmode=0666,mode=0620");
    EmptyFolder("/dev/shm", "mode=1777");
    static constexpr const char *LINKS[][2] = {{"pts/ptmx", "/dev/ptmx"},
                                               {"/proc/self/fd", "/dev/fd"},
                                               {"/proc/self/fd/0", "/dev/stdin"},
                                               {"/proc/self/fd/1", "/dev/stdout"},
                                               {"/proc/self/fd/2", "/dev/stderr"}};
    for (const auto &link : LINKS) {
        if (symlink(link[0], link[1]) != 0) {
            StopSetup(link[1]);
        }
    }
}

std::vector<KeptFolder> OpenKeptFolders(const Options &options) {
    std::vector<KeptFolder> kept;
    for (const std::string &path : options.keptFolders) {
        FileDescriptor handle(open(path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
        if (!handle) {
            StopSetup(path.c_str());
        }
        kept.push_back({path, std::move(handle)});
    }
    return kept;
}

void BringBackHidden(const std::vector<KeptFolder> &kept) {
    for (const KeptFolder &folder : kept) {
        struct stat before = {};
        struct stat now = {};
        fstat(folder.handle.get(), &before);
        if (stat(folder.path.c_str(), &now) == 0 && now.st_dev == before.st_dev &&
            now.st_ino == before.st_ino) {
            continue;
        }
        std::string source = "/proc/self/fd/" + std::to_string(folder.handle.get());
        MakeFolders(folder.path);
        if (mount(source.c_str(), folder.path.c_str(), nullptr, MS_BIND | MS_REC, nullptr) != 0) {
            StopSetup(folder.path.c_str());
        }
    }
}

void SetUpFolders(const Options &options) {
    std::vector<KeptFolder> kept = OpenKeptFolders(options);
    FileDescriptor workingFolder(open(".", O_PATH | O_DIRECTORY | O_CLOEXEC));

    MountOrStop("proc", "/proc", MS_NOSUID | MS_NODEV | MS_NOEXEC, nullptr);
    if (mount("sysfs", "/sys", "sysfs", MS_NOSUID | MS_NODEV | MS_NOEXEC, nullptr) != 0) {
        fprintf(stderr, "private-host: /sys stays that of the real host: %s\n", strerror(errno));
    }
    MakePrivateEtc();
    EmptyFolder("/etc/orvane", "mode=0755");
    EmptyFolder("/var/log", "mode=0755");
    EmptyFolder("/run", "mode=0755");
    std::error_code ignored;
    if (!std::filesystem::equivalent("/var/run", "/run", ignored)) {
        EmptyFolder("/var/run", "mode=0755");
    }
    EmptyFolder("/tmp", "mode=1777");
    MakePrivateDev();
    BringBackHidden(kept);
    if (workingFolder) {
        (void)!fchdir(workingFolder.get());
    }
}

void BringLoopbackUp() {
    FileDescriptor handle(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    ifreq request = {};
    snprintf(request.ifr_name, sizeof request.ifr_name, "lo");
    request.ifr_flags = IFF_UP;
    if (!handle || ioctl(handle.get(), SIOCSIFFLAGS, &request) != 0) {
        StopSetup("loopback");
    }
}

int ExitStatus(int waitStatus) {
    return WIFEXITED(waitStatus) ? WEXITSTATUS(waitStatus) : 128 + WTERMSIG(waitStatus);
}

// Process 1: adopts and reaps what the command leaves behind. When it returns the kernel kills the rest.
int ReapUntilEndOf(pid_t command) {
    for (;;) {
        int status = 0;
        pid_t ended = waitpid(-1, &status, 0);
        if (ended == command) {
            return ExitStatus(status);
        }
        if (ended < 0 && errno != EINTR) {
            return STATUS_SETUP_FAILED;
        }
    }
}

int RunAsProcessOne(const Options &options, char **command) {
    // Without the launcher nobody would take the exit status; a runner that kills it ends the whole host.
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    SetUpFolders(options);
    if (sethostname(options.hostname.c_str(), options.hostname.size()) != 0) {
        StopSetup("hostname");
    }
    BringLoopbackUp();
    setenv("HARBREL_PRIVATE_HOST", "1", 1);

    pid_t child = fork();
    if (child < 0) {
        StopSetup("fork");
    }
    if (child == 0) {
        execvp(command[0], command);
        fprintf(stderr, "private-host: %s: %s\n", command[0], strerror(errno));
        _exit(STATUS_EXEC_FAILED);
    }
    return ReapUntilEndOf(child);
}

bool ReadOptions(int argc, char **argv, Options *options) {
    static const option LONG_OPTIONS[] = {{"keep", required_argument, nullptr, 'k'},
                                          {"hostname", required_argument, nullptr, 'h'},
                                          {nullptr, 0, nullptr, 0}};
    for (int letter = 0; (letter = getopt_long(argc, argv, "+", LONG_OPTIONS, nullptr)) != -1;) {
        if (letter == 'k') {
            options->keptFolders.emplace_back(optarg);
        } else if (letter == 'h') {
            options->hostname = optarg;
        } else {
            return false;
        }
    }
    return optind < argc;
}

}  // namespace

int main(int argc, char **argv) {
    Options options;
    if (!ReadOptions(argc, argv, &options)) {
        fprintf(stderr, "usage: %s [--keep DIR]... [--hostname NAME] [--] COMMAND [ARGUMENT]...\n", argv[0]);
        return STATUS_SETUP_FAILED;
    }
    if (unshare(CLONE_NEWNS | CLONE_NEWNET | CLONE_NEWPID | CLONE_NEWUTS) != 0) {
        StopSetup("new namespaces");
    }
    if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
        StopSetup("private mounts");
    }
    pid_t processOne = fork();
    if (processOne < 0) {
        StopSetup("fork");
    }
    if (processOne == 0) {
        _exit(RunAsProcessOne(options, argv + optind));
    }
    int status = 0;
    while (waitpid(processOne, &status, 0) < 0) {
        if (errno != EINTR) {
            return STATUS_SETUP_FAILED;
        }
    }
    // Not through exit handlers: the leak check of a sanitizer build would fork, which is over.
    _exit(ExitStatus(status));
}
