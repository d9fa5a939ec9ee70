#include "client/WebSocketClient.h"

#include "support/Pattern.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <ranges>
#include <stdexcept>
#include <string>

#include <sys/socket.h>

namespace bench {

namespace {

constexpr int SilenceMs = 10000;
constexpr std::uint64_t KeyMultiplier = 2654435761U;

void shakeHands(int socket) {
    sendAll(socket, std::string("GET / HTTP/1.1\r\nHost: 127.0.0.1\r\nUpgrade: WebSocket\r\nConnection: Upgrade\r\n"
                                "Sec-WebSocket-Version: 13\r\nSec-WebSocket-Key: ") +
                        HandshakeKey + "\r\n\r\n");
    const std::string head = receiveHead(socket);
    if (head.rfind("HTTP/1.1 101 ", 0) != 0 || head.find(HandshakeAccept) == std::string::npos) {
        throw std::runtime_error("no handshake: " + head);
    }
}

} // namespace

EchoConnection::EchoConnection(std::uint16_t port, std::size_t messageBytes, std::uint32_t number)
    : socket_(connectTo(port)), payload_(messageBytes) {
    shakeHands(socket_.get());
    for (std::size_t i = 0; i < payload_.size(); ++i) {
        payload_[i] = static_cast<std::uint8_t>(*Pattern::at(number + i));
    }
    const std::uint64_t key = (number + 1) * KeyMultiplier;
    std::memcpy(key_.data(), &key, key_.size());
    frame_.resize(MaxFrameHeaderBytes + messageBytes);
    FrameHeader header;
    header.fin = true;
    header.opcode = OpcodeBinary;
    header.masked = true;
    header.key = key_;
    header.payload = messageBytes;
    header.write(frame_.data());
    frameHeaderBytes_ = header.bytes;
    frame_.resize(header.bytes + messageBytes);
    std::copy(payload_.begin(), payload_.end(), frame_.begin() + static_cast<std::ptrdiff_t>(header.bytes));
    applyMask(frame_.data() + header.bytes, messageBytes, key_);
}

void EchoConnection::expectMessage() {
    ++counter_;
    std::memcpy(payload_.data(), &counter_, std::min(payload_.size(), sizeof counter_));
}

void EchoConnection::startMessage() {
    expectMessage();
    const std::size_t size = std::min(payload_.size(), sizeof counter_);
    std::memcpy(frame_.data() + frameHeaderBytes_, &counter_, size);
    applyMask(frame_.data() + frameHeaderBytes_, size, key_);
    sent_ = 0;
    startTime_ = Clock::now();
}

bool EchoConnection::sendRest() {
    while (sent_ < frame_.size()) {
        const ssize_t count = send(socket_.get(), frame_.data() + sent_, frame_.size() - sent_, MSG_NOSIGNAL);
        if (count < 0) {
            if (errno == EAGAIN) {
                return false;
            }
            throw std::runtime_error("a connection was lost while sending");
        }
        sent_ += static_cast<std::size_t>(count);
    }
    return true;
}

bool EchoConnection::receive(std::vector<std::uint8_t>& scratch) {
    const ssize_t count = recv(socket_.get(), scratch.data(), scratch.size(), 0);
    if (count < 0 && errno == EAGAIN) {
        return false;
    }
    if (count <= 0) {
        throw std::runtime_error("a connection was lost while receiving");
    }
    return take(scratch.data(), static_cast<std::size_t>(count));
}

void EchoConnection::answerPing() {
    if (!header_.fin || header_.payload != 0 || sent_ < frame_.size()) {
        throw std::runtime_error("an unexpected ping");
    }
    FrameHeader pong;
    pong.fin = true;
    pong.opcode = OpcodePong;
    pong.masked = true;
    pong.key = key_;
    std::array<std::uint8_t, MaxFrameHeaderBytes> frame;
    pong.write(frame.data());
    sendAll(socket_.get(), std::string(frame.begin(), frame.begin() + static_cast<std::ptrdiff_t>(pong.bytes)));
    ++pings_;
}

bool EchoConnection::take(const std::uint8_t* data, std::size_t size) {
    while (size != 0) {
        if (!inFrame_) {
            // A header is short: byte by byte is good enough where it is cut, which is rare.
            const std::uint8_t* source = data;
            std::size_t available = size;
            const std::size_t before = headerBytes_.size();
            if (before != 0) {
                headerBytes_.insert(headerBytes_.end(), data, data + std::min(size, MaxFrameHeaderBytes));
                source = headerBytes_.data();
                available = headerBytes_.size();
            }
            if (!header_.parse(source, available)) {
                headerBytes_.assign(source, source + available);
                return false;
            }
            data += header_.bytes - before;
            size -= header_.bytes - before;
            headerBytes_.clear();
            if (header_.opcode == OpcodePing) {
                answerPing();
                continue;
            }
            const std::uint8_t opcode = inMessage_ ? OpcodeContinuation : OpcodeBinary;
            if (header_.opcode != opcode || header_.masked || header_.payload > payload_.size() - echoed_) {
                throw std::runtime_error("an unexpected frame");
            }
            frameLeft_ = header_.payload;
            inFrame_ = true;
            inMessage_ = true;
        }
        const std::size_t part = std::min<std::uint64_t>(size, frameLeft_);
        takePayload(data, part);
        data += part;
        size -= part;
        frameLeft_ -= part;
        if (frameLeft_ == 0) {
            inFrame_ = false;
            if (header_.fin) {
                if (echoed_ != payload_.size() || size != 0) {
                    throw std::runtime_error("an echo of another length");
                }
                inMessage_ = false;
                echoed_ = 0;
                return true;
            }
        }
    }
    return false;
}

void EchoConnection::takePayload(const std::uint8_t* data, std::size_t size) {
    if (!std::equal(data, data + size, payload_.data() + echoed_)) {
        throw std::runtime_error("an echo of other bytes");
    }
    echoed_ += size;
}

void WebSocketClient::open(std::uint16_t firstPort, unsigned int ports, unsigned int count, bool alike) {
    connections_.reserve(count);
    for (unsigned int i = 0; i < count; ++i) {
        connections_.emplace_back(static_cast<std::uint16_t>(firstPort + i % ports), messageBytes_, alike ? 0 : i);
        epoll_.add(connections_.back().socket(), EPOLLIN, i);
    }
    for (std::size_t i = 0; i < count; ++i) {
        startMessage(i);
    }
    for (std::size_t underWay = count; underWay != 0;) {
        handleReady([&](std::size_t /*index*/, Clock::time_point /*now*/) { --underWay; });
    }
}

void WebSocketClient::startMessage(std::size_t index) {
    EchoConnection& connection = connections_[index];
    connection.startMessage();
    if (!connection.sendRest()) {
        epoll_.change(connection.socket(), EPOLLIN | EPOLLOUT, index);
    }
}

template <typename OnEcho>
void WebSocketClient::handleReady(OnEcho onEcho) {
    const bool ready =
        epoll_.wait(SilenceMs, [&](std::uint64_t index, std::uint32_t events) { handle(index, events, onEcho); });
    if (!ready) {
        throw std::runtime_error("no echo");
    }
}

template <typename OnEcho>
void WebSocketClient::handle(std::size_t index, std::uint32_t events, OnEcho onEcho) {
    EchoConnection& connection = connections_[index];
    if ((events & EPOLLOUT) != 0 && connection.sendRest()) {
        epoll_.change(connection.socket(), EPOLLIN, index);
    }
    if ((events & ~static_cast<std::uint32_t>(EPOLLOUT)) != 0 && connection.receive(scratch_)) {
        onEcho(index, Clock::now());
    }
}

void WebSocketClient::run(unsigned int busy, double warmUpSeconds, double measuredSeconds) {
    const auto toDuration = [](double value) {
        return std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(value));
    };
    const Clock::time_point begin = Clock::now() + toDuration(warmUpSeconds);
    const Clock::time_point end = begin + toDuration(measuredSeconds);
    for (std::size_t i = 0; i < busy; ++i) {
        startMessage(i);
    }
    for (std::size_t underWay = busy; underWay != 0;) {
        handleReady([&](std::size_t index, Clock::time_point now) {
            if (now >= begin && now < end) {
                ++messages_;
                latencies_.add(now - connections_[index].startTime());
            }
            if (now < end) {
                startMessage(index);
            } else {
                --underWay;
            }
        });
    }
    measuredSeconds_ = measuredSeconds;
}

void WebSocketClient::broadcast(double measuredSeconds) {
    const Clock::time_point begin = Clock::now();
    Clock::time_point end = begin;
    while (seconds(end - begin) < measuredSeconds) {
        for (EchoConnection& connection : connections_ | std::views::drop(1)) {
            connection.expectMessage();
        }
        startMessage(0);
        for (std::size_t underWay = connections_.size(); underWay != 0;) {
            handleReady([&](std::size_t /*index*/, Clock::time_point now) {
                --underWay;
                latencies_.add(now - connections_.front().startTime());
            });
        }
        messages_ += connections_.size();
        end = Clock::now();
    }
    measuredSeconds_ += seconds(end - begin);
}

void WebSocketClient::waitFor(int descriptor) {
    const std::uint64_t tag = connections_.size();
    epoll_.add(descriptor, EPOLLIN, tag);
    for (bool waiting = true; waiting;) {
        epoll_.wait(-1, [&](std::uint64_t index, std::uint32_t events) {
            if (index == tag) {
                waiting = false;
            } else {
                handle(index, events, [](std::size_t /*index*/, Clock::time_point /*now*/) {
                    throw std::runtime_error("an unexpected message");
                });
            }
        });
    }
    epoll_.remove(descriptor);
}

std::uint64_t WebSocketClient::pings() const {
    std::uint64_t pings = 0;
    for (const EchoConnection& connection : connections_) {
        pings += connection.pings();
    }
    return pings;
}

} // namespace bench
