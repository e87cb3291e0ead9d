// An empty folder of the test's own, removed with everything in it.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

class TempFolder {
  public:
    TempFolder() {
        char path[] = "/tmp/folder.XXXXXX";
        EXPECT_NE(nullptr, mkdtemp(path));
        path_ = path;
    }
    ~TempFolder() { std::filesystem::remove_all(path_); }
    TempFolder(TempFolder &&) = delete;

    const std::string &Path() const { return path_; }
    std::string operator/(const std::string &name) const { return path_ + "/" + name; }

  private:
    std::string path_;
};
