// An open cache whose directories are the test's own, with shell scripts in the place of the programs.
#pragma once

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>

#include "lib/harbrel/cache/cache.h"
#include "tests/support/command.h"
#include "tests/support/logCapture.h"
#include "tests/support/openCache.h"

class FakePrograms : public OpenCache {
  public:
    FakePrograms() {
        for (const auto &[key, name] :
             {std::pair{"RUNDIR", "run"}, {"CONFIGDIR", "conf"}, {"BINDIR", "bin"}}) {
            std::filesystem::create_directory(Path(name));
            Answer(key, Path(name));
        }
    }

    std::string Path(const std::string &name) const { return Folder() + "/" + name; }
    void Answer(const std::string &key, const std::string &value) {
        EXPECT_TRUE(HBLNetCfgAddAnswerString(nullptr, key.c_str(), value.c_str()));
    }
    // The script's variable DIR is the test's directory.
    void Program(const std::string &name, const std::string &script) {
        const std::string path = Path("bin/" + name);
        WriteFileText(path, "#!/bin/sh\nDIR=" + Folder() + "\n" + script);
        EXPECT_EQ(0, chmod(path.c_str(), 0755));
    }
};

// Tests on such a cache that read the library's log.
class FakeProgramsTest : public testing::Test {
  protected:
    FakePrograms cache_;
    LogCapture log_;
};
