#include "lib/file/posix.h"

#include <fcntl.h>
#include <unistd.h>
#include <cstdlib>

int Posix_Unlink(const char *path) {
    return unlink(path);
}
FILE *Posix_Fopen(const char *path, const char *mode) {
    return fopen(path, mode);
}
int Posix_Open(const char *path, int flags, mode_t mode) {
    return open(path, flags, mode);
}
int Posix_Rename(const char *from, const char *to) {
    return rename(from, to);
}
int Posix_Stat(const char *path, struct stat *status) {
    return stat(path, status);
}
int Posix_Lstat(const char *path, struct stat *status) {
    return lstat(path, status);
}
DIR *Posix_Opendir(const char *path) {
    return opendir(path);
}
char *Posix_Realpath(const char *path, char *resolved) {
    return realpath(path, resolved);
}
int Posix_Mkdir(const char *path, mode_t mode) {
    return mkdir(path, mode);
}
int Posix_System(const char *command) {
    return system(command);
}
int Posix_Execv(const char *path, char *const argv[]) {
    return execv(path, argv);
}
int Posix_Mkfifo(const char *path, mode_t mode) {
    return mkfifo(path, mode);
}
int Posix_Mknod(const char *path, mode_t mode, dev_t device) {
    return mknod(path, mode, device);
}
int Posix_Access(const char *path, int mode) {
    return access(path, mode);
}
int Posix_Rmdir(const char *path) {
    return rmdir(path);
}
const char *Posix_Getenv(const char *name) {
    return getenv(name);
}
