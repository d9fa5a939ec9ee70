// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/app/Handler.h"
#include "vireo/app/Response.h"
#include "vireo/app/export.h"

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vireo {

namespace impl {
struct SessionMaker;
struct SessionRules;
class SessionState;
} // namespace impl

/// A new key for SignedText and SessionOptions, of 32 random bytes as 43 letters, digits, "-" and "_". Make it once,
/// keep it where only the program can read it, and give the same one to each run: with another one what was signed
/// before counts no more, and everybody has to log in again. `openssl rand -base64 32` makes one as well. Any thread.
VIREO_APP_API std::string newKey();

/// Signs texts that clients keep, and so tells on their return whether they are as they were given out (HMAC-SHA256).
/// They can be read by whoever has them. Any thread.
class VIREO_APP_API SignedText {
public:
    /// @param keys secret, of 32 bytes at least: the first one signs, all verify, so that keys can be changed.
    /// @throws std::invalid_argument for none and for a shorter one.
    explicit SignedText(std::vector<std::string> keys);
    SignedText(const SignedText& other);            ///< copies
    SignedText& operator=(const SignedText& other); ///< copies
    ~SignedText();

    /// The text with its signature, of letters, digits, "-" and "_".
    /// @param purpose what it is for: it verifies for nothing else.
    std::string sign(std::string_view text, std::string_view purpose = {}) const;
    /// @return the text that was signed; none for anything else.
    std::optional<std::string> verify(std::string_view signedText, std::string_view purpose = {}) const;

private:
    std::unique_ptr<const std::vector<std::string>> keys_;
};

/// How Sessions keeps them. What cannot be throws std::invalid_argument.
class VIREO_APP_API SessionOptions {
public:
    /// @param key secret, of 32 bytes at least, the same for all programs and runs that are to understand a session;
    ///        see newKey().
    explicit SessionOptions(std::string key);
    SessionOptions(const SessionOptions& other);            ///< copies
    SessionOptions& operator=(const SessionOptions& other); ///< copies
    ~SessionOptions();

    /// Adds a former key: what it has signed still counts.
    SessionOptions& formerKey(std::string key);
    /// The cookie's name; "session" by default. With the prefix "__Host-", as in "__Host-session", no other host of the
    /// domain can set one for this, and it is sent over TLS alone.
    SessionOptions& cookie(std::string name);
    /// How long a session lasts when nobody comes back, 100 years at most; 7 days by default. Also holds for those that
    /// were given out before it was changed.
    SessionOptions& maxAge(std::chrono::seconds age);
    /// How long a session lasts at most from its beginning, however often somebody comes back; 100 years at most. By
    /// default 30 days, or maxAge() where that is longer. Also holds for those that began before it was changed.
    SessionOptions& lifetime(std::chrono::seconds time);
    /// SameSite::Lax by default.
    SessionOptions& sameSite(SetCookie::SameSite sameSite);
    /// Whether the cookie comes back over TLS alone. By default when it is given out over TLS.
    SessionOptions& secure(bool on = true);

private:
    friend struct impl::SessionRules;

    std::unique_ptr<impl::SessionRules> rules_;
};

/// Named texts that a client keeps in a cookie, which it can read but not change. Lives as long as the request. The
/// handler's thread.
///
/// What changes it throws std::logic_error once the head has gone, and after Response::later(): nobody would see it.
class Session {
public:
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    /// Empty when it is missing. Valid until the session is changed.
    VIREO_APP_API const std::string& get(std::string_view name) const;
    /// Throws std::length_error, and changes nothing, when the cookie would be longer than 3800 bytes: keep in it who
    /// the client is, and the rest with you.
    VIREO_APP_API void set(std::string_view name, std::string_view value);
    VIREO_APP_API void erase(std::string_view name); ///< nothing when it is missing
    /// Ends it: what is set afterwards is in a new one.
    VIREO_APP_API void clear();
    VIREO_APP_API bool isEmpty() const; ///< whether it has no values

private:
    friend class impl::SessionState;

    explicit Session(impl::SessionState& state) : state_(state) {}

    impl::SessionState& state_;
};

/// Sessions in signed cookies:
///
///     const vireo::Sessions sessions(vireo::SessionOptions(key));
///     app.use(sessions.middleware());
///     app.post("/login", [sessions](vireo::Request& request, vireo::Response& response) {
///         sessions.of(request).clear(); // whatever somebody else may have left there
///         sessions.of(request).set("user", "ada");
///         response.redirect("/");
///     });
///
/// A cookie that was changed or is too old counts as none. A new one goes out when a session has changed, and when half
/// of its time is over; such an answer is kept by no shared cache, also where the handler said "public". Nobody can
/// take a session back before it is too old: keep what must end at once with you. Copies are one.
///
/// How old it is, the system's clock says: put forward it makes sessions end earlier, put back later by so much, but by
/// no more than maxAge(); those that were given out still later than that count as none.
class VIREO_APP_API Sessions {
public:
    explicit Sessions(const SessionOptions& options); ///< copies the options
    Sessions(const Sessions& other);                  ///< the same ones
    Sessions& operator=(const Sessions& other);       ///< the same ones
    ~Sessions();

    /// Reads and writes the cookie around handlers.
    Middleware middleware() const;
    /// The request's session. Throws std::logic_error where the middleware is not in the chain.
    Session& of(Request& request) const;

private:
    std::shared_ptr<const impl::SessionMaker> maker_;
};

} // namespace vireo
