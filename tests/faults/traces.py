"""The faults that a traced run offers: each system call that may be made to fail, and where it comes from."""
import re

FILE_ERRORS = ("ENOSPC", "EIO", "EROFS", "EACCES", "EMFILE")
# What can go wrong with calls that change something; at each of them the program is also killed once.
CHANGES = {
    **dict.fromkeys(("write", "pwrite64", "writev", "ftruncate", "fallocate"), ("ENOSPC", "EIO", "EINTR")),
    **dict.fromkeys(("fsync", "fdatasync"), ("EIO", "ENOSPC")),
    **dict.fromkeys(("openat", "open", "creat"), FILE_ERRORS),
    **dict.fromkeys(("rename", "renameat", "renameat2", "link", "linkat", "symlink", "symlinkat"),
                    ("ENOSPC", "EIO", "EROFS", "EACCES")),
    **dict.fromkeys(("mkdir", "mkdirat", "mknod", "mknodat"), ("ENOSPC", "EIO", "EROFS", "EACCES")),
    **dict.fromkeys(("unlink", "unlinkat", "rmdir", "chmod", "fchmod", "fchmodat", "chown", "fchown", "fchownat"),
                    ("EIO", "EROFS", "EACCES")),
    **dict.fromkeys(("fork", "vfork", "clone", "clone3"), ("EAGAIN", "ENOMEM")),
    **dict.fromkeys(("socket", "socketpair", "pipe2", "pipe", "epoll_create1", "eventfd2", "memfd_create", "timerfd_create",
                     "inotify_init1", "pidfd_open", "accept4"), ("EMFILE", "ENOMEM")),
    **dict.fromkeys(("dup", "dup2", "dup3", "epoll_ctl"), ("EMFILE", "ENOMEM")),
    **dict.fromkeys(("sendto", "sendmsg", "bind", "connect", "listen"), ("ENOMEM", "EACCES")),
    **dict.fromkeys(("ioctl", "setsockopt"), ("ENOMEM", "EPERM")),
    **dict.fromkeys(("unshare", "setns", "mount", "bpf", "prctl", "seccomp", "capset", "setresuid", "setresgid", "setuid",
                     "setgid", "setgroups", "landlock_create_ruleset", "landlock_add_rule", "landlock_restrict_self"),
                    ("EPERM", "ENOMEM")),
    **dict.fromkeys(("kill", "pidfd_send_signal", "setsid"), ("EPERM",)),
    **dict.fromkeys(("execve",), ("ENOMEM", "EACCES")),
    **dict.fromkeys(("flock",), ("EINTR", "ENOMEM")),
}
# And with those that only read.
READS = {
    **dict.fromkeys(("openat", "open"), ("EMFILE", "EIO")),
    **dict.fromkeys(("read", "pread64", "getdents64"), ("EIO",)),
    **dict.fromkeys(("recvfrom", "recvmsg"), ("ENOBUFS", "EINTR")),
    **dict.fromkeys(("poll", "ppoll", "wait4", "waitid", "epoll_wait", "epoll_pwait"), ("EINTR",)),
}
KILL = "KILL"

# What a daemon's start tells its starter by. The tracer, which outlives the daemon's first process, holds the pipe open,
# so that the starter never sees its end where this write fails.
REPORT = re.compile(r'^\d+<pipe:\[\d+\]>, "\\0\\0", 2')

CALL = re.compile(r"^(\d+) +([a-z]\w*)\((.*)$")
RESUMED = re.compile(r"^(\d+) +<\.\.\. ")
FRAME = re.compile(r"^ > ([^(]*)\((.*)\) \[0x")
# A line of the log that cannot be written is the same fault whoever says it.
LOG = "/var/log/harbrel"
LOADER = re.compile(r"/ld-linux|/ld\.so")
# Of names and texts: numbers, and what is drawn at random.
DRAWN = re.compile(r"(networking|orvane)\.\w{6}\b|\.orvane\w*\.\w+|[0-9]+")


def changes(call, arguments):
    """Whether a traced call changes something."""
    if call in ("openat", "open"):
        return "O_WRONLY" in arguments or "O_RDWR" in arguments or "O_CREAT" in arguments
    if call == "ioctl":
        return "SIOCS" in arguments or "TUNSET" in arguments
    if call == "kill":
        return ", 0)" not in arguments
    return call in CHANGES


def errors_of(call, arguments):
    if call == "write" and REPORT.match(arguments):
        return ()
    if changes(call, arguments):
        return (*CHANGES[call], KILL)
    return READS.get(call, ())


def subject(call, arguments):
    """The file that a call is about, with numbers made alike; what is written to it does not count."""
    if call in ("write", "writev", "pwrite64", "read", "sendto", "sendmsg", "recvfrom", "recvmsg", "ioctl"):
        arguments = arguments.split(",", 1)[0]
    paths = re.findall(r'"([^"]*)"|<([^>]*)>', re.sub(r"AT_FDCWD<[^>]*>", "", arguments))
    return DRAWN.sub("#", " ".join(a or b for a, b in paths))


def calls_of(trace):
    """Each call of a trace: its kind, which of its process's calls of that kind it is, its arguments, its callers."""
    calls, counts, unfinished, current = [], {}, {}, None
    for line in trace.splitlines():
        if match := CALL.match(line):
            process, call, arguments = match.groups()
            number = counts[process, call] = counts.get((process, call), 0) + 1
            current = unfinished[process] = (call, number, arguments, [])
            calls.append(current)
        elif match := RESUMED.match(line):
            current = unfinished.get(match.group(1))
        elif current and (match := FRAME.match(line)):
            current[3].append(match.groups())
    return calls


def sites_of(trace):
    """The occurrences of each call that may fail, by where it comes from: the same callers about the same file, networks
    and numbers made alike, are one site, since the program is in the same state there but for the network's number. What
    goes to the log is one site wherever it comes from."""
    sites = {}
    for call, number, arguments, frames in calls_of(trace):
        own = [f"{file.rsplit('/', 1)[-1]}:{place}" for file, place in frames if not LOADER.search(file)]
        if not own and frames:
            continue  # the program has not begun
        about = subject(call, arguments)
        for error in errors_of(call, arguments):
            key = " ".join((call, about, error, *(() if LOG in about else own)))
            sites.setdefault(key, []).append((call, number, error))
    return sites
