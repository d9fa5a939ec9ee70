#pragma once

#include <csignal>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace bench {

/// How a server program is asked to serve.
struct ServerOptions {
    std::uint16_t port = 0;
    unsigned int threads = 2;                   ///< that serve connections
    unsigned int workers = 2;                   ///< that answer requests, where the program has such
    unsigned int servers = 1;                   ///< at consecutive ports
    std::string answer;                         ///< how plain requests are answered; one of the program's choices
    bool webSocket = false;                     ///< accept upgrades
    bool sessions = false;                      ///< by RFC 6455, where the program has another protocol as well
    bool broadcast = false;                     ///< each message but a connection's first goes to all, not back
    bool compress = false;                      ///< agree to compress messages
    std::size_t connectionMemoryBytes = 262144; ///< of the engine, where the program has it
    bool turbo = false;                         ///< of the engine, as well
    bool waitsByEvents = false;                 ///< where the program has it
    bool strict = false;                        ///< where the program has it
    bool throughput = false;                    ///< the program's own options for throughput, where it has such
    bool lines = false;                         ///< keep a head's lines, not maps of them, where the program has both
    unsigned int routes = 1;                    ///< with a parameter each, where the program has any
    std::string files;                          ///< the directory that is served, where the program has it
    std::vector<std::string> tls;               ///< files of a certificate and its key, or none for no TLS

    /// Ends the program with a message when the arguments are wrong.
    /// @param answers the choices of `answer`, the first is the default; empty when there is no choice.
    static ServerOptions parse(int argc, const char* const* argv, const std::vector<std::string>& answers = {});
};

/// What all programs speak with TLS, in the words of GnuTLS: one protocol, one cipher, one group.
inline constexpr const char* TlsPriorities =
    "NORMAL:-VERS-ALL:+VERS-TLS1.3:-CIPHER-ALL:+AES-128-GCM:-GROUP-ALL:+GROUP-X25519";

/// SIGTERM, SIGINT and SIGHUP as events. Make it before the first thread, which inherits the blocked signals.
class StopSignal {
public:
    enum class Wish { Stop, Reload };

    StopSignal();
    Wish next() const;
    /// Until the program is to stop.
    void wait() const;

private:
    sigset_t signals_;
};

/// Lets the process have as many descriptors as it may.
void raiseDescriptorLimit();

} // namespace bench
