#include "lib/misc/digest.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "lib/misc/random.h"

TEST(Sha1, MatchesThePublishedVectorHoweverTheInputIsCut) {
    const std::string input(1000000, 'a');
    const char expected[] =
        "\x34\xaa\x97\x3c\xd4\xc4\xda\xa4\xf6\x1e\xeb\x2b\xdb\xad\x27\x31\x65\x34\x01\x6f";
    for (const size_t piece : {size_t{1}, size_t{63}, input.size()}) {
        Sha1 sha1;
        for (size_t i = 0; i < input.size(); i += piece) {
            sha1.Update(input.data() + i, std::min(piece, input.size() - i));
        }
        uint8_t digest[SHA1_DIGEST_BYTES];
        sha1.Final(digest);
        EXPECT_EQ(std::string(digest, std::end(digest)), expected) << piece;
    }
}

TEST(Base64, EncodesDecodesAndRefuses) {
    const std::pair<std::string, const char *> cases[] = {
        {"", ""}, {"f", "Zg=="}, {"fo", "Zm8="}, {"foo", "Zm9v"}, {"\xFB\xFF\xFE", "+//+"}};
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
