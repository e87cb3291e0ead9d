#include "lib/misc/hostinfo.h"

#include <gtest/gtest.h>

TEST(Hostinfo, HashTakesBytesAsUnsigned) {
    EXPECT_EQ(Hostinfo_HashHostName("host"), 2090335843u);
    EXPECT_EQ(Hostinfo_HashHostName("\xC3\xA9"), 5866513u);
}
