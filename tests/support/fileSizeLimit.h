// No file can grow beyond a size for the object's life: a full disk for the process.
#pragma once

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>

class FileSizeLimit {
  public:
    explicit FileSizeLimit(rlim_t bytes) {
        getrlimit(RLIMIT_FSIZE, &former_);
        formerHandler_ = signal(SIGXFSZ, SIG_IGN);
        const rlimit limit = {bytes, former_.rlim_max};
        EXPECT_EQ(0, setrlimit(RLIMIT_FSIZE, &limit));
    }
    ~FileSizeLimit() {
        setrlimit(RLIMIT_FSIZE, &former_);
        signal(SIGXFSZ, formerHandler_);
    }
    FileSizeLimit(FileSizeLimit &&) = delete;

  private:
    rlimit former_ = {};
    sighandler_t formerHandler_ = SIG_DFL;
};

// What the body gives on a disk that is full at that size.
template <typename Body>
auto OnFullDisk(rlim_t bytes, Body body) {
    const FileSizeLimit full(bytes);
    return body();
}
