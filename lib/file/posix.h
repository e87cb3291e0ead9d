// POSIX calls that take paths, for callers whose texts are UTF-8: each path is converted to the current
// encoding first. A path that cannot be converted gives the call's failure value with errno EINVAL and makes
// no system call. Otherwise result and errno are those of the call. A null path stays null.
#pragma once

#include <dirent.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <cstdio>

int Posix_Unlink(const char *path);
FILE *Posix_Fopen(const char *path, const char *mode);
int Posix_Open(const char *path, int flags, mode_t mode = 0);
int Posix_Rename(const char *from, const char *to);
int Posix_Link(const char *from, const char *to);
int Posix_Stat(const char *path, struct stat *status);
int Posix_Lstat(const char *path, struct stat *status);
DIR *Posix_Opendir(const char *path);
// `resolved` null: a new UTF-8 text from malloc.
char *Posix_Realpath(const char *path, char *resolved);
int Posix_Mkdir(const char *path, mode_t mode);
int Posix_System(const char *command);
int Posix_Execv(const char *path, char *const argv[]);
int Posix_Mkfifo(const char *path, mode_t mode);
int Posix_Mknod(const char *path, mode_t mode, dev_t device);
int Posix_Access(const char *path, int mode);
int Posix_Rmdir(const char *path);
// The value in UTF-8, or null. The text belongs to a cache and stays good through one change of the variable.
const char *Posix_Getenv(const char *name);
