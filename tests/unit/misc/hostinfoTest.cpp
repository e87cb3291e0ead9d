#include "lib/misc/hostinfo.h"

#include <gtest/gtest.h>
#include <unistd.h>

TEST(Hostinfo, HashTakesBytesAsUnsigned) {
    EXPECT_EQ(Hostinfo_HashHostName("host"), 2090335843u);
    EXPECT_EQ(Hostinfo_HashHostName("\xC3\xA9"), 5866513u);
}

TEST(Hostinfo, MachineIDKnowsTheHostNameAndAnAddressOfSixBytes) {
    char hostName[256];
    ASSERT_EQ(gethostname(hostName, sizeof hostName), 0);
    uint32_t hash = 0;
    uint64_t hardware = ~uint64_t{0};
    Hostinfo_MachineID(&hash, &hardware);
    EXPECT_EQ(hash, Hostinfo_HashHostName(hostName));
    EXPECT_EQ(hardware >> 48, 0u);
}
