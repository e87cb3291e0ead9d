#include "lib/misc/digest.h"

#include <gtest/gtest.h>

#include "lib/misc/random.h"

namespace {

std::string Hex(const uint8_t *bytes, size_t size) {
    std::string text;
    for (size_t i = 0; i < size; i++) {
        char pair[3];
        snprintf(pair, sizeof pair, "%02x", bytes[i]);
        text += pair;
    }
    return text;
}

}  // namespace

TEST(Sha1, MatchesThePublishedVectorsHoweverTheInputIsCut) {
    const struct {
        std::string input;
        const char *digest;
    } cases[] = {
        {"", "da39a3ee5e6b4b0d3255bfef95601890afd80709"},
        {"abc", "a9993e364706816aba3e25717850c26c9cd0d89d"},
        {"abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq",
         "84983e441c3bd26ebaae4aa1f95129e5e54670f1"},
        {std::string(1000000, 'a'), "34aa973cd4c4daa4f61eeb2bdbad27316534016f"},
    };
    for (const auto &c : cases) {
        for (const size_t piece : {size_t{1}, size_t{63}, c.input.size() + 1}) {
            Sha1 sha1;
            for (size_t i = 0; i < c.input.size(); i += piece) {
                sha1.Update(c.input.data() + i, std::min(piece, c.input.size() - i));
            }
            uint8_t digest[SHA1_DIGEST_BYTES];
            sha1.Final(digest);
            EXPECT_EQ(Hex(digest, sizeof digest), c.digest) << c.input.substr(0, 60) << " by " << piece;
        }
    }
}

TEST(Base64, EncodesAndDecodes) {
    const struct {
        std::string data;
        const char *text;
    } cases[] = {{"", ""},
                 {"f", "Zg=="},
                 {"fo", "Zm8="},
                 {"foo", "Zm9v"},
                 {"foobar", "Zm9vYmFy"},
                 {"\xFB\xFF\xFE", "+//+"},
                 {std::string(12, '\0'), "AAAAAAAAAAAAAAAA"}};
    for (const auto &c : cases) {
        EXPECT_EQ(Base64_Encode(c.data.data(), c.data.size()), c.text);
        std::vector<uint8_t> decoded{1, 2};
        EXPECT_TRUE(Base64_Decode(c.text, &decoded)) << c.text;
        EXPECT_EQ(std::string(decoded.begin(), decoded.end()), c.data);
    }
}

TEST(Base64, RefusesWhatIsNoBase64AndLeavesTheResultAlone) {
    for (const char *text : {"Zg", "Zg=", "Z", "Zm-v", "Zg==Zg==", "===="}) {
        std::vector<uint8_t> decoded{1, 2};
        EXPECT_FALSE(Base64_Decode(text, &decoded)) << text;
        EXPECT_EQ(decoded.size(), 2u) << text;
    }
}

TEST(RandomCrypto, FillsTheWholeBufferAndNoMore) {
    unsigned char buffer[70001] = {};
    ASSERT_TRUE(Random_Crypto(sizeof buffer - 1, buffer));
    EXPECT_EQ(buffer[sizeof buffer - 1], 0);
    size_t zeros = 0;
    for (size_t i = sizeof buffer - 2; i >= sizeof buffer - 65; i--) {
        zeros += buffer[i] == 0;
    }
    EXPECT_LT(zeros, 32u);
    EXPECT_TRUE(Random_Crypto(0, buffer));
}
