#include "apps/zelan/posix/harbrelCLI/leftovers.h"

#include <fcntl.h>
#include <spawn.h>
#include <unistd.h>

#include <climits>
#include <string>

namespace {

// The tool's folder with a slash behind it; empty when it cannot be told.
std::string OwnFolder() {
    char path[PATH_MAX];
    const ssize_t size = readlink("/proc/self/exe", path, sizeof path);
    std::string folder(path, size > 0 ? static_cast<size_t>(size) : 0);
    folder.erase(folder.rfind('/') + 1);
    return folder;
}

}  // namespace

void RemoveLeftovers() {
    const std::string folder = OwnFolder();
    const std::string program = folder + "zelan-watch";
    const char *arguments[] = {program.c_str(), "--sweep", nullptr};
    posix_spawn_file_actions_t actions;
    // Without its folder the name alone would be looked up in the folder that the caller happens to be in.
    if (folder.empty() || posix_spawn_file_actions_init(&actions) != 0) {
        return;
    }
    // Whoever reads what the tool says must not wait for the end of this one as well.
    bool isSilent = true;
    for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        isSilent &= posix_spawn_file_actions_addopen(&actions, standard, "/dev/null", O_RDWR, 0) == 0;
    }
    pid_t process = 0;
    if (isSilent) {
        posix_spawn(&process, program.c_str(), &actions, nullptr, const_cast<char **>(arguments), environ);
    }
    posix_spawn_file_actions_destroy(&actions);
}
