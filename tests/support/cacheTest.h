// A cache loaded from a database of the test's own, with the library's log captured.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "lib/harbrel/database/database.h"
#include "tests/support/command.h"
#include "tests/support/logCapture.h"
#include "tests/support/tempFolder.h"

class CacheTest : public testing::Test {
  protected:
    ~CacheTest() override { Unload(); }

    // Replaces file and cache.
    bool Load(const std::string &text, bool isBackup = false) {
        Unload();
        WriteFileText(path, text);
        return HBLNetCfgLoad(path.c_str(), &db, isBackup);
    }
    void LoadRecords(const std::string &lines) { ASSERT_TRUE(Load(VERSION_LINE + lines)); }
    void Unload() {
        if (db != nullptr) {
            HBLNetCfgUnload(&db, false);
        }
    }
    // The records of the cache as a rewrite would leave them.
    std::string Records() const {
        const std::string copy = folder / "records";
        EXPECT_TRUE(NetCfgWriteDatabaseFile(db, copy.c_str(), false));
        return ReadFileText(copy).substr(VERSION_LINE.size());
    }
    static std::string Answer(HBLNetworkConfigurationDB *db, const char *key) {
        const char *value = nullptr;
        return HBLNetCfgGetAnswerString(db, key, &value) ? value : "(none)";
    }

    inline static const std::string VERSION_LINE = "VERSION=1,0\n";

    TempFolder folder;
    std::string path = folder / "networking";
    HBLNetworkConfigurationDB *db = nullptr;
    LogCapture log;
};
