// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/app/RequestKey.h"
#include "vireo/app/export.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace ql {
class HttpBaseRequest;
class IpAddress;
} // namespace ql
namespace ql::http {
class TlsPeer;
}

namespace vireo {

class Body;
class Form;
class FormOptions;
class FormParts;
class NewFile;
class Request;

namespace impl {
struct RequestAccess;
struct RequestData;

/// Reads a whole text as a value; false when it is none, or out of range.
///@{
VIREO_APP_API bool readNumber(std::string_view text, std::int64_t& value);
VIREO_APP_API bool readNumber(std::string_view text, std::uint64_t& value);
VIREO_APP_API bool readNumber(std::string_view text, double& value);
VIREO_APP_API bool readNumber(std::string_view text, float& value);
VIREO_APP_API bool readBool(std::string_view text, bool& value);
///@}

/// @throws HttpError 415 for a body that is no JSON.
VIREO_APP_API void requireJsonType(const Request& request);

template <class T>
inline constexpr bool IsCharacter =
    std::is_same_v<T, char> || std::is_same_v<T, wchar_t> || std::is_same_v<T, char8_t> ||
    std::is_same_v<T, char16_t> || std::is_same_v<T, char32_t>;

template <class T>
inline constexpr bool IsValue = std::is_same_v<T, std::string> ||
                                (std::is_arithmetic_v<T> && !IsCharacter<T> && !std::is_same_v<T, long double>);

template <class T>
bool readValue(std::string_view text, T& value) {
    static_assert(IsValue<T>, "values are integers, float, double, bool and std::string");
    if constexpr (!IsValue<T>) {
        return false; // has been told of
    } else if constexpr (std::is_same_v<T, std::string>) {
        value = text;
        return true;
    } else if constexpr (std::is_same_v<T, bool>) {
        return readBool(text, value);
    } else if constexpr (std::is_floating_point_v<T>) {
        return readNumber(text, value);
    } else {
        std::conditional_t<std::is_signed_v<T>, std::int64_t, std::uint64_t> number = 0;
        if (!readNumber(text, number) || !std::in_range<T>(number)) {
            return false;
        }
        value = static_cast<T>(number);
        return true;
    }
}
} // namespace impl

// A name and its value, of which there will never be more: what HTTP has to say beside them is in other headers.

/// A line of a request's head. Its texts live as long as the request.
struct Header {
    std::string_view name;  ///< as it came
    std::string_view value; ///< without blanks around
};

/// A cookie that a request brings.
struct Cookie {
    std::string name;  ///< as it came
    std::string value; ///< without quotes around
};

/// An argument of a request's query.
struct QueryArgument {
    std::string name;  ///< decoded
    std::string value; ///< decoded; empty without one
};

/// A request: its head, its body, and values that your own code attaches to it. It lives as long as its handler runs,
/// as long as there is a Later of it, and that of a WebSocket's opening as long as the session.
///
/// Threads: any for the head and the values. The body, the form and the parts are one thread's at a time, and cannot be
/// asked for after Response::later(), which throws std::logic_error; what they gave before stays.
///
/// References that its members give live as long as the request, so `std::string_view name = request.path("name");` is
/// right; what they return as a value does not. What is missing is empty, unless a member says otherwise.
class Request {
public:
    Request(const Request&) = delete;
    Request& operator=(const Request&) = delete;

    // ---- What is asked for ----

    /// The token, such as "GET".
    VIREO_APP_API const std::string& method() const;
    /// Path and query as they came, still percent-encoded.
    VIREO_APP_API const std::string& target() const;
    /// The path, decoded. An escaped slash looks like any other here.
    VIREO_APP_API const std::string& path() const;
    /// The pattern of the route that serves this, such as "/notes/{id:int}".
    VIREO_APP_API const std::string& route() const;
    /// The host, with its port if it has one, that the client named: to a proxy where App::trustProxies() has it.
    VIREO_APP_API const std::string& host() const;
    /// "http" or "https"; what a trusted proxy says where there is one.
    VIREO_APP_API const std::string& scheme() const;
    /// What a trusted proxy says in X-Request-Id; else a text that no other request of this process has.
    VIREO_APP_API const std::string& id() const;
    /// The client's address as text, which App::trustProxies() has a say in; "unix:" for a local socket's.
    VIREO_APP_API const std::string& client() const;
    /// The time since the head has arrived.
    VIREO_APP_API std::chrono::milliseconds elapsed() const;

    // ---- Parts of it, by their names ----

    /// A parameter of the route's pattern, decoded. Escapes may have brought slashes into it, though no segment of
    /// dots: a path of the disk is best made by Group::files() and NewFile::keepAs(), which look at such.
    /// @throws std::logic_error when the pattern has no such parameter.
    VIREO_APP_API const std::string& path(std::string_view name) const;
    /// The first argument of the query with this name, decoded.
    VIREO_APP_API const std::string& query(std::string_view name) const;
    /// A header, in any case of letters; several lines of it joined by ", ".
    VIREO_APP_API const std::string& header(std::string_view name) const;
    /// The first cookie of this name.
    VIREO_APP_API const std::string& cookie(std::string_view name) const;

    /// A parameter as a value: an integer or floating-point number in decimal, a bool (true, false, 1, 0, on, off, yes,
    /// no) or a text.
    /// @throws HttpError 404 when it does not fit T.
    template <class T>
    T path(std::string_view name) const {
        T value{};
        if (!impl::readValue(path(name), value)) {
            refusePath(name);
        }
        return value;
    }
    /// An argument of the query as a value, as path() reads it.
    /// @throws HttpError 400 that names it when it is missing or does not fit T.
    template <class T>
    T query(std::string_view name) const {
        T value{};
        if (!hasQuery(name) || !impl::readValue(query(name), value)) {
            refuseQuery(name);
        }
        return value;
    }
    /// An argument of the query as a value, or the other one when it is missing.
    /// @throws HttpError 400 that names it when it does not fit T.
    template <class T>
    T query(std::string_view name, T fallback) const {
        if (hasQuery(name) && !impl::readValue(query(name), fallback)) {
            refuseQuery(name);
        }
        return fallback;
    }
    /// An argument of the query, or the other text when it is missing.
    VIREO_APP_API std::string query(std::string_view name, const char* fallback) const;

    VIREO_APP_API bool hasQuery(std::string_view name) const; ///< be it without a value
    /// The values of this name, in the order in which they came.
    VIREO_APP_API std::vector<std::string> queryAll(std::string_view name) const;
    /// All arguments, in the order in which they came.
    VIREO_APP_API const std::vector<QueryArgument>& queryArguments() const;
    /// The lines of this name, each as it came.
    VIREO_APP_API std::vector<std::string> headerAll(std::string_view name) const;
    /// The lines of the head.
    VIREO_APP_API std::size_t headerCount() const;
    /// @param index below headerCount(), in the order in which they came.
    VIREO_APP_API Header headerAt(std::size_t index) const;
    /// Without the quotes around values; what is no cookie is not here.
    VIREO_APP_API const std::vector<Cookie>& cookies() const;

    // ---- The body; see Body.h and Form.h ----

    VIREO_APP_API Body& body(); ///< whole, or in pieces
    /// A form of either kind, whole: its files are on disk.
    /// @throws HttpError 415 for another content type, 400 for what is no form, 413 beyond a limit; ClientGone.
    ///@{
    VIREO_APP_API Form& form();
    VIREO_APP_API Form& form(const FormOptions& options);
    ///@}
    /// A form in pieces, as they come.
    /// @throws HttpError 415 for another content type.
    VIREO_APP_API FormParts& parts();
    /// A file that is kept only once its upload was whole: keepAs() throws ClientGone when the client has gone.
    VIREO_APP_API NewFile newFile(const std::string& directory);

    // ---- What the client would like ----

    /// Of these media types the one that the client likes best; the first one when it says nothing, an empty text when
    /// it wants none of them.
    VIREO_APP_API std::string accepts(std::initializer_list<std::string_view> types) const;
    /// The same for languages, such as "en" and "de-AT".
    VIREO_APP_API std::string acceptsLanguage(std::initializer_list<std::string_view> languages) const;
    /// The same for content codings, such as "gzip". "identity" is wanted unless it is refused, least of all where the
    /// client does not mention it, and alone when the client says nothing.
    VIREO_APP_API std::string acceptsEncoding(std::initializer_list<std::string_view> codings) const;

    // ---- The client ----

    /// Who the client is, which App::trustProxies() has a say in. None for a local socket's.
    VIREO_APP_API const ql::IpAddress& clientAddress() const;
    /// Whether the scheme is "https".
    VIREO_APP_API bool isSecure() const;
    /// Whether nobody waits for the answer any more. A client that has closed its side early and still waits counts as
    /// gone.
    VIREO_APP_API bool isGone() const;
    /// Null without TLS, and in a WebSocket's session.
    VIREO_APP_API const ql::http::TlsPeer* tls() const;

    // ---- Values of your own ----

    /// The value of this key, which is made when it is asked for first.
    template <class T>
    T& operator[](const RequestKey<T>& key) {
        return *static_cast<T*>(value(&key, []() -> std::shared_ptr<void> { return std::make_shared<T>(); }));
    }

    /// The request of the library below.
    VIREO_APP_API const ql::HttpBaseRequest& core() const;

private:
    friend struct impl::RequestAccess;

    explicit Request(impl::RequestData& data) : data_(data) {}

    [[noreturn]] VIREO_APP_API void refusePath(std::string_view name) const;
    [[noreturn]] VIREO_APP_API void refuseQuery(std::string_view name) const;
    VIREO_APP_API void* value(const void* key, std::shared_ptr<void> (*make)());

    impl::RequestData& data_;
};

} // namespace vireo
