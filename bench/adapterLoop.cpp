// bench-adapter-loop FIRST LAST enables the host-only adapter of each network and prints the seconds that the
// calls took together, without those of loading the library.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "lib/harbrel/harbrel.h"

int main(int argc, char **argv) {
    if (argc != 3 || !HBL_Load()) {
        fprintf(stderr, "usage: %s FIRST LAST, with a database in place\n", argv[0]);
        return EXIT_FAILURE;
    }
    const auto begin = std::chrono::steady_clock::now();
    bool enabled = true;
    for (long number = strtol(argv[1], nullptr, 10); number <= strtol(argv[2], nullptr, 10); number++) {
        enabled = HBL_EnableNetworkAdapter(("zelan" + std::to_string(number)).c_str()) && enabled;
    }
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - begin;
    printf("%.6f\n", taken.count());
    HBL_Unload();
    return enabled ? EXIT_SUCCESS : EXIT_FAILURE;
}
