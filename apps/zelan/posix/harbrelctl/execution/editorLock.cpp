#include "apps/zelan/posix/harbrelctl/execution/editorLock.h"

#include <fcntl.h>
#include <sys/file.h>

#include <chrono>
#include <thread>

namespace {

constexpr const char *LOCK_FILE = "/run/harbrelctl.lock";
constexpr std::chrono::milliseconds PATIENCE{10000};
constexpr std::chrono::milliseconds PAUSE{20};

}  // namespace

EditorLock::EditorLock() {
    FileDescriptor file(open(LOCK_FILE, O_RDONLY | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!file) {
        return;
    }
    const auto deadline = std::chrono::steady_clock::now() + PATIENCE;
    while (flock(file.get(), LOCK_EX | LOCK_NB) != 0) {
        if (std::chrono::steady_clock::now() > deadline) {
            return;
        }
        std::this_thread::sleep_for(PAUSE);
    }
    file_ = std::move(file);
}
