#include "daemons/common/startersLegacy.h"

#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "daemons/common/complain.h"

namespace {

constexpr rlim_t STACK_SIZE = 8 * 1024 * 1024;
// What a service of systemd has: enough for all but those who forward thousands of ports and ask for more.
constexpr rlim_t FILE_COUNT = 1024;
constexpr rlim_t FILE_COUNT_AT_MOST = 524288;

constexpr struct {
    __rlimit_resource which;
    rlimit value;
} LIMITS[] = {
    {RLIMIT_CPU, {RLIM_INFINITY, RLIM_INFINITY}},
    {RLIMIT_FSIZE, {RLIM_INFINITY, RLIM_INFINITY}},
    {RLIMIT_DATA, {RLIM_INFINITY, RLIM_INFINITY}},
    {RLIMIT_AS, {RLIM_INFINITY, RLIM_INFINITY}},
    {RLIMIT_RSS, {RLIM_INFINITY, RLIM_INFINITY}},
    {RLIMIT_NPROC, {RLIM_INFINITY, RLIM_INFINITY}},
    {RLIMIT_LOCKS, {RLIM_INFINITY, RLIM_INFINITY}},
    {RLIMIT_STACK, {STACK_SIZE, RLIM_INFINITY}},
    {RLIMIT_NOFILE, {FILE_COUNT, FILE_COUNT_AT_MOST}},
    {RLIMIT_CORE, {}},
    {RLIMIT_NICE, {}},
    {RLIMIT_RTPRIO, {}},
};

// A hard limit below the wanted one can be raised only with CAP_SYS_RESOURCE; without it the highest there is
// must do.
void SetLimits() {
    for (const auto &limit : LIMITS) {
        rlimit now = {};
        if (setrlimit(limit.which, &limit.value) != 0 && getrlimit(limit.which, &now) == 0) {
            now.rlim_cur = std::min(limit.value.rlim_cur, now.rlim_max);
            setrlimit(limit.which, &now);
        }
    }
}

}  // namespace

void StartersLegacy_Shed() {
    SetLimits();
    umask(S_IWGRP | S_IWOTH);
    setpriority(PRIO_PROCESS, 0, 0);
    clearenv();
    setenv("PATH", "/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin", 1);
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) {
        Complain("cannot forgo new privileges: %s", strerror(errno));
    }
}
