#include "app/middleware/Hmac.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <string_view>

namespace {

std::string hex(std::string_view bytes) {
    constexpr std::string_view Digits = "0123456789abcdef";
    std::string text;
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        text += Digits[byte >> 4U];
        text += Digits[byte & 15U];
    }
    return text;
}

std::string hmac(std::string_view key, std::string_view text) {
    return hex(vireo::impl::hmacSha256(key, text));
}

/// The cases of RFC 4231.
TEST(Hmac, IsThatOfItsTestVectors) {
    EXPECT_EQ(hmac(std::string(20, '\x0b'), "Hi There"),
              "b0344c61d8db38535ca8afceaf0bf12b881dc200c9833da726e9376c2e32cff7");
    EXPECT_EQ(hmac("Jefe", "what do ya want for nothing?"),
              "5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843");
    EXPECT_EQ(hmac(std::string(20, '\xaa'), std::string(50, '\xdd')),
              "773ea91e36800e46854db8ebd09181a72959098b3ef8c122d9635514ced565fe");
    std::string counted;
    for (char byte = 1; byte <= 25; ++byte) {
        counted += byte;
    }
    EXPECT_EQ(hmac(counted, std::string(50, '\xcd')),
              "82558a389a443c0ea4cc819899f2083a85f0faa3e578f8077a2e3ff46729665b");
    EXPECT_EQ(hmac(std::string(20, '\x0c'), "Test With Truncation").substr(0, 32), "a3b6167473100ee06e0c796c2955552b");
    EXPECT_EQ(hmac(std::string(131, '\xaa'), "Test Using Larger Than Block-Size Key - Hash Key First"),
              "60e431591ee0b67f0d8a26aacbf5b77f8e0bc6213728c5140546040f0ee37f54");
    EXPECT_EQ(hmac(std::string(131, '\xaa'),
                   "This is a test using a larger than block-size key and a larger than block-size data. The key needs "
                   "to be hashed before being used by the HMAC algorithm."),
              "9b09ffa71b942fcb27635fbcd5b0e944bfdc63644f0713938a7f51535c3a35e2");
}

TEST(Hmac, TakesEmptyTexts) {
    EXPECT_EQ(hmac(std::string(32, 'k'), "").size(), 2 * vireo::impl::HmacBytes);
    EXPECT_NE(hmac(std::string(32, 'k'), ""), hmac(std::string(32, 'l'), ""));
}

} // namespace
