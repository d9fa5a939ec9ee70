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
    std::size_t connectionMemoryBytes = 262144; ///< of the engine, where the program has it
    bool turbo = false;                         ///< of the engine, as well

    /// Ends the program with a message when the arguments are wrong.
    /// @param answers the choices of `answer`, the first is the default; empty when there is no choice.
    static ServerOptions parse(int argc, const char* const* argv, const std::vector<std::string>& answers = {});
};

/// SIGTERM and SIGINT as an event. Make it before the first thread, which inherits the blocked signals.
class StopSignal {
public:
    StopSignal();
    void wait() const;

private:
    sigset_t signals_;
};

/// Lets the process have as many descriptors as it may.
void raiseDescriptorLimit();

} // namespace bench
