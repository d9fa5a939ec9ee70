#include "vireo/app/Session.h"

#include "app/middleware/Base64Text.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <optional>
#include <stdexcept>
#include <string>

namespace {

using vireo::SignedText;

const std::string FirstKey(32, 'a');
const std::string SecondKey(40, 'b');

TEST(SignedText, VerifiesWhatItHasSigned) {
    const SignedText texts({FirstKey});
    for (const std::string& text :
         {std::string(), std::string("a"), std::string("tea time\0x", 10), std::string(5000, 'x')}) {
        EXPECT_EQ(texts.verify(texts.sign(text)), text);
        EXPECT_EQ(texts.verify(texts.sign(text, "p"), "p"), text);
    }
}

TEST(SignedText, EachChangedCharacterIsFound) {
    const SignedText texts({FirstKey});
    const std::string text = texts.sign("user=ada", "session");
    for (std::size_t i = 0; i < text.size(); ++i) {
        for (const char c : {'A', 'B', 'z', '0', '-', '_', '=', ' '}) {
            std::string changed = text;
            changed[i] = c;
            EXPECT_EQ(texts.verify(changed, "session").has_value(), changed == text) << i << c;
        }
        EXPECT_EQ(texts.verify(text.substr(0, i), "session"), std::nullopt);
    }
    EXPECT_EQ(texts.verify(text + "A", "session"), std::nullopt);
}

TEST(SignedText, APurposeIsNotAnother) {
    const SignedText texts({FirstKey});
    const std::string text = texts.sign("ada", "session");
    EXPECT_EQ(texts.verify(text, "reset"), std::nullopt);
    EXPECT_EQ(texts.verify(text), std::nullopt);
    // Nor does the signature hold for the same bytes, divided otherwise.
    const std::string bytes = vireo::impl::decodeBase64Url(texts.sign("bc", "a")).value();
    EXPECT_EQ(texts.verify(vireo::impl::encodeBase64Url(bytes), "a"), "bc");
    EXPECT_EQ(texts.verify(vireo::impl::encodeBase64Url(bytes.substr(1)), "ab"), std::nullopt);
}

TEST(SignedText, FormerKeysStillVerify) {
    const std::string old = SignedText({FirstKey}).sign("ada");
    const SignedText rotated({SecondKey, FirstKey});
    EXPECT_EQ(rotated.verify(old), "ada");
    EXPECT_EQ(SignedText({SecondKey}).verify(rotated.sign("ada")), "ada");
    EXPECT_EQ(SignedText({FirstKey}).verify(rotated.sign("ada")), std::nullopt);
    EXPECT_EQ(SignedText({SecondKey}).verify(old), std::nullopt);
}

TEST(SignedText, ShortKeysAreRefused) {
    EXPECT_THROW(SignedText({}), std::invalid_argument);
    EXPECT_THROW(SignedText({std::string(31, 'a')}), std::invalid_argument);
    EXPECT_THROW(SignedText({FirstKey, "short"}), std::invalid_argument);
}

TEST(SignedText, NewKeysAreLongEnoughAndNeverTheSame) {
    const std::string key = vireo::newKey();
    EXPECT_EQ(key.size(), 43U);
    EXPECT_EQ(vireo::impl::decodeBase64Url(key).value_or("").size(), 32U);
    EXPECT_NE(vireo::newKey(), key);
    const SignedText texts({key});
    EXPECT_EQ(texts.verify(texts.sign("a")), "a");
}

TEST(SignedText, CopiesAreAsGood) {
    const SignedText texts({FirstKey});
    SignedText copy({SecondKey});
    copy = texts;
    EXPECT_EQ(copy.verify(texts.sign("ada")), "ada");
    EXPECT_EQ(SignedText(copy).verify(texts.sign("ada")), "ada");
}

} // namespace
