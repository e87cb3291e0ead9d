// An empty configuration folder and log for tests that load the library by its fixed paths.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <string>

#include "lib/harbrel/base/hblLog.h"
#include "lib/harbrel/base/libraryState.h"
#include "lib/harbrel/harbrel.h"
#include "tests/support/command.h"

class LibraryTest : public testing::Test {
  protected:
    LibraryTest() {
        for (const auto &entry : std::filesystem::directory_iterator("/etc/orvane")) {
            std::filesystem::remove_all(entry);
        }
        std::filesystem::remove_all("/var/log/harbrel");
    }
    ~LibraryTest() override {
        while (HBLIsLoaded()) {
            HBL_Unload();
        }
        HBLLogClose();
    }

    static void WriteDatabase(const std::string &records) {
        WriteFileText("/etc/orvane/networking", "VERSION=1,0\n" + records);
    }
    static void LoadWith(const std::string &records) {
        WriteDatabase(records);
        ASSERT_TRUE(HBL_Load());
    }
    static std::string Database() { return ReadFileText("/etc/orvane/networking"); }
    // The library's log so far, what it still holds in its buffer included.
    static std::string Log(const std::string &path = "/var/log/harbrel") {
        if (HBLLogStream() != nullptr) {
            fflush(HBLLogStream());
        }
        return ReadFileText(path);
    }
    static std::string Answer(const char *key) {
        const char *value = nullptr;
        return HBL_VnetCfgGetAnswer(key, &value) ? value : "(none)";
    }
    // What stands in the configuration folder beside the database.
    static std::string OtherFiles() {
        std::string names;
        for (const auto &entry : std::filesystem::directory_iterator("/etc/orvane")) {
            if (entry.path().filename() != "networking") {
                names += entry.path().filename().string() + " ";
            }
        }
        return names;
    }
};
