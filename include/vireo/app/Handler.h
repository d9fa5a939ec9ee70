// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/app/export.h"

#include <cstddef>
#include <exception>
#include <functional>
#include <string>
#include <type_traits>
#include <utility>

namespace vireo {

class Request;
class Response;
class SocketOpening;

namespace impl {
class ChainRun;
struct FailureAccess;

template <class Function, class Callback, class... Arguments>
concept IsCallableFor = !std::is_same_v<Function, Callback> && std::is_invocable_v<Function&, Arguments...>;
} // namespace impl

// All functions given to the toolkit are called on many threads at once, with no lock held. Which threads: see
// Route::quick(), Group::onError() and Response::later(). They are stored once, and destroyed with the App.

/// A std::function for what the toolkit calls: a function that returns something is none, since that would be lost, be
/// it a text that was meant for an answer or a `false` that was meant to stop somebody. What a lambda captures is
/// copied with it: a std::shared_ptr, not a std::unique_ptr.
template <class... Arguments>
class Callback : public std::function<void(Arguments...)> {
public:
    Callback() = default;
    /// None.
    // NOLINTNEXTLINE(google-explicit-constructor): as std::function has it
    Callback(std::nullptr_t) {}
    /// Holds a function, an object that can be called, or none.
    template <impl::IsCallableFor<Callback, Arguments...> Function>
    // NOLINTNEXTLINE(google-explicit-constructor): as std::function has it
    Callback(Function callable) : std::function<void(Arguments...)>(std::move(callable)) {
        static_assert(std::is_void_v<std::invoke_result_t<Function&, Arguments...>>,
                      "a handler, middleware or hook returns nothing: it answers by what it sets in the response, such "
                      "as response.text(...), and stops others by response.error(...)");
    }
};

/// Answers a request, by what it sets in the response. Neither of its arguments may be used once it has returned: in a
/// thread that goes on they would be another client's. There take Response::later(), whose request lives as long as it.
using Handler = Callback<Request&, Response&>;

/// Decides about a WebSocket's opening: accepts or refuses it.
using SocketHandler = Callback<Request&, SocketOpening&>;

/// Looks at an answer before it is sent, and may change it; or sets a late one.
using Hook = Callback<Response&>;

/// What comes after a middleware: further ones, and the handler.
class Next {
public:
    Next(const Next&) = delete;
    Next& operator=(const Next&) = delete;

    /// Runs it, and lets through what it throws. When it returns the answer is set but not sent, unless it is a stream,
    /// event stream or a Later's: see Response::beforeSend(). Does nothing where an answer is set already: after
    /// `response.error(403)` no handler runs.
    ///
    /// Throws std::logic_error when it is called twice.
    VIREO_APP_API void operator()();

private:
    friend class impl::ChainRun;

    explicit Next(impl::ChainRun& chain) : chain_(chain) {}

    impl::ChainRun& chain_;
    bool isCalled_ = false;
};

/// Stands around handlers: calls `next()`, or answers by itself.
using Middleware = Callback<Request&, Response&, Next&>;

/// What an error handler is told of.
class Failure {
public:
    Failure(const Failure&) = delete;
    Failure& operator=(const Failure&) = delete;

    /// That of the HttpError; 500 for every other exception.
    VIREO_APP_API int status() const;
    /// What clients may see of it: the HttpError's text; "internal error" for every other exception.
    VIREO_APP_API const std::string& text() const;
    /// What was thrown. Look at it by std::rethrow_exception(): a bare `throw;` finds nothing where the toolkit is a
    /// DLL.
    VIREO_APP_API std::exception_ptr exception() const;

private:
    friend struct impl::FailureAccess;

    Failure(int status, std::string text, std::exception_ptr exception);

    int status_;
    std::string text_;
    std::exception_ptr exception_;
};

/// Answers a request whose handler or middleware has thrown.
using ErrorHandler = Callback<const Failure&, Request&, Response&>;

} // namespace vireo
