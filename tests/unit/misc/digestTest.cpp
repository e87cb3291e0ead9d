// Digests and random numbers, against published values or such that were worked out apart.
#include "lib/misc/digest.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "lib/misc/hostinfo.h"
#include "lib/misc/random.h"
#include "lib/misc/tt800.h"

TEST(Tt800, ReachesThePublishedValueAfterTenThousandDraws) {
    Tt800 generator(0);
    for (int i = 1; i < 10000; i++) {
        generator.Next();
    }
    EXPECT_EQ(generator.Next(), 2856609219u);
}

TEST(Hostinfo, HashTakesBytesAsUnsigned) {
    EXPECT_EQ(Hostinfo_HashHostName("host"), 2090335843u);
    EXPECT_EQ(Hostinfo_HashHostName("\xC3\xA9"), 5866513u);
}

TEST(Sha1, MatchesThePublishedVectorWhenTheInputIsCut) {
    Sha1 sha1;
    sha1.Update("a", 1);
    sha1.Update("bc", 2);
    uint8_t digest[SHA1_DIGEST_BYTES];
    sha1.Final(digest);
    EXPECT_EQ(std::string(digest, std::end(digest)),
              "\xa9\x99\x3e\x36\x47\x06\x81\x6a\xba\x3e\x25\x71\x78\x50\xc2\x6c\x9c\xd0\xd8\x9d");
}

TEST(Base64, EncodesDecodesAndRefuses) {
    const std::pair<std::string, const char *> cases[] = {
        {"", ""}, {"f", "Zg=="}, {"fo", "Zm8="}, {"\xFB\xFF\xFE", "+//+"}};
    for (const auto &[data, text] : cases) {
        EXPECT_EQ(Base64_Encode(data.data(), data.size()), text);
        std::vector<uint8_t> decoded{1, 2};
        EXPECT_TRUE(Base64_Decode(text, &decoded)) << text;
        EXPECT_EQ(std::string(decoded.begin(), decoded.end()), data);
    }
    for (const char *text : {"Zg", "Zg=", "Z", "Zm-v", "Zg==Zg==", "===="}) {
        std::vector<uint8_t> decoded{1, 2};
        EXPECT_FALSE(Base64_Decode(text, &decoded)) << text;
        EXPECT_EQ(decoded.size(), 2u) << text;
    }
}

// Larger than what the source gives at once.
TEST(RandomCrypto, FillsTheWholeBufferAndNoMore) {
    unsigned char buffer[70001] = {};
    ASSERT_TRUE(Random_Crypto(sizeof buffer - 1, buffer));
    EXPECT_EQ(buffer[sizeof buffer - 1], 0);
    EXPECT_LT(std::count(std::end(buffer) - 65, std::end(buffer) - 1, 0), 32);
}
