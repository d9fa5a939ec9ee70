// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/app/Request.h"
#include "vireo/app/RequestKey.h"
#include "vireo/app/Session.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vireo::impl {

class SessionState;
struct RequestData;

/// Where a request has its session.
struct SessionPlace {
    std::unique_ptr<SessionState> state;
};

struct SessionRules {
    static constexpr std::chrono::seconds UsualLifetime{2592000};

    static const SessionRules& of(const SessionOptions& options) { return *options.rules_; }

    /// Until when a session lasts that began and was given out then; all in seconds since 1970.
    std::int64_t endOf(std::int64_t begun, std::int64_t issued) const {
        return (std::min)(issued + maxAge.count(),
                          begun + lifetime.value_or((std::max)(UsualLifetime, maxAge)).count());
    }

    std::vector<std::string> keys;
    std::string cookie = "session";
    std::chrono::seconds maxAge{604800};
    std::optional<std::chrono::seconds> lifetime;
    SetCookie::SameSite sameSite = SetCookie::SameSite::Lax;
    bool isSecure = false;
};

/// What makes sessions of rules. Constant; any thread.
struct SessionMaker {
    explicit SessionMaker(const SessionRules& sessionRules)
        : rules(sessionRules), purpose("cookie " + sessionRules.cookie), signedText(sessionRules.keys) {}

    const SessionRules rules;
    /// What cookies are signed for: nothing that an application signs with the same key is a session.
    const std::string purpose;
    const SignedText signedText;
    const RequestKey<SessionPlace> key;
};

/// A session's texts, since when it is there and when its cookie was given out.
struct SessionText {
    using Fields = std::map<std::string, std::string, std::less<>>;

    /// The bytes that are signed; see decode().
    std::string encode() const;
    /// @return none for what encode() would not write.
    static std::optional<SessionText> decode(std::string_view bytes);

    Fields fields;
    // In seconds since 1970.
    std::int64_t begun = 0;
    std::int64_t issued = 0;
};

/// The session of one request. The handler's thread, then that of its hook.
class SessionState {
public:
    /// The longest cookie.
    static constexpr std::size_t MaxCookieBytes = 3800;

    /// @param cookies what came. Of several with the session's name the first that is right counts: another host of the
    /// domain can set one that comes before it.
    /// @param isOverTls whether the cookie goes out over TLS.
    /// @param now in seconds since 1970.
    SessionState(std::shared_ptr<const SessionMaker> maker, const RequestData& request,
                 const std::vector<Cookie>& cookies, bool isOverTls, std::int64_t now);

    Session& session() {
        isUsed_ = true;
        return session_;
    }
    /// Whether somebody asked for the session: then the answer may be another one for another cookie.
    bool isUsed() const { return isUsed_; }

    const std::string& get(std::string_view name) const;
    void set(std::string_view name, std::string_view value);
    void erase(std::string_view name);
    void clear();
    bool isEmpty() const { return text_.fields.empty(); }

    /// The cookie to send, if any: the session changes no more.
    std::optional<SetCookie> close(std::int64_t now);

private:
    /// The session in a cookie; none when it is not right or over.
    std::optional<SessionText> read(std::string_view cookie) const;
    /// @throws std::logic_error when a change would be lost.
    void requireOpen() const;

    const std::shared_ptr<const SessionMaker> maker_;
    const RequestData& request_;
    const bool isOverTls_;
    /// When the request came, in seconds since 1970.
    const std::int64_t now_;
    bool hadCookie_ = false;
    const std::string empty_;
    SessionText text_;
    bool isChanged_ = false;
    bool isClosed_ = false;
    /// Others may ask while a Later is answered.
    std::atomic<bool> isUsed_{false};
    Session session_;
};

} // namespace vireo::impl
