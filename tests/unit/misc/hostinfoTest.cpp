#include "lib/misc/hostinfo.h"

#include <gtest/gtest.h>
#include <unistd.h>

TEST(Hostinfo, HashTakesBytesAsUnsigned) {
    const struct {
        const char *name;
        uint32_t hash;
    } cases[] = {{"", 5381u}, {"a", 177670u}, {"host", 2090335843u}, {"\xC3\xA9", 5866513u}};
    for (const auto &c : cases) {
        EXPECT_EQ(Hostinfo_HashHostName(c.name), c.hash) << c.name;
    }
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
