// What tells this machine's members of a file lock from those of others.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <climits>

#include "lib/file/fileLockInternal.h"
#include "lib/misc/digest.h"
#include "lib/misc/hostinfo.h"
#include "tests/support/command.h"

TEST(MachineId, HoldsTheHostNamesHashAndTheFirstEthernetAddressInOrder) {
    ASSERT_TRUE(
        RunShell("ip link del eth0; ip link add eth2 address 02:66:77:88:99:aa type veth peer name peer2;"
                 "ip link add eth1 address 02:ff:fe:33:44:55 type veth peer name peer1")
            .Succeeded());
    char name[HOST_NAME_MAX + 1];
    ASSERT_EQ(gethostname(name, sizeof name), 0);
    const uint32_t hash = Hostinfo_HashHostName(name);
    std::array<uint8_t, 12> expected = {0, 0, 0, 0, 0x02, 0xff, 0xfe, 0x33, 0x44, 0x55, 0, 0};
    for (size_t i = 0; i < sizeof hash; i++) {
        expected[i] = static_cast<uint8_t>(hash >> (8 * i));
    }
    std::string text = Base64_Encode(expected.data(), expected.size());
    std::replace(text.begin(), text.end(), '/', '-');
    EXPECT_EQ(text, FileLockGetMachineID());
}
