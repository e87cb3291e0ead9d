// bench-lock-loop COUNT takes the database's lock and gives it back so many times; strace counts the calls.
#include <cstdio>
#include <cstdlib>

#include "lib/file/fileLock.h"

int main(int argc, char **argv) {
    const long count = argc == 2 ? strtol(argv[1], nullptr, 10) : 0;
    for (long i = 0; i < count; i++) {
        int error = 0;
        FileLockToken *const token = FileLock_Lock("/etc/orvane/networking", false, 0, &error);
        if (token == nullptr || FileLock_Unlock("/etc/orvane/networking", token) != 0) {
            fprintf(stderr, "no lock, error %d\n", error);
            return EXIT_FAILURE;
        }
    }
    return EXIT_SUCCESS;
}
