#pragma once

#include "client/Measures.h"
#include "client/Sockets.h"
#include "support/WebSocketFrames.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace bench {

/// One connection that sends a message, waits for its echo, and sends the next. Every echo is compared byte by byte;
/// a counter at the start makes each message another one.
class EchoConnection {
public:
    /// Connects and shakes hands.
    /// @param number makes the connection's messages its own.
    EchoConnection(std::uint16_t port, std::size_t messageBytes, std::uint32_t number);

    int socket() const { return socket_.get(); }

    /// Begins to send the next message.
    void startMessage();

    /// Expects the next message of a connection with the same number, without sending it.
    void expectMessage();

    /// Sends what is left of the message. @return whether all of it is sent.
    bool sendRest();

    /// Takes what has come. @return whether the echo is complete.
    /// @throws std::runtime_error when it is not what was sent.
    bool receive(std::vector<std::uint8_t>& scratch);

    Clock::time_point startTime() const { return startTime_; }

    /// Pings that have come, which were answered at once. They must be empty, and come while no message is being sent.
    std::uint64_t pings() const { return pings_; }

private:
    void answerPing();
    bool take(const std::uint8_t* data, std::size_t size);
    void takePayload(const std::uint8_t* data, std::size_t size);

    Descriptor socket_;
    std::vector<std::uint8_t> payload_;
    std::vector<std::uint8_t> frame_; ///< the masked frame of the message
    std::size_t frameHeaderBytes_ = 0;
    MaskKey key_{};
    std::uint64_t counter_ = 0;
    std::uint64_t pings_ = 0;
    std::size_t sent_ = 0; ///< bytes of the frame
    Clock::time_point startTime_;
    // The echo, which may come as several frames.
    std::vector<std::uint8_t> headerBytes_; ///< of a frame whose header is not complete
    FrameHeader header_;
    std::uint64_t frameLeft_ = 0;
    bool inFrame_ = false;
    bool inMessage_ = false;
    std::size_t echoed_ = 0;
};

/// Connections on one thread.
class WebSocketClient {
public:
    WebSocketClient(std::size_t messageBytes) : messageBytes_(messageBytes), scratch_(ScratchBytes) {}

    /// Opens `count` connections, to `ports` consecutive ports in turn, then has one message echoed on each.
    /// @param alike all send the same messages, as broadcast() wants it.
    void open(std::uint16_t firstPort, unsigned int ports, unsigned int count, bool alike = false);

    /// Has the first connection send messages, each of which must come on all of them before the next is sent.
    void broadcast(double measuredSeconds);

    /// Answers pings. Returns when something is to be read from `descriptor`.
    void waitFor(int descriptor);

    /// Keeps the first `busy` connections busy for so long after a warm-up.
    void run(unsigned int busy, double warmUpSeconds, double measuredSeconds);

    /// Messages that came: echoes, or deliveries of what was broadcast.
    std::uint64_t messages() const { return messages_; }
    std::uint64_t pings() const;
    double measuredSeconds() const { return measuredSeconds_; }
    Latencies& latencies() { return latencies_; }

private:
    static constexpr std::size_t ScratchBytes = 262144;

    void startMessage(std::size_t index);
    /// Handles what is ready. @param onEcho called with the connection's index and the time when an echo is complete.
    template <typename OnEcho>
    void handleReady(OnEcho onEcho);
    /// @param onEcho called with the connection's index when an echo is complete.
    template <typename OnEcho>
    void handle(std::size_t index, std::uint32_t events, OnEcho onEcho);

    const std::size_t messageBytes_;
    std::vector<std::uint8_t> scratch_;
    std::vector<EchoConnection> connections_;
    Epoll epoll_;
    std::uint64_t messages_ = 0;
    double measuredSeconds_ = 0;
    Latencies latencies_;
};

} // namespace bench
