#include "daemons/confinement/systemCalls.h"

#include <seccomp.h>
#include <sys/mman.h>

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

int Load(std::span<const int> allowed) {
    Filter filter(seccomp_init(SCMP_ACT_ERRNO(EPERM)));
    int error = filter != nullptr ? AllowAll(filter, EVERYBODYS) : -ENOMEM;
    error = error == 0 ? AllowMapping(filter) : error;
    error = error == 0 ? AllowAll(filter, allowed) : error;
    return error == 0 ? seccomp_load(filter.get()) : error;
}

}  // namespace

void SystemCalls_Restrict(std::span<const int> allowed) {
    int error = Load(allowed);
    if (error != 0) {
        Complain("cannot filter system calls: %s", strerror(-error));
    }
}
