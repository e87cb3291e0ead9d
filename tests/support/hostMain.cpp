// Entry of the test programs that change the host: unless they are on a private host already they start
// themselves again on one, so that they are safe to run by hand and each case that ctest runs is alone.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace {

int RunOnPrivateHost(int argc, char **argv) {
    const std::string program = std::filesystem::read_symlink("/proc/self/exe");
    // The present folder may be hidden there, and death tests go back to the one they were started in.
    if (chdir("/") != 0) {
        perror("/");
        return EXIT_FAILURE;
    }
    static char launcher[] = HARBREL_BIN_DIR "/private-host";
    std::vector<const char *> command = {launcher,        "--keep", HARBREL_BIN_DIR, "--keep",
                                         HARBREL_LIB_DIR, "--",     program.c_str()};
    command.insert(command.end(), argv + 1, argv + argc);
    command.push_back(nullptr);
    execv(launcher, const_cast<char **>(command.data()));
    perror(launcher);
    return EXIT_FAILURE;
}

}  // namespace

int main(int argc, char **argv) {
    bool onlyListed = std::any_of(argv + 1, argv + argc,
                                  [](std::string_view text) { return text == "--gtest_list_tests"; });
    if (!onlyListed && getenv("HARBREL_PRIVATE_HOST") == nullptr) {
        return RunOnPrivateHost(argc, argv);
    }
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
