#include "lib/misc/tt800.h"

#include <gtest/gtest.h>

// The value that other implementations publish for their checks of the untouched start table.
TEST(Tt800, ReachesThePublishedValueAfterTenThousandDraws) {
    Tt800 generator(0);
    for (int i = 1; i < 10000; i++) {
        generator.Next();
    }
    EXPECT_EQ(generator.Next(), 2856609219u);
}
