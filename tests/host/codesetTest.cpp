// Which layer converts follows from the product's ICU data file.
#include "lib/unicode/codeset.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/support/command.h"

namespace {

// The layers differ in what they put for a character that the target lacks. The layer is chosen once, so each
// case needs a process of its own, which ends with that byte.
[[noreturn]] void ExitWithSubstitute(const char *preparation) {
    const bool prepared = RunShell(preparation).Succeeded();
    Unicode_Init(0, nullptr, nullptr);
    ByteBuffer out;
    const bool converted = CodeSet_Convert(STRING_ENCODING_UTF8, "\xE2\x82\xAC", 3, STRING_ENCODING_US_ASCII,
                                           CODESET_SUBSTITUTE, &out);
    _exit(prepared && converted && out.size == 1 ? *out.data : 0);
}

TEST(CodeSetLayerDeathTest, IsIcuOnlyWhenTheDataFileIsThere) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    constexpr int ICU_SUBSTITUTE = 0x1A;
    const std::pair<const char *, int> cases[] = {
        {"rm -rf /etc/orvane/icu", '?'},
        {"mkdir -p /etc/orvane/icu/icudt38l.dat", '?'},
        {"mkdir -p /etc/orvane/icu; cd /etc/orvane/icu; rm -rf icudt38l.dat; : > icudt38l.dat",
         ICU_SUBSTITUTE},
        {"mkdir -p /etc/orvane/icu; cd /etc/orvane/icu; rm -rf icudt38l.dat; ln -s gone icudt38l.dat", '?'},
    };
    for (const auto &[preparation, substitute] : cases) {
        EXPECT_EXIT(ExitWithSubstitute(preparation), testing::ExitedWithCode(substitute), "") << preparation;
    }
}

}  // namespace
