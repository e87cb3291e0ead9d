// The default cache, loaded from a database of the test's own. The library counts as loaded while it lives.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "lib/harbrel/base/libraryState.h"
#include "lib/harbrel/database/database.h"
#include "tests/support/command.h"
#include "tests/support/fileSizeLimit.h"
#include "tests/support/tempFolder.h"

class OpenCache {
  public:
    // `records` follow the version line. Daemons are looked for in the folder: it is RUNDIR.
    explicit OpenCache(const std::string &records = "") {
        WriteFileText(Database(), "VERSION=1,0\nanswer RUNDIR " + Folder() + "\n" + records);
        EXPECT_TRUE(HBLNetCfgLoad(Database().c_str(), nullptr, false));
        HBLAddLoad();
    }
    ~OpenCache() {
        HBLDropLoad();
        HBLNetCfgUnload(nullptr, false);
    }
    OpenCache(OpenCache &&) = delete;

    const std::string &Folder() const { return folder_.Path(); }
    std::string Database() const { return folder_ / "networking"; }
    // What the body gives while the database can grow by so many bytes. It is made so large that the limit
    // reaches neither the log nor the files of the lock.
    template <typename Body>
    auto WithRoomFor(size_t bytes, Body body) const {
        for (int note = 0; std::filesystem::file_size(Database()) < 100000; note++) {
            EXPECT_TRUE(HBLNetCfgAddAnswerString(nullptr, ("NOTE" + std::to_string(note)).c_str(),
                                                 std::string(2000, '.').c_str()));
        }
        return OnFullDisk(std::filesystem::file_size(Database()) + bytes, body);
    }

  private:
    TempFolder folder_;
};
