#pragma once

#include "vireo/HttpServer.h"
#include "vireo/ServerOptions.h"

#include <string>

namespace skeleton {

/// Starts a server and says on standard output where it serves, or on standard error why it does not.
/// @param options those that the server was made with.
bool start(ql::http::HttpServer& server, const std::string& name, const ql::http::HttpServer::Parameters& parameters,
           const ql::http::ServerOptions& options);

/// Takes Ctrl-C and SIGTERM from its construction on; the second signal ends the process at once.
class StopSignal {
public:
    enum class Wish { Stop, Reload };

    /// @param taken with Reload it takes SIGHUP as well, where there is one: any number of them.
    explicit StopSignal(Wish taken = Wish::Stop);
    Wish wait() const;
    /// Has wait() return as after a first signal. Any thread, any number of times.
    static void give();
};

/// Holds the library up.
class Library {
public:
    Library();
    ~Library();
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;
};

} // namespace skeleton
