// bench-measure COMMAND [ARGUMENT]... runs the command with its output thrown away and prints one line: the
// seconds it took, the largest memory it had in KiB, and its exit status.
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>

int main(int argc, char **argv) {
    if (argc < 2) {
        fprintf(stderr, "usage: %s COMMAND [ARGUMENT]...\n", argv[0]);
        return EXIT_FAILURE;
    }
    const auto begin = std::chrono::steady_clock::now();
    const pid_t child = fork();
    if (child == 0) {
        const int nothing = open("/dev/null", O_WRONLY | O_CLOEXEC);
        dup2(nothing, STDOUT_FILENO);
        dup2(nothing, STDERR_FILENO);
        execvp(argv[1], argv + 1);
        _exit(127);
    }
    int status = 0;
    rusage usage = {};
    if (child < 0 || wait4(child, &status, 0, &usage) != child) {
        perror("bench-measure");
        return EXIT_FAILURE;
    }
    const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - begin;
    printf("%.6f %ld %d\n", taken.count(), usage.ru_maxrss, WIFEXITED(status) ? WEXITSTATUS(status) : 128);
    return EXIT_SUCCESS;
}
