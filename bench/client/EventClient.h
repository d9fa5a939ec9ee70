#pragma once

#include "client/HttpClient.h"
#include "client/Measures.h"
#include "client/Sockets.h"

#include <cstdint>
#include <vector>

namespace bench {

/// Listeners to GET /events of one server.
class EventClient {
public:
    /// Opens the streams, and waits until each has begun.
    EventClient(std::uint16_t port, unsigned int streams);

    std::size_t count() const { return streams_.size(); }

    /// Publishes an event. @return the seconds until all have it.
    double publish();

private:
    /// Waits until so many bytes more have come on each stream at least.
    void awaitEach(std::size_t bytes);

    const std::uint16_t port_;
    std::vector<Descriptor> streams_;
    Epoll epoll_;
};

/// Asks for the plain answer again and again, once a period on each connection.
Latencies runProbe(std::uint16_t port, unsigned int connections, Clock::duration period, Clock::duration duration);

} // namespace bench
