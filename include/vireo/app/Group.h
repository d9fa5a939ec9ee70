// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/app/Handler.h"
#include "vireo/app/Route.h"
#include "vireo/app/export.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace vireo {

class FileOptions;

namespace impl {
struct Scope;
}

/// Routes with a prefix and rules in common. An App is the group of all of its routes, with an empty prefix.
///
/// A pattern begins with "/". Each segment is a text, or a parameter: "{name}" for any text, "{name:int}" for a decimal
/// number of 64 bits, "{name:uuid}", and as the last one "{name:path}" for the rest of the path, which may have
/// slashes. Where several patterns fit a path, the first segment in which they differ decides: a text goes before int
/// and uuid, those before any text, and that before the rest of a path. The order of adding means nothing.
///
/// What no route answers is answered so, within the rules of the scope that it falls into: OPTIONS by 204 with "Allow"
/// and other methods by 405 where the path has routes; 308 to the path with or without its last slash where that one
/// has; 426 for WebSockets' routes to who does not open one; 404. HEAD is served by GET.
///
/// Groups are told of everything before the application starts, by one thread; later their members throw
/// std::logic_error, and so they do once the App is gone. A pattern, prefix or method that is none throws
/// std::invalid_argument, and so does App::start() for two patterns of one method that fit the same paths.
class Group {
public:
    /// Copies are the same group.
    ///@{
    VIREO_APP_API Group(const Group& other);
    Group& operator=(const Group&) = delete;
    ///@}
    VIREO_APP_API ~Group();

    // ---- Routes ----

    /// The handler answers requests of this method for paths that fit the pattern.
    ///@{
    VIREO_APP_API Route get(std::string_view pattern, Handler handler);
    VIREO_APP_API Route post(std::string_view pattern, Handler handler);
    VIREO_APP_API Route put(std::string_view pattern, Handler handler);
    VIREO_APP_API Route patch(std::string_view pattern, Handler handler);
    VIREO_APP_API Route del(std::string_view pattern, Handler handler);
    VIREO_APP_API Route options(std::string_view pattern, Handler handler);
    VIREO_APP_API Route head(std::string_view pattern, Handler handler);
    /// Any method, such as "PROPFIND", in upper case.
    VIREO_APP_API Route route(std::string_view method, std::string_view pattern, Handler handler);
    ///@}
    /// The handler decides about the openings of WebSockets. It is called on the daemon thread, with the middlewares
    /// around, and must not wait for anything.
    VIREO_APP_API Route webSocket(std::string_view pattern, SocketHandler handler);
    /// Serves the files of a directory below the prefix, "/assets": see FileOptions.h. What is not there is answered as
    /// if the directory were not: by 405 where the path has routes for other methods, else by notFound(), so that "/"
    /// stands beside all other routes. Where the path falls below a longer prefix, of a group within this one, that
    /// group's rules hold for it; below that of a group elsewhere the directory is not looked at. Of other methods than
    /// GET and HEAD the directory takes none.
    ///@{
    VIREO_APP_API Route files(std::string_view prefix, std::string directory);
    VIREO_APP_API Route files(std::string_view prefix, std::string directory, const FileOptions& options);
    ///@}
    /// Answers "ok" and 200, or 503 where the check says false or throws, and while the server drains. On the daemon
    /// thread without a check, else on a worker.
    ///@{
    VIREO_APP_API Route health(std::string_view pattern);
    VIREO_APP_API Route health(std::string_view pattern, std::function<bool()> check);
    ///@}
    /// Answers with the measurements of the server, of all routes, as OpenMetrics. They tell strangers much of an
    /// application: a group whose middlewares ask for a token is the place for them, where who reaches the port may be
    /// anybody.
    VIREO_APP_API Route metrics(std::string_view pattern);
    /// A group within this one.
    /// @param prefix one or more segments without a slash at the end, "/api"; or empty, for rules that only some routes
    /// have.
    VIREO_APP_API Group group(std::string_view prefix);

    // ---- Rules: for all routes of this group and those within, also those that were added before ----

    /// Stands around the handlers; those of outer groups around those of inner ones, and of one group the first added
    /// outermost.
    VIREO_APP_API Group& use(Middleware middleware);
    /// A middleware that runs before: what comes after it is not called when it has set an answer.
    VIREO_APP_API Group& before(Handler handler);
    /// A middleware that runs once the answer is known, whatever it is: Response::beforeSend() with it.
    VIREO_APP_API Group& after(Handler handler);
    /// The longest body that a request may have, in bytes; 8388608 by default. A longer one is answered 413. Of nested
    /// groups the innermost that says so counts; see Route::maxBody(), too.
    VIREO_APP_API Group& maxBody(std::uint64_t bytes);
    /// Answers what handlers and middlewares throw, on the thread on which it was thrown, in place of a text/plain with
    /// the text of the HttpError; other exceptions are logged before. So it does where nobody has set an answer. It
    /// finds a fresh response, and hooks of Response::beforeSend() run behind it. What it throws itself is logged, and
    /// the client gets a plain 500.
    VIREO_APP_API Group& onError(ErrorHandler handler);
    /// Answers where there is no route, and no file where there are files(), in place of 404.
    VIREO_APP_API Group& notFound(Handler handler);
    /// Answers where there are routes for other methods only, in place of 405; "Allow" is set already.
    VIREO_APP_API Group& methodNotAllowed(Handler handler);

protected:
    /// For the library.
    VIREO_APP_API explicit Group(std::shared_ptr<impl::Scope> scope);

    const std::shared_ptr<impl::Scope> scope_; ///< what was configured
};

} // namespace vireo
