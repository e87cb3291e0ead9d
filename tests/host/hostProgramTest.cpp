// The shared library in a program that loads it by hand, uses it and lets it go.
#include <dlfcn.h>
#include <gmock/gmock.h>
#include <malloc.h>
#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

#include <new>

#include "tests/host/loadedLibrary.h"

namespace {

using testing::HasSubstr;
using testing::Not;

void HandlerOfTheProgram() {}

class HostProgram : public LibraryTest {
  protected:
    HostProgram() { std::set_new_handler(HandlerOfTheProgram); }
    ~HostProgram() override { std::set_new_handler(nullptr); }

    void Open() {
        const std::string path = HARBREL_BIN_DIR "/../lib/libharbrel.so";
        library_ = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
        ASSERT_NE(library_, nullptr) << dlerror();
        load_ = reinterpret_cast<bool (*)()>(dlsym(library_, "HBL_Load"));
        unload_ = reinterpret_cast<void (*)()>(dlsym(library_, "HBL_Unload"));
    }

#if defined(__SANITIZE_ADDRESS__)
    // What the library keeps once for a whole process counts as lost when its variables are gone.
    __lsan::ScopedDisabler keptForTheProcess_;
#endif
    void *library_ = nullptr;
    bool (*load_)() = nullptr;
    void (*unload_)() = nullptr;
};

}  // namespace

TEST_F(HostProgram, GetsItsNewHandlerBack) {
    Open();
    EXPECT_FALSE(load_()) << "no database";
    EXPECT_EQ(std::get_new_handler(), HandlerOfTheProgram);
    WriteDatabase("");
    ASSERT_TRUE(load_() && load_());
    unload_();
    EXPECT_NE(std::get_new_handler(), HandlerOfTheProgram) << "still loaded";
    unload_();
    unload_();  // one too many
    EXPECT_EQ(std::get_new_handler(), HandlerOfTheProgram);
    std::filesystem::remove("/var/log/harbrel");
    std::filesystem::create_directory("/var/log/harbrel");
    EXPECT_FALSE(load_()) << "no log";
    EXPECT_EQ(std::get_new_handler(), HandlerOfTheProgram);
    dlclose(library_);
    EXPECT_THAT(ReadFileText("/proc/self/maps"), Not(HasSubstr("libharbrel")));
}

// Without the host configuration each load has a warning to tell.
TEST_F(HostProgram, KeepsNoMemoryOfPastLoads) {
    WriteDatabase("answer A 1\n");
    Open();
    const auto usedAfter = [this](int loads) {
        for (int i = 0; i < loads; i++) {
            EXPECT_TRUE(load_());
            unload_();
        }
        return mallinfo2().uordblks;
    };
    const size_t used = usedAfter(5);
    EXPECT_EQ(used, usedAfter(50));
    dlclose(library_);
}
