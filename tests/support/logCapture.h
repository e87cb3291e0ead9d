// The library's log in a file of the test's own, for its lines to be compared.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "lib/harbrel/base/hblLog.h"

// Opens the log for the object's life; with the default mask again afterwards.
class LogCapture {
  public:
    explicit LogCapture(uint32_t mask = LOG_ERR) {
        char path[] = "/tmp/logCapture.XXXXXX";
        const int fd = mkstemp(path);
        EXPECT_TRUE(fd >= 0 && HBLLogOpen(path));
        close(fd);
        unlink(path);
        HBLLogSetMask(mask);
    }
    ~LogCapture() {
        HBLLogClose();
        HBLLogSetMask(HBL_DEFAULT_LOG_MASK);
    }
    LogCapture(const LogCapture &) = delete;
    LogCapture &operator=(const LogCapture &) = delete;

    // The lines since the last call.
    std::string Take() {
        std::string text;
        FILE *const stream = HBLLogStream();
        fflush(stream);
        char buffer[4096];
        ssize_t got;
        while ((got = pread(fileno(stream), buffer, sizeof buffer, taken_)) > 0) {
            text.append(buffer, static_cast<size_t>(got));
            taken_ += got;
        }
        return text;
    }

  private:
    off_t taken_ = 0;
};
