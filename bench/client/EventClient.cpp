#include "client/EventClient.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <stdexcept>
#include <string>
#include <thread>

#include <poll.h>
#include <sys/socket.h>

namespace bench {

namespace {

constexpr int PatienceMs = 20000;
constexpr std::size_t ScratchBytes = 4096;
constexpr const char* Head = "GET /events HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n";
/// Longer than what surrounds it, so that its bytes tell that it is there.
const std::string Event = "data: " + std::string(500, 'e') + "\n\n";

/// Waits for an answer that is not complete yet.
void finishPlain(HttpConnection& connection, std::vector<char>& scratch) {
    pollfd polled{connection.socket(), POLLIN, 0};
    do {
        if (poll(&polled, 1, PatienceMs) <= 0) {
            throw std::runtime_error("no answer");
        }
    } while (!connection.receive(scratch));
}

} // namespace

EventClient::EventClient(std::uint16_t port, unsigned int streams) : port_(port) {
    streams_.reserve(streams);
    for (unsigned int i = 0; i < streams; ++i) {
        const int stream = streams_.emplace_back(connectTo(port)).get();
        sendAll(stream, Head);
        epoll_.add(stream, EPOLLIN, i);
    }
    awaitEach(1);
    // The first line may come behind the head.
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
}

double EventClient::publish() {
    const Clock::time_point begin = Clock::now();
    const Descriptor publisher = connectTo(port_);
    sendAll(publisher.get(), "POST /events HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Length: " +
                                 std::to_string(Event.size()) + "\r\n\r\n" + Event);
    awaitEach(Event.size());
    const double result = seconds(Clock::now() - begin);
    receiveHead(publisher.get());
    return result;
}

void EventClient::awaitEach(std::size_t bytes) {
    std::array<char, ScratchBytes> buffer;
    std::vector<std::size_t> left(streams_.size(), bytes);
    std::size_t unfinished = streams_.size();
    while (unfinished != 0) {
        const bool ready = epoll_.wait(PatienceMs, [&](std::uint64_t index, std::uint32_t /*events*/) {
            const ssize_t count = recv(streams_[index].get(), buffer.data(), buffer.size(), 0);
            if (count == 0 || (count < 0 && errno != EAGAIN)) {
                throw std::runtime_error("a stream has ended");
            }
            if (count > 0 && left[index] != 0) {
                left[index] -= std::min(left[index], static_cast<std::size_t>(count));
                if (left[index] == 0) {
                    --unfinished;
                }
            }
        });
        if (!ready) {
            throw std::runtime_error(std::to_string(unfinished) + " streams stand still");
        }
    }
}

Latencies runProbe(std::uint16_t port, unsigned int connections, Clock::duration period, Clock::duration duration) {
    Latencies result;
    std::vector<char> scratch(ScratchBytes);
    std::vector<HttpConnection> probes = openIdle(port, 1, connections);
    const Clock::time_point begin = Clock::now();
    for (Clock::time_point next = begin; next < begin + duration; next += period) {
        std::this_thread::sleep_until(next);
        for (HttpConnection& probe : probes) {
            probe.startGet("/", false);
            probe.sendRest();
            finishPlain(probe, scratch);
            result.add(Clock::now() - probe.startTime());
        }
    }
    return result;
}

} // namespace bench
