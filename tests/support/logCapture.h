// The library's log in a file of the test's own, for its lines to be compared.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <sstream>
#include <string>
#include <utility>

#include "lib/harbrel/base/hblLog.h"
#include "tests/support/command.h"

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
    LogCapture(LogCapture &&) = delete;

    // The lines since the last call.
    std::string Take() {
        fflush(HBLLogStream());
        const std::string all = ReadFileText("/proc/self/fd/" + std::to_string(fileno(HBLLogStream())));
        return all.substr(std::exchange(taken_, all.size()));
    }

    // Those of one function, without its name.
    std::string TakeFrom(const std::string &function) {
        std::istringstream all(Take());
        std::string own;
        for (std::string line; std::getline(all, line);) {
            own += line.starts_with(function + " - ") ? line.substr(function.size() + 3) + "\n" : "";
        }
        return own;
    }

  private:
    size_t taken_ = 0;
};
