#pragma once

#include "support/TestFile.h"

#include <cstdint>
#include <functional>
#include <string>

#include <sys/types.h>

namespace vireotest {

/// What a process of a server can run into. The numbers are the test's and the process's alone.
enum class Wall : std::uint8_t {
    None,        ///< as it was before
    Descriptors, ///< none is left beside those that are open
    Memory,      ///< some for what is small, none for a thread's stack or much at once
    Threads,     ///< no further one
    FileSize,    ///< a file takes 256 KiB
};

/// A server in a process of its own, which can be put before a wall while clients of the test's process ask it.
class ServerProcess {
public:
    /// Follows the test until that ends the process; given the port when the server runs.
    using Serve = std::function<void(std::uint16_t port)>;

    /// @param run runs in the new process: starts a server, calls what it is given, and stops the server. What it
    ///            throws, and a failed expectation, fail the test.
    /// @param prepare runs in it before, with the rights of the test's process, which it has no longer then.
    explicit ServerProcess(
        const std::function<void(const Serve& serve)>& run, const std::function<void()>& prepare = [] {});
    /// As end().
    ~ServerProcess();
    ServerProcess(const ServerProcess&) = delete;
    ServerProcess& operator=(const ServerProcess&) = delete;

    std::uint16_t port() const { return port_; }
    /// Returns when it stands. The walls before are gone.
    void set(Wall wall);
    /// What the process has logged.
    std::string log() const { return contentOf(directory_.path() / "log"); }
    /// How often something stands in it.
    std::size_t logged(const std::string& text) const;
    /// Has the server stop. Fails the test where it does not, or where it crashes.
    void end();

private:
    [[noreturn]] void runChild(const std::function<void(const Serve& serve)>& run);

    const TestDirectory directory_;
    pid_t process_ = -1;
    /// To the process, and from it.
    int orders_ = -1;
    int answers_ = -1;
    std::uint16_t port_ = 0;
};

/// Puts the calling process before a wall.
void standBefore(Wall wall);

} // namespace vireotest
