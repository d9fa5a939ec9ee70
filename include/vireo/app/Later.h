// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/app/Handler.h"
#include "vireo/app/export.h"

#include <memory>
#include <string>

namespace vireo {

class Request;
class Response;

namespace impl {
class LaterState;
}

/// An answer that is given later, by any thread: see Response::later(). Holds no thread meanwhile. Copies are one; when
/// the last of them goes and nothing was answered, the client gets a 500, and the log names the route; but not before
/// the handler has returned, and an exception of the handler is the answer where no other Later is left. So it must not
/// be kept in a value of its own request, which it keeps alive.
///
/// It has 300 s, as all answers have, from the moment when all of the request is there; then the client is cut. More
/// are to be had by RunOptions::server: `.server = [](auto& options) { options.setAnswerTimeoutMs(3600000); }`, with
/// `#include <vireo/ServerOptions.h>`.
///
/// One that was moved from may only be assigned to or destroyed.
class VIREO_APP_API Later {
public:
    /// For the library.
    explicit Later(std::shared_ptr<impl::LaterState> state);
    /// Copies are one.
    ///@{
    Later(const Later& other);
    Later(Later&& other) noexcept;
    Later& operator=(const Later& other);
    Later& operator=(Later&& other) noexcept;
    ///@}
    ~Later();

    /// Answers with what the function sets; what was set before later() is there already. The function is called now,
    /// and may set all but a stream and another Later. What it throws is answered as what a handler throws.
    /// @return false when somebody else has answered or the client has gone: the function was not called.
    bool answer(const Hook& fill) const; // NOLINT(modernize-use-nodiscard)
    /// Answers with a text, as Response::text().
    bool text(std::string text) const; // NOLINT(modernize-use-nodiscard)
    /// Answers with an error, as if a handler had thrown HttpError(status, text). Throws std::invalid_argument, and
    /// answers nothing then, for a status that HttpError does not take.
    bool fail(int status, std::string text) const; // NOLINT(modernize-use-nodiscard)

    /// Whether nobody waits for the answer any more.
    bool isGone() const;
    /// Its head and values. Lives as long as this or a copy.
    Request& request() const;

private:
    std::shared_ptr<impl::LaterState> state_;
};

} // namespace vireo
