#include "daemons/confinement/systemCalls.h"

#include <asm/ioctls.h>
#include <asm/sockios.h>
#include <fcntl.h>
#include <sched.h>
#include <seccomp.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/syscall.h>

#include <cerrno>
#include <cstring>
#include <memory>

#include "daemons/common/complain.h"

namespace {

// Memory, clocks, its end, and what it does with descriptors that it has.
constexpr int EVERYBODYS[] = {
    SCMP_SYS(brk),           SCMP_SYS(munmap),
    SCMP_SYS(mremap),        SCMP_SYS(madvise),
    SCMP_SYS(futex),         SCMP_SYS(rseq),
    SCMP_SYS(clock_gettime), SCMP_SYS(clock_nanosleep),
    SCMP_SYS(gettimeofday),  SCMP_SYS(time),
    SCMP_SYS(exit),          SCMP_SYS(exit_group),
    SCMP_SYS(rt_sigreturn),  SCMP_SYS(restart_syscall),
    SCMP_SYS(getpid),        SCMP_SYS(gettid),
    SCMP_SYS(read),          SCMP_SYS(write),
    SCMP_SYS(close),         SCMP_SYS(poll),
    SCMP_SYS(ppoll),         SCMP_SYS(getrandom),
};

// Memory that may be run would make the filter a weak one.
constexpr int MAPPING[] = {SCMP_SYS(mmap), SCMP_SYS(mprotect)};

// Newer than some distributions' headers, and the same on every machine.
enum NewCall : int {
    FCHMODAT2 = 452,
    SETXATTRAT = 463,
    REMOVEXATTRAT = 466,
    OPEN_TREE_ATTR = 467,
    FILE_SETATTR = 469,
};

// What a foreign program is refused. A process that wants to abort, for which it signals itself, ends by a
// fault instead.
constexpr int BEYOND_ITSELF[] = {
    // Other processes.
    SCMP_SYS(kill), SCMP_SYS(tkill), SCMP_SYS(tgkill), SCMP_SYS(rt_sigqueueinfo), SCMP_SYS(rt_tgsigqueueinfo),
    SYS_pidfd_send_signal, SYS_pidfd_open, SYS_pidfd_getfd, SCMP_SYS(ptrace), SCMP_SYS(process_vm_readv),
    SCMP_SYS(process_vm_writev), SYS_process_madvise, SYS_process_mrelease, SCMP_SYS(kcmp),
    SCMP_SYS(move_pages), SCMP_SYS(migrate_pages), SCMP_SYS(setpriority), SCMP_SYS(ioprio_set),
    SCMP_SYS(sched_setscheduler), SCMP_SYS(sched_setparam), SCMP_SYS(sched_setattr),
    SCMP_SYS(sched_setaffinity),
    // Other namespaces.
    SCMP_SYS(mount), SCMP_SYS(umount2), SCMP_SYS(pivot_root), SCMP_SYS(chroot), SYS_open_tree, SYS_move_mount,
    SYS_fsopen, SYS_fsconfig, SYS_fsmount, SYS_fspick, SYS_mount_setattr, OPEN_TREE_ATTR, SCMP_SYS(setns),
    SCMP_SYS(unshare),
    // The kernel.
    SCMP_SYS(bpf), SCMP_SYS(perf_event_open), SCMP_SYS(userfaultfd), SYS_io_uring_setup, SYS_io_uring_enter,
    SYS_io_uring_register, SCMP_SYS(keyctl), SCMP_SYS(add_key), SCMP_SYS(request_key), SCMP_SYS(kexec_load),
    SCMP_SYS(kexec_file_load), SCMP_SYS(init_module), SCMP_SYS(finit_module), SCMP_SYS(delete_module),
    // What Landlock does not see of files. Root may do it to all that are root's.
    SCMP_SYS(chmod), SCMP_SYS(fchmod), SCMP_SYS(fchmodat), FCHMODAT2, SCMP_SYS(chown), SCMP_SYS(fchown),
    SCMP_SYS(lchown), SCMP_SYS(fchownat), SCMP_SYS(utime), SCMP_SYS(utimes), SCMP_SYS(utimensat),
    SCMP_SYS(futimesat), SCMP_SYS(setxattr), SCMP_SYS(lsetxattr), SCMP_SYS(fsetxattr), SETXATTRAT,
    SCMP_SYS(removexattr), SCMP_SYS(lremovexattr), SCMP_SYS(fremovexattr), REMOVEXATTRAT, FILE_SETATTR,
    SCMP_SYS(truncate), SCMP_SYS(mknod), SCMP_SYS(mknodat), SCMP_SYS(open_by_handle_at)};

// Of most arguments the kernel looks at the lower half alone.
constexpr scmp_datum_t INTEGER = 0xffffffff;

// The same by an argument.
const struct {
    int call;
    scmp_arg_cmp argument;
} BEYOND_ITSELF_BY_ARGUMENT[] = {
    // Limits of others, and descriptors that have somebody else signalled.
    {SCMP_SYS(prlimit64), SCMP_A0(SCMP_CMP_NE, 0)},
    {SCMP_SYS(fcntl), SCMP_A1(SCMP_CMP_MASKED_EQ, INTEGER, F_SETOWN)},
    {SCMP_SYS(fcntl), SCMP_A1(SCMP_CMP_MASKED_EQ, INTEGER, F_SETOWN_EX)},
    {SCMP_SYS(ioctl), SCMP_A1(SCMP_CMP_MASKED_EQ, INTEGER, FIOSETOWN)},
    {SCMP_SYS(ioctl), SCMP_A1(SCMP_CMP_MASKED_EQ, INTEGER, SIOCSPGRP)},
    {SCMP_SYS(ioctl), SCMP_A1(SCMP_CMP_MASKED_EQ, INTEGER, TIOCSTI)},
};

constexpr scmp_datum_t NAMESPACES[] = {CLONE_NEWUSER, CLONE_NEWNS,  CLONE_NEWNET,   CLONE_NEWPID,
                                       CLONE_NEWIPC,  CLONE_NEWUTS, CLONE_NEWCGROUP};

// The managers of a host take root's word over connections of this kind; the system's log takes datagrams.
constexpr scmp_datum_t CONNECTIONS[] = {SOCK_STREAM, SOCK_SEQPACKET};
constexpr scmp_datum_t TYPE_OF_SOCKET = 0xf;

struct FilterReleaser {
    void operator()(scmp_filter_ctx filter) const { seccomp_release(filter); }
};
using Filter = std::unique_ptr<void, FilterReleaser>;

// 0 or a negated errno value.
int AllowAll(const Filter &filter, std::span<const int> calls) {
    for (int call : calls) {
        // One that this machine does not have has a number below zero, and needs no rule.
        int error = call < 0 ? 0 : seccomp_rule_add(filter.get(), SCMP_ACT_ALLOW, call, 0);
        if (error != 0) {
            return error;
        }
    }
    return 0;
}

int AllowMapping(const Filter &filter) {
    for (int call : MAPPING) {
        int error = seccomp_rule_add(filter.get(), SCMP_ACT_ALLOW, call, 1,
                                     SCMP_A2(SCMP_CMP_MASKED_EQ, PROT_EXEC, 0));
        if (error != 0) {
            return error;
        }
    }
    return 0;
}

// One that this machine does not have has a number below zero, and needs no rule.
int Refuse(const Filter &filter, int call, std::span<const scmp_arg_cmp> arguments) {
    constexpr uint32_t REFUSAL = SCMP_ACT_ERRNO(EPERM);
    return call < 0 ? 0
                    : seccomp_rule_add_array(filter.get(), REFUSAL, call,
                                             static_cast<unsigned>(arguments.size()), arguments.data());
}

int RefuseAll(const Filter &filter) {
    int error = 0;
    for (int call : BEYOND_ITSELF) {
        error = error == 0 ? Refuse(filter, call, {}) : error;
    }
    for (const auto &[call, argument] : BEYOND_ITSELF_BY_ARGUMENT) {
        error = error == 0 ? Refuse(filter, call, std::span(&argument, 1)) : error;
    }
    for (scmp_datum_t flag : NAMESPACES) {
        const scmp_arg_cmp wanted = SCMP_A0(SCMP_CMP_MASKED_EQ, flag, flag);
        error = error == 0 ? Refuse(filter, SCMP_SYS(clone), std::span(&wanted, 1)) : error;
    }
    for (scmp_datum_t type : CONNECTIONS) {
        const scmp_arg_cmp wanted[] = {SCMP_A0(SCMP_CMP_MASKED_EQ, INTEGER, AF_UNIX),
                                       SCMP_A1(SCMP_CMP_MASKED_EQ, TYPE_OF_SOCKET, type)};
        error = error == 0 ? Refuse(filter, SCMP_SYS(socket), wanted) : error;
    }
    // Its flags lie in memory, out of a filter's sight; the C library then takes clone.
    return error == 0 ? seccomp_rule_add(filter.get(), SCMP_ACT_ERRNO(ENOSYS), SYS_clone3, 0) : error;
}

int LoadForeign() {
    Filter filter(seccomp_init(SCMP_ACT_ALLOW));
    int error = filter != nullptr ? RefuseAll(filter) : -ENOMEM;
    return error == 0 ? seccomp_load(filter.get()) : error;
}

int Load(std::span<const int> allowed) {
    Filter filter(seccomp_init(SCMP_ACT_ERRNO(EPERM)));
    int error = filter != nullptr ? AllowAll(filter, EVERYBODYS) : -ENOMEM;
    error = error == 0 ? AllowMapping(filter) : error;
    error = error == 0 ? AllowAll(filter, allowed) : error;
    return error == 0 ? seccomp_load(filter.get()) : error;
}

void ComplainAbout(int error) {
    if (error != 0) {
        Complain("cannot filter system calls: %s", strerror(-error));
    }
}

}  // namespace

void SystemCalls_Restrict(std::span<const int> allowed) {
    ComplainAbout(Load(allowed));
}

void SystemCalls_RestrictForeign() {
    ComplainAbout(LoadForeign());
}
