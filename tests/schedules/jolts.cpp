// Calls of the C library that touch files, with pauses before and behind them: whatever lies between two of
// them can take long, and others come between.
#include <dlfcn.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "tests/schedules/actors.h"

namespace {

std::mt19937 random_;
uint32_t chance_ = 0;

void Pause() {
    if (chance_ > 0 && Draw(&random_, 1000) < chance_) {
        usleep(Draw(&random_, Draw(&random_, 10) == 0 ? 30'000 : 3'000));
    }
}

// The C library's own function of that name, between two pauses that leave errno alone.
template <typename... Arguments>
int Call(const char *name, Arguments... arguments) {
    auto *const real = reinterpret_cast<int (*)(Arguments...)>(dlsym(RTLD_NEXT, name));
    Pause();
    const int result = real(arguments...);
    const int error = errno;
    Pause();
    errno = error;
    return result;
}

}  // namespace

void JoltCalls(uint32_t seed, uint32_t perMille) {
    random_.seed(seed);
    chance_ = perMille;
}

extern "C" {
int stat(const char *path, struct stat *status) noexcept {
    return Call("stat", path, status);
}
int rename(const char *from, const char *to) noexcept {
    return Call("rename", from, to);
}
int unlink(const char *path) noexcept {
    return Call("unlink", path);
}
int fsync(int file) {
    return Call("fsync", file);
}
}
