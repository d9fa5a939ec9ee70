// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/app/Group.h"
#include "vireo/app/RunOptions.h"
#include "vireo/app/export.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace ql::http {
class WebSocketOptions;
}

namespace vireo {

class RunSettings;

namespace impl {
struct AppState;
}

/// A service: its routes, and the server that runs them.
///
///     vireo::App app;
///     app.get("/hello/{name}", [](vireo::Request& request, vireo::Response& response) {
///         response.text("hello " + request.path("name") + "\n");
///     });
///     return app.run({.port = 8181});
///
/// Declare it last: behind all that its functions refer to, in main() as in a class. The destructor stops it, and
/// destroys the functions that it was given; what is declared behind it goes before, while handlers still run. In one
/// of these functions it asks for the end at once and does not wait: what the others refer to must outlive them then.
/// No thread is in run(), start() or wait() of it.
class App final : public Group {
public:
    VIREO_APP_API App();
    VIREO_APP_API ~App();
    App(const App&) = delete;
    App& operator=(const App&) = delete;

    /// Whose word about the client counts, in X-Forwarded-For, -Proto and -Host and in X-Request-Id: peers of these
    /// addresses and networks, "127.0.0.1", "10.0.0.0/8", "::1", and "unix:" for those of a local socket. Such a proxy
    /// has to set or to remove all four: what a client has sent of them must not pass. Nobody's by default.
    ///
    /// Who else can connect from there is believed as well. Where that is 127.0.0.1 or ::1, these are the browsers of
    /// this machine: a page whose own name leads here (DNS rebinding) sets these headers as it likes. On a machine
    /// where somebody browses have the proxy come by a local socket, which no page reaches.
    ///
    /// Throws std::invalid_argument for anything else, std::logic_error while it runs.
    VIREO_APP_API App& trustProxies(std::vector<std::string> networks);
    /// How WebSockets are served, for openings that do not say otherwise.
    ///
    /// Throws std::logic_error while it runs.
    VIREO_APP_API App& webSocketOptions(const ql::http::WebSocketOptions& options);

    /// Starts it, tells a service manager that it serves where there is one, and waits until stop() or, with
    /// RunOptions::signals, SIGINT or SIGTERM has ended it.
    /// @return 0 when it ended cleanly, 1 when it could not start, which is logged with the reason.
    ///
    /// Throws std::logic_error in a handler, while it runs, and with RunOptions::signals while another run() of the
    /// process has them.
    int run(const RunOptions& options = {}) { return runWith(options.toSettings()); }
    /// Starts it; it serves when this returns.
    ///
    /// Throws std::invalid_argument for routes or options that cannot be, std::runtime_error with the reason where it
    /// cannot start otherwise, std::logic_error in a handler and while it runs.
    void start(const RunOptions& options = {}) { startWith(options.toSettings()); }
    /// Ends it: lets requests that are under way finish, for RunOptions::patience at most, then cuts them, and waits
    /// until all is over. A handler that does not return holds it up; the log names its route. Any thread; in a handler
    /// of its own it asks for the end and returns, in one of another App it waits, so that handlers of two Apps that
    /// end each other wait for ever, and so does a handler that joins a thread that stops its App. Without effect when
    /// it does not run.
    VIREO_APP_API void stop();
    /// Waits until it has ended, by stop() of another thread. Throws std::logic_error in a handler.
    VIREO_APP_API void wait();
    /// Any thread.
    VIREO_APP_API bool isRunning() const;
    /// Reads certificates and directories of files anew, and opens the access log again. What cannot be read stays as
    /// it was, and the log says so. Any thread.
    VIREO_APP_API void reload();

    /// Of its first listener, while it runs; 0 for a local socket, and otherwise.
    VIREO_APP_API std::uint16_t port() const;
    /// Where it can be reached, while it runs: "http://127.0.0.1:8181/".
    VIREO_APP_API std::vector<std::string> urls() const;

    /// What run() and start() do, by settings that later versions understand as well.
    ///@{
    VIREO_APP_API int runWith(const RunSettings& settings);
    VIREO_APP_API void startWith(const RunSettings& settings);
    ///@}

private:
    explicit App(std::unique_ptr<impl::AppState>&& state);

    const std::unique_ptr<impl::AppState> state_;
};

} // namespace vireo
