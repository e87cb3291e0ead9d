// Owners of C resources: move-only, safe when empty, released on every way out.
#pragma once

#include <dirent.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <utility>

struct FreeDeleter {
    void operator()(void *memory) const { free(memory); }
};
// A NUL-terminated text from malloc.
using MallocString = std::unique_ptr<char, FreeDeleter>;
// Any block from malloc.
template <typename T>
using MallocBlock = std::unique_ptr<T, FreeDeleter>;

struct FileCloser {
    void operator()(FILE *stream) const { fclose(stream); }
};
// Closing through the owner drops the result of fclose; a writer that must know it releases and closes by
// hand.
using FileStream = std::unique_ptr<FILE, FileCloser>;

struct DirectoryCloser {
    void operator()(DIR *directory) const { closedir(directory); }
};
using Directory = std::unique_ptr<DIR, DirectoryCloser>;

// A file descriptor; -1 when empty.
class FileDescriptor {
  public:
    FileDescriptor() = default;
    explicit FileDescriptor(int fd) : fd_(fd) {}
    FileDescriptor(FileDescriptor &&other) noexcept : fd_(other.release()) {}
    FileDescriptor &operator=(FileDescriptor &&other) noexcept {
        if (this != &other) {
            reset(other.release());
        }
        return *this;
    }
    FileDescriptor(const FileDescriptor &) = delete;
    FileDescriptor &operator=(const FileDescriptor &) = delete;
    ~FileDescriptor() { reset(); }

    int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }
    int release() { return std::exchange(fd_, -1); }
    void reset(int fd = -1) {
        if (fd_ >= 0) {
            close(fd_);
        }
        fd_ = fd;
    }

  private:
    int fd_ = -1;
};

// A stream that takes the descriptor over; null when the descriptor is empty or there is no memory for it.
inline FileStream StreamOf(FileDescriptor file, const char *mode) {
    FileStream stream(file ? fdopen(file.get(), mode) : nullptr);
    if (stream != nullptr) {
        file.release();
    }
    return stream;
}
