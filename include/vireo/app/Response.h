// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/SetCookie.h"
#include "vireo/app/Handler.h"
#include "vireo/app/Later.h"
#include "vireo/app/Output.h"
#include "vireo/app/export.h"

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

namespace vireo {

class EventChannel;

/// A cookie with its attributes, for Response::cookie().
using SetCookie = ql::http::SetCookie;

/// The JSON text of values of a type: `static std::string of(const Value&)`. The header vireo/app/Json.h has it for all
/// that its library converts; specialise it for types of your own.
template <class Value>
struct JsonText;

namespace impl {
struct JsonList;
struct ResponseAccess;
struct ResponseState;

template <class Value>
concept HasJsonText = requires(const Value& value) {
    std::string(JsonText<Value>::of(value));
};

template <class Value>
concept IsNumber = std::is_integral_v<Value> && !std::is_same_v<Value, bool> && !std::is_same_v<Value, char>;
} // namespace impl

/// What a request is answered with. Handlers, middlewares and hooks set it; it is sent once all of them have returned,
/// and there is nothing to end or to release. Only while the function that got it runs, on its thread.
///
/// Once the head has gone, by stream() or events(), and once the answer is left to a Later, what would change it throws
/// std::logic_error.
class Response {
public:
    Response(const Response&) = delete;
    Response& operator=(const Response&) = delete;

    // ---- The head ----

    /// 200 by default. Alone it is no answer: see empty(). Throws std::invalid_argument for less than 200 and for more
    /// than 599.
    VIREO_APP_API Response& status(int status);
    /// Sets a header, in place of all of that name. Throws std::invalid_argument for what is no field of HTTP, and for
    /// Content-Length and Transfer-Encoding, which the library sets.
    VIREO_APP_API Response& header(std::string_view name, std::string_view value);
    /// A number, in decimal.
    template <impl::IsNumber Number>
    Response& header(std::string_view name, Number value) {
        return header(name, std::string_view(std::to_string(value)));
    }
    /// Adds a line of a header. Throws as header() does, and for a second line of what an answer has once, such as
    /// ETag.
    VIREO_APP_API Response& addHeader(std::string_view name, std::string_view value);
    /// Takes all of that name away.
    VIREO_APP_API Response& removeHeader(std::string_view name);
    /// Sets a cookie, in place of one of the same name that was set before. Without SetCookie::setPath("/") browsers
    /// bring it back only below the directory of this request's path.
    VIREO_APP_API Response& cookie(const SetCookie& cookie);
    /// A cookie for all paths, which lasts until the browser is closed; scripts of the page can read it. Throws
    /// std::invalid_argument for what may not stand there, as a value with blanks or semicolons.
    VIREO_APP_API Response& cookie(std::string name, std::string value);
    /// Sets Content-Type.
    VIREO_APP_API Response& type(std::string_view mime);

    // ---- The body: of several the last counts ----

    // They return nothing, so that they end a chain, `response.status(201).text("made")`, and a handler:
    // `return response.error(403);`.

    /// As "text/plain; charset=utf-8", unless a type was set.
    VIREO_APP_API void text(std::string text);
    /// As "text/html; charset=utf-8", unless a type was set.
    VIREO_APP_API void html(std::string text);
    /// Any bytes.
    VIREO_APP_API void bytes(std::string bytes, std::string_view mime);
    /// A value as JSON, for which vireo/app/Json.h is to be included: `json({{"id", 1}})`, `json(std::vector{1, 2})`.
    /// No text: one that is JSON already is for jsonText(), one that is to become a JSON string for
    /// `json(vireo::Json(text))`.
    template <class Value = impl::JsonList>
    void json(const Value& value) {
        constexpr bool HasText = impl::HasJsonText<Value>;
        constexpr bool IsText = !HasText && std::is_convertible_v<const Value&, std::string_view>;
        static_assert(!IsText, "a text that is JSON already is for Response::jsonText(), one that is to become a JSON "
                               "string for json(vireo::Json(text))");
        static_assert(HasText || IsText, "Response::json() of a value takes #include <vireo/app/Json.h>");
        if constexpr (HasText) {
            jsonText(JsonText<Value>::of(value));
        }
    }
    /// A text that is JSON already, as it is.
    VIREO_APP_API void jsonText(std::string json);
    /// None. The status is as for status().
    VIREO_APP_API void empty(int status = 204);
    /// Sends the client elsewhere. A location that the client has named itself, "/login?next=...", leads wherever the
    /// author of a link likes, under your name: take one only from those that you know, or a path of your own that
    /// begins with one slash and has no second slash or backslash behind it. Throws std::invalid_argument for a status
    /// below 300 or above 399, and for a location that is empty or has control characters.
    VIREO_APP_API void redirect(std::string_view location, int status = 303);
    /// Status and text, or the status's reason phrase, with a line feed behind it; all else that was set goes, but for
    /// hooks. Group::onError() is not told: throw an HttpError for that. Throws std::invalid_argument for a status
    /// below 400 or above 599.
    ///@{
    VIREO_APP_API void error(int status);
    VIREO_APP_API void error(int status, std::string text);
    ///@}
    /// A file, with ETag, conditional requests, ranges and a type by its name. 404 where there is none.
    VIREO_APP_API void file(const std::string& path);
    /// The same, for browsers to save it by this name.
    VIREO_APP_API void download(const std::string& path, const std::string& name);

    // ---- Answers that go on ----

    /// Sends the head now and a body that the function writes, on this thread; for HEAD it is not called. Clients see
    /// it by 64 KiB, or when Output::flush() says so. Throws ClientGone when the client has gone before, and lets
    /// through what the function throws: the connection breaks then, so that no client takes the body for whole. Throws
    /// std::logic_error where a daemon thread would have to wait (Route::quick(), WebSockets), in Later::answer(), and
    /// with a status that has no body (204, 205, 304).
    ///@{
    VIREO_APP_API void stream(const std::function<void(Output&)>& write);
    /// With this Content-Length.
    VIREO_APP_API void stream(std::uint64_t length, const std::function<void(Output&)>& write);
    ///@}
    /// Has the client get what is published in the channel, from the end of the handler on and without a thread.
    VIREO_APP_API void events(const EventChannel& channel);
    /// Leaves the answer, as far as it is set, to whoever calls Later::answer(). The body is not read any
    /// more then, also not by what Request::body() gave before. Throws as stream() does, but may be called in quick
    /// handlers.
    VIREO_APP_API Later later();

    /// Runs after the handler and its middlewares have returned: capture by value. Of several the last one given runs
    /// first. They run on the thread that sends: the handler's, or that of Later::answer(). They see the answer, also
    /// that of an error, and may change it; not the body of a stream.
    VIREO_APP_API void beforeSend(Hook hook);

    // ---- What was set ----

    VIREO_APP_API int status() const; ///< 200 unless another was set
    /// The first line of it; empty without one.
    VIREO_APP_API std::string header(std::string_view name) const;
    /// Whether there is an answer: a body or its absence was set, or stream(), events() or later() was called.
    VIREO_APP_API bool isSet() const;
    /// Whether the head has gone.
    VIREO_APP_API bool isSent() const;

private:
    friend struct impl::ResponseAccess;

    explicit Response(impl::ResponseState& state) : state_(state) {}

    impl::ResponseState& state_;
};

} // namespace vireo
