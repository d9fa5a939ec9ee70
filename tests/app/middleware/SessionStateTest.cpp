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

namespace {

using vireo::SessionOptions;
using vireo::SetCookie;
using vireo::impl::RequestData;
using vireo::impl::SessionMaker;
using vireo::impl::SessionRules;
using vireo::impl::SessionState;
using vireo::impl::SessionText;

constexpr std::int64_t Now = 1000000;
constexpr std::int64_t Week = 604800;

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
          state(std::move(maker), data, cookie, isOverTls, now) {}

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
    const auto shorter = makerOf(SessionOptions(std::string(32, 'k')).maxAge(std::chrono::seconds(Week - 10)));
    EXPECT_TRUE(Asked(cookieWith("user", "ada"), Now + 9, shorter).state.isEmpty());
    EXPECT_FALSE(Asked(cookieWith("user", "ada"), Now + 10, shorter).state.isEmpty());
}

TEST(Session, WhatIsSignedForSomethingElseIsNone) {
    SessionText text;
    text.fields = {{"user", "ada"}};
    text.expires = Now + Week;
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
    // base64 of 32 bytes of signature, 8 of time, and lengths: what fits is about 2800.
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
    text.expires = 7;
    const std::string bytes = text.encode();
    ASSERT_TRUE(SessionText::decode(bytes).has_value());
    EXPECT_EQ(SessionText::decode(bytes)->fields, text.fields);
    EXPECT_EQ(SessionText::decode(bytes)->expires, 7);
    // Broken off anywhere but between two fields.
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        const bool isWhole = i == 8 || i == 8 + 2 + 1 + 2 + 1;
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
