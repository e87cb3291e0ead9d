#include "lib/misc/tt800.h"

#include <gtest/gtest.h>

// The value that other implementations publish for their checks of the untouched start table.
TEST(Tt800, ReachesThePublishedValueAfterTenThousandDraws) {
    Tt800 generator(0);
    uint32_t last = 0;
    for (int i = 0; i < 10000; i++) {
        last = generator.Next();
    }
    EXPECT_EQ(last, 2856609219u);
}

TEST(Tt800, SeedGoesIntoEveryWordOfTheState) {
    Tt800 plain(0);
    Tt800 seeded(0x01000193);
    for (int i = 0; i < 25; i++) {
        EXPECT_NE(plain.Next(), seeded.Next()) << i;
    }
}
