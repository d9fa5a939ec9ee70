#include "app/middleware/SessionState.h"

#include "app/kernel/Throw.h"
#include "app/request/RequestData.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace {

using vireo::SessionOptions;
using vireo::SetCookie;
using vireo::impl::RequestData;
using vireo::impl::SessionMaker;
using vireo::impl::SessionRules;
using vireo::impl::SessionState;
using vireo::impl::SessionText;

constexpr std::int64_t Now = 1000000;
constexpr std::int64_t Day = 86400;
constexpr std::int64_t Week = 7 * Day;

class HeadAlone : public vireo::impl::RequestSource {
public:
    vireo::impl::RequestBody& body() override { vireo::impl::throwLogicError("no body"); }
    bool isGone() const override { return false; }
    const ql::HttpBaseRequest& core() const override { vireo::impl::throwLogicError("no core"); }
};

std::shared_ptr<const SessionMaker> makerOf(const SessionOptions& options) {
    return std::make_shared<const SessionMaker>(SessionRules::of(options));
}

std::shared_ptr<const SessionMaker> usualMaker() {
    return makerOf(SessionOptions(std::string(32, 'k')));
}

/// The session of a request with this cookie.
struct Asked {
    explicit Asked(std::string_view cookie = {}, std::int64_t now = Now,
                   std::shared_ptr<const SessionMaker> maker = usualMaker(), bool isOverTls = false)
        : data(source, 0, "GET", "/", std::span<const ql::HeaderLine>(), ql::IpAddress(), nullptr, nullptr),
          state(std::move(maker), data, {{"others", "x"}, {"session", std::string(cookie)}}, isOverTls, now) {}
    /// With several.
    explicit Asked(const std::vector<vireo::Cookie>& cookies)
        : data(source, 0, "GET", "/", std::span<const ql::HeaderLine>(), ql::IpAddress(), nullptr, nullptr),
          state(usualMaker(), data, cookies, false, Now) {}

    HeadAlone source;
    RequestData data;
    SessionState state;
};

/// What is between the name and the attributes.
std::string valueOf(const std::optional<SetCookie>& cookie) {
    if (!cookie) {
        return "(none)";
    }
    const std::string text = cookie->getValueAndAttributes();
    return text.substr(0, text.find(';'));
}

std::string attributesOf(const std::optional<SetCookie>& cookie) {
    const std::string text = cookie ? cookie->getValueAndAttributes() : "";
    return text.substr(std::min(text.find(';'), text.size()));
}

/// The cookie of a session with one text.
std::string cookieWith(std::string_view name, std::string_view value, std::int64_t now = Now) {
    Asked asked("", now);
    asked.state.set(name, value);
    return valueOf(asked.state.close(now));
}

TEST(Session, ComesBackAsItWentOut) {
    Asked first;
    EXPECT_TRUE(first.state.isEmpty());
    first.state.set("user", "ada");
    first.state.set("bytes", std::string_view("\0;\xFF", 3));
    first.state.set("", "");
    Asked second(valueOf(first.state.close(Now)), Now + 1);
    EXPECT_EQ(second.state.get("user"), "ada");
    EXPECT_EQ(second.state.get("bytes"), std::string_view("\0;\xFF", 3));
    EXPECT_EQ(second.state.get("none"), "");
    EXPECT_FALSE(second.state.isEmpty());
}

TEST(Session, OneThatWasChangedByOthersIsEmpty) {
    const std::string cookie = cookieWith("user", "ada");
    for (std::size_t i = 0; i < cookie.size(); ++i) {
        std::string changed = cookie;
        changed[i] = changed[i] == 'A' ? 'B' : 'A';
        EXPECT_TRUE(Asked(changed).state.isEmpty()) << i;
    }
    const auto other = makerOf(SessionOptions(std::string(32, 'k')).cookie("other"));
    EXPECT_TRUE(Asked(cookie, Now, other).state.isEmpty());
}

TEST(Session, AnOldOneIsEmpty) {
    const std::string cookie = cookieWith("user", "ada");
    EXPECT_FALSE(Asked(cookie, Now + Week - 1).state.isEmpty());
    EXPECT_TRUE(Asked(cookie, Now + Week).state.isEmpty());
}

TEST(Session, OneThatWasToLastLongerIsEmpty) {
    const auto shorter = makerOf(SessionOptions(std::string(32, 'k')).maxAge(std::chrono::seconds(10)));
    EXPECT_FALSE(Asked(cookieWith("user", "ada"), Now + 9, shorter).state.isEmpty());
    EXPECT_TRUE(Asked(cookieWith("user", "ada"), Now + 10, shorter).state.isEmpty());
    EXPECT_TRUE(Asked(cookieWith("user", "ada"), Now + Week - 1, shorter).state.isEmpty());
}

TEST(Session, OneThatIsOfALaterTimeLastsUnlessThatIsFarOff) {
    const std::string cookie = cookieWith("user", "ada");
    for (const std::int64_t earlier : {std::int64_t{1}, Day, Week}) {
        Asked asked(cookie, Now - earlier);
        EXPECT_EQ(asked.state.get("user"), "ada") << earlier;
        EXPECT_EQ(valueOf(asked.state.close(Now - earlier)), "(none)") << "there is time enough";
    }
    EXPECT_TRUE(Asked(cookie, Now - Week - 1).state.isEmpty());
}

TEST(Session, OneThatChangesBeforeItsTimeLastsFromThenOn) {
    Asked earlier(cookieWith("user", "ada"), Now - Day);
    earlier.state.set("user", "grace");
    const std::optional<SetCookie> changed = earlier.state.close(Now - Day);
    EXPECT_NE(attributesOf(changed).find("; Max-Age=604800;"), std::string::npos) << attributesOf(changed);
    EXPECT_FALSE(Asked(valueOf(changed), Now - Day + Week - 1).state.isEmpty());
    EXPECT_TRUE(Asked(valueOf(changed), Now - Day + Week).state.isEmpty());
}

TEST(Session, OneThatEndsBeforeItsAnswerTakesItsCookieAway) {
    const auto shorter = makerOf(SessionOptions(std::string(32, 'k')).lifetime(std::chrono::seconds(100)));
    Asked asked(cookieWith("user", "ada"), Now + 99, shorter);
    asked.state.set("user", "grace");
    const std::optional<SetCookie> late = asked.state.close(Now + Day);
    EXPECT_NE(attributesOf(late).find("; Max-Age=0;"), std::string::npos) << attributesOf(late);
    EXPECT_TRUE(Asked(valueOf(late), Now + Day, shorter).state.isEmpty());
}

/// Comes back each day from `Now` on and keeps what it is given.
/// @return after how many days the session is over.
int daysOf(const SessionOptions& options) {
    const auto maker = makerOf(options);
    Asked first("", Now, maker);
    first.state.set("user", "ada");
    std::string cookie = valueOf(first.state.close(Now));
    for (int day = 1; day < 1000; ++day) {
        const std::int64_t now = Now + day * Day;
        Asked asked(cookie, now, maker);
        if (asked.state.isEmpty()) {
            return day;
        }
        if (const std::optional<SetCookie> renewed = asked.state.close(now)) {
            cookie = valueOf(renewed);
        }
    }
    return 0;
}

TEST(Session, EndsHoweverOftenItComesBack) {
    using std::chrono::hours;
    const SessionOptions options(std::string(32, 'k'));
    EXPECT_EQ(daysOf(options), 30);
    EXPECT_EQ(daysOf(SessionOptions(options).lifetime(hours(24 * 10))), 10);
    EXPECT_EQ(daysOf(SessionOptions(options).lifetime(hours(24 * 3))), 3);
    EXPECT_EQ(daysOf(SessionOptions(options).maxAge(hours(24 * 100))), 100);
    EXPECT_EQ(daysOf(SessionOptions(options).maxAge(hours(24 * 100)).lifetime(hours(24 * 40))), 40);
}

TEST(Session, ItsCookieLastsNoLongerThanIt) {
    const auto maker = makerOf(SessionOptions(std::string(32, 'k')).lifetime(std::chrono::seconds(Week + 10)));
    const std::string cookie = cookieWith("user", "ada");
    const std::int64_t late = Now + Week / 2 + 1;
    const std::optional<SetCookie> renewed = Asked(cookie, late, maker).state.close(late);
    const std::string rest = "; Max-Age=" + std::to_string(Now + Week + 10 - late) + ";";
    EXPECT_NE(attributesOf(renewed).find(rest), std::string::npos) << attributesOf(renewed);
    const std::int64_t later = Now + Week - 10;
    // Which cannot be made longer: it goes out no more, until something changes.
    EXPECT_EQ(valueOf(Asked(valueOf(renewed), later, maker).state.close(later)), "(none)");
    Asked changed(valueOf(renewed), later, maker);
    changed.state.set("user", "grace");
    const std::string last = valueOf(changed.state.close(later));
    EXPECT_FALSE(Asked(last, Now + Week + 9, maker).state.isEmpty());
    EXPECT_TRUE(Asked(last, Now + Week + 10, maker).state.isEmpty());
}

TEST(Session, OneThatBeganBeforeAShorterLifetimeIsEmpty) {
    const auto shorter = makerOf(SessionOptions(std::string(32, 'k')).lifetime(std::chrono::seconds(100)));
    EXPECT_FALSE(Asked(cookieWith("user", "ada"), Now + 99, shorter).state.isEmpty());
    EXPECT_TRUE(Asked(cookieWith("user", "ada"), Now + 100, shorter).state.isEmpty());
}

TEST(Session, WhatIsSetBehindAnEndBeginsAnew) {
    const auto maker = makerOf(SessionOptions(std::string(32, 'k')).lifetime(std::chrono::seconds(100)));
    Asked login(cookieWith("user", "ada"), Now + 90, maker);
    login.state.clear();
    login.state.set("user", "grace");
    const std::string cookie = valueOf(login.state.close(Now + 90));
    EXPECT_EQ(Asked(cookie, Now + 189, maker).state.get("user"), "grace");
    EXPECT_TRUE(Asked(cookie, Now + 190, maker).state.isEmpty());
}

TEST(Session, OneThatIsNotRightHidesNone) {
    const std::string cookie = cookieWith("user", "ada");
    const std::string foreign = "x" + cookie;
    EXPECT_EQ(Asked({{"session", foreign}, {"session", cookie}}).state.get("user"), "ada");
    EXPECT_EQ(Asked({{"session", ""}, {"session", foreign}, {"session", cookie}}).state.get("user"), "ada");
    EXPECT_EQ(Asked({{"session", cookie}, {"session", cookieWith("user", "grace")}}).state.get("user"), "ada");
    EXPECT_TRUE(Asked({{"session", foreign}, {"Session", cookie}}).state.isEmpty());
    // The one that is not right is taken away as well, where it is this host's.
    Asked ended({{"session", foreign}, {"session", cookie}});
    ended.state.clear();
    EXPECT_NE(attributesOf(ended.state.close(Now)).find("Max-Age=0"), std::string::npos);
}

TEST(Session, WhatIsSignedForSomethingElseIsNone) {
    SessionText text;
    text.fields = {{"user", "ada"}};
    text.begun = Now;
    text.issued = Now;
    const vireo::SignedText others({std::string(32, 'k')});
    EXPECT_FALSE(Asked(others.sign(text.encode(), "cookie session")).state.isEmpty());
    for (const char* const purpose : {"", "session"}) {
        EXPECT_TRUE(Asked(others.sign(text.encode(), purpose)).state.isEmpty()) << purpose;
    }
}

TEST(Session, GoesOutWhenItHasChanged) {
    EXPECT_EQ(valueOf(Asked().state.close(Now)), "(none)");
    const std::string cookie = cookieWith("user", "ada");
    EXPECT_EQ(valueOf(Asked(cookie).state.close(Now + 1)), "(none)");
    Asked changed(cookie);
    changed.state.set("user", "grace");
    EXPECT_EQ(Asked(valueOf(changed.state.close(Now))).state.get("user"), "grace");
    Asked erased(cookie);
    erased.state.erase("nobody");
    EXPECT_EQ(valueOf(erased.state.close(Now)), "(none)");
}

TEST(Session, GoesOutWhenHalfOfItsTimeIsOver) {
    const std::string cookie = cookieWith("user", "ada");
    EXPECT_EQ(valueOf(Asked(cookie, Now + Week / 2).state.close(Now + Week / 2)), "(none)");
    const std::string later = valueOf(Asked(cookie, Now + Week / 2 + 1).state.close(Now + Week / 2 + 1));
    EXPECT_NE(later, "(none)");
    EXPECT_FALSE(Asked(later, Now + Week + Week / 3).state.isEmpty());
}

TEST(Session, AnEndedOneTakesItsCookieAway) {
    for (const bool isCleared : {true, false}) {
        Asked asked(cookieWith("user", "ada"));
        if (isCleared) {
            asked.state.clear();
        } else {
            asked.state.erase("user");
        }
        const std::optional<SetCookie> cookie = asked.state.close(Now);
        EXPECT_EQ(valueOf(cookie), "");
        EXPECT_NE(attributesOf(cookie).find("Max-Age=0"), std::string::npos) << attributesOf(cookie);
    }
    // There was none to take away.
    Asked none;
    none.state.set("a", "b");
    none.state.clear();
    EXPECT_EQ(valueOf(none.state.close(Now)), "(none)");
}

TEST(Session, ItsCookieIsForNoScriptsAndSecureOverTls) {
    const auto attributes = [](const SessionOptions& options, bool isOverTls) {
        Asked asked("", Now, makerOf(options), isOverTls);
        asked.state.set("user", "ada");
        return attributesOf(asked.state.close(Now));
    };
    const SessionOptions options(std::string(32, 'k'));
    EXPECT_EQ(attributes(options, false).find("Secure"), std::string::npos);
    for (const char* const attribute : {"; Path=/", "; HttpOnly", "; SameSite=Lax", "; Max-Age=604800", "; Secure"}) {
        EXPECT_NE(attributes(options, true).find(attribute), std::string::npos) << attribute;
    }
    const SessionOptions strict =
        SessionOptions(options).sameSite(SetCookie::SameSite::Strict).maxAge(std::chrono::seconds(60)).secure();
    for (const char* const attribute : {"; SameSite=Strict", "; Max-Age=60", "; Secure"}) {
        EXPECT_NE(attributes(strict, false).find(attribute), std::string::npos) << attribute;
    }
}

TEST(Session, ATooLongOneIsRefusedAndStaysAsItWas) {
    Asked asked;
    asked.state.set("user", "ada");
    // base64 of 32 bytes of signature, 16 of times, and lengths: what fits is about 2800.
    asked.state.set("text", std::string(2700, 'x'));
    EXPECT_THROW(asked.state.set("text", std::string(2900, 'y')), std::length_error);
    EXPECT_THROW(asked.state.set("other", std::string(70000, 'y')), std::length_error);
    EXPECT_THROW(asked.state.set(std::string(70000, 'y'), ""), std::length_error);
    EXPECT_EQ(asked.state.get("text"), std::string(2700, 'x'));
    EXPECT_EQ(asked.state.get("other"), "");
    EXPECT_LE(valueOf(asked.state.close(Now)).size(), SessionState::MaxCookieBytes);
}

TEST(Session, IsFrozenByALater) {
    Asked asked(cookieWith("user", "ada"));
    asked.data.isDeferred = true;
    for (const auto& change :
         {+[](SessionState& state) { state.set("user", "grace"); }, +[](SessionState& state) { state.erase("user"); },
          +[](SessionState& state) { state.clear(); }}) {
        try {
            change(asked.state);
            FAIL() << "not refused";
        } catch (const std::logic_error& error) {
            EXPECT_NE(std::string(error.what()).find("Later"), std::string::npos) << error.what();
        }
    }
    EXPECT_EQ(asked.state.get("user"), "ada");
}

TEST(Session, ChangesNoMoreOnceTheHeadHasGone) {
    Asked asked;
    asked.state.close(Now);
    EXPECT_THROW(asked.state.set("user", "ada"), std::logic_error);
    EXPECT_TRUE(asked.state.isEmpty());
}

TEST(Session, TextsOfOthersAreNone) {
    SessionText text;
    text.fields = {{"a", "1"}, {"b", ""}};
    text.begun = 5;
    text.issued = 7;
    const std::string bytes = text.encode();
    ASSERT_TRUE(SessionText::decode(bytes).has_value());
    EXPECT_EQ(SessionText::decode(bytes)->fields, text.fields);
    EXPECT_EQ(SessionText::decode(bytes)->begun, 5);
    EXPECT_EQ(SessionText::decode(bytes)->issued, 7);
    // Broken off anywhere but between two fields.
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        const bool isWhole = i == 16 || i == 16 + 2 + 1 + 2 + 1;
        EXPECT_EQ(SessionText::decode(std::string_view(bytes).substr(0, i)).has_value(), isWhole) << i;
    }
}

TEST(Session, OptionsAreChecked) {
    EXPECT_THROW(SessionOptions("short"), std::invalid_argument);
    SessionOptions options(std::string(32, 'k'));
    EXPECT_THROW(options.formerKey("short"), std::invalid_argument);
    EXPECT_THROW(options.cookie("no token"), std::invalid_argument);
    EXPECT_THROW(options.maxAge(std::chrono::seconds(0)), std::invalid_argument);
    EXPECT_THROW(options.maxAge((std::chrono::seconds::max)()), std::invalid_argument);
    EXPECT_NO_THROW(options.maxAge(std::chrono::hours(876600)));
    EXPECT_THROW(options.lifetime(std::chrono::seconds(0)), std::invalid_argument);
    EXPECT_THROW(options.lifetime((std::chrono::seconds::max)()), std::invalid_argument);
    EXPECT_NO_THROW(options.lifetime(std::chrono::hours(876600)));
}

TEST(Session, FormerKeysStillCount) {
    const std::string cookie = cookieWith("user", "ada");
    const auto rotated = makerOf(SessionOptions(std::string(32, 'n')).formerKey(std::string(32, 'k')));
    Asked asked(cookie, Now, rotated);
    EXPECT_EQ(asked.state.get("user"), "ada");
    asked.state.set("more", "1");
    EXPECT_TRUE(Asked(valueOf(asked.state.close(Now))).state.isEmpty());
}

} // namespace
