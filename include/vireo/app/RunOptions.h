// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/app/RunSettings.h"

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace vireo {

// Numbered, so that parts of a program that were compiled with different fields do not take each other's functions.
inline namespace layout1 {

/// How an App runs: `app.run({.port = 8080, .workers = 16})`. What is wrong with a field shows at the start.
struct RunOptions {
    /// The TCP port, up to 65535; 0 for one that the system finds: see App::port().
    int port = 8181;
    /// Where it listens: an address of this machine, IPv4 or IPv6 and no name, by default for this machine's own
    /// programs alone; "*" for every address of both kinds.
    std::string address = "127.0.0.1";
    /// Places to listen at instead of `address` and `port`, in the forms of ql::http::ListenEndpoint::Parse():
    /// "127.0.0.1:8080", "[::1]:8080", "*:8080", "unix:/run/my.sock".
    std::vector<std::string> listen{};
    /// The certificate's file, with those between it and its authority, and its key's, in PEM: with them every listener
    /// speaks TLS. App::reload() and SIGHUP read them again.
    std::string certificate{}, key{}; ///< the file of its key
    /// TLS as one likes it, instead of `certificate` and `key`.
    std::shared_ptr<ql::http::TlsContext> tls{};
    /// How many handlers run at once, besides those that wait for their clients; 0 for four a hardware thread, at least
    /// 8 and at most 64.
    unsigned int workers = 0;
    /// How many requests may wait for a worker; who comes beyond is answered 503 with "Retry-After". Any number.
    std::size_t queue = 1024;
    /// How many threads speak to the clients, and run the handlers that are Route::quick(); 0 for one a hardware
    /// thread.
    unsigned int threads = 0;
    /// For how long a stop waits for requests that are under way, a day at most; 0 for not at all.
    std::chrono::milliseconds patience{10000};
    /// For how long connections are still accepted when it stops, a day at most, so that a proxy in front learns of
    /// it.
    std::chrono::milliseconds grace{0};
    /// For how long a connection is kept on which nothing comes or goes, in whole seconds and a day at most; 0 for
    /// ever. A proxy in front has to give its own up before.
    std::chrono::milliseconds idle{360000};
    /// The file to which a line is appended for each exchange; "-" for standard output, empty for none. App::reload()
    /// and SIGHUP open it anew.
    std::string accessLog{};
    /// What such a line looks like.
    AccessLogFormat accessLogFormat = AccessLogFormat::Combined;
    /// Whether App::run() ends by SIGINT and SIGTERM and reloads by SIGHUP. A second SIGINT or SIGTERM stops at once, a
    /// third ends the process. Nothing to App::start().
    bool signals = true;
    /// Whether App::run() serves on the sockets of a service manager where it gives some, instead of the places
    /// above; the first run() of the process. Nothing to App::start().
    bool activation = true;
    /// Whether the line that tells the URLs is left out.
    bool quiet = false;
    /// Has the last word about the server beneath. How it waits, that it is strict, how it files requests, its owner
    /// and its WebSockets are the library's: a start where one of them was changed throws std::invalid_argument.
    std::function<void(ql::http::ServerOptions&)> server{};

    /// For App and TestClient.
    RunSettings toSettings() const {
        RunSettings settings;
        settings.setPort(port);
        settings.setAddress(address);
        settings.setListen(listen);
        settings.setCertificate(certificate);
        settings.setKey(key);
        settings.setTls(tls);
        settings.setWorkers(workers);
        settings.setQueue(queue);
        settings.setThreads(threads);
        settings.setPatience(patience);
        settings.setGrace(grace);
        settings.setIdle(idle);
        settings.setAccessLog(accessLog);
        settings.setAccessLogFormat(accessLogFormat);
        settings.setSignals(signals);
        settings.setActivation(activation);
        settings.setQuiet(quiet);
        settings.setServer(server);
        return settings;
    }
};

} // namespace layout1

} // namespace vireo
