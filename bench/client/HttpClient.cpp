#include "client/HttpClient.h"

#include "support/Pattern.h"
#include "support/Work.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <stdexcept>
#include <utility>

#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>

namespace bench {

namespace {

constexpr int SilenceMs = 20000;
constexpr std::size_t ScratchBytes = 262144;

void expectPlain(const HttpConnection& connection) {
    if (connection.response().text() != PlainBody) {
        throw std::runtime_error("an answer of other bytes: " + connection.response().text());
    }
}

void finishTransfer(const HttpConnection& connection, const Transfer& transfer) {
    if (transfer.uploadBytes == 0) {
        if (connection.response().bodyBytes() != transfer.expectedBytes) {
            throw std::runtime_error("a body of another length");
        }
        return;
    }
    if (connection.response().text() != "verified " + std::to_string(transfer.uploadBytes)) {
        throw std::runtime_error("an upload arrived otherwise: " + connection.response().text());
    }
}

void startTransfer(HttpConnection& connection, const Transfer& transfer) {
    if (transfer.uploadBytes == 0) {
        connection.startGet(transfer.path, true);
    } else {
        connection.startUpload(transfer.path, transfer.uploadBytes, transfer.chunked);
    }
}

/// Waits until the response is complete.
void finish(HttpConnection& connection, std::vector<char>& scratch) {
    pollfd polled{connection.socket(), POLLIN, 0};
    do {
        if (poll(&polled, 1, SilenceMs) <= 0) {
            throw std::runtime_error("no answer");
        }
    } while (!connection.receive(scratch));
}

} // namespace

void HttpConnection::start(std::string head, bool expectPattern) {
    front_ = std::move(head);
    bodyBytes_ = 0;
    back_.clear();
    sent_ = 0;
    response_.start(expectPattern);
    startTime_ = Clock::now();
}

void HttpConnection::startGet(const std::string& path, bool expectPattern) {
    start("GET " + path + " HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n", expectPattern);
    position_ = uploadBytes_ = 0;
    lastChunkSent_ = true;
}

void HttpConnection::startUpload(const std::string& path, std::uint64_t bytes, bool chunked) {
    const std::string length = chunked ? "Transfer-Encoding: chunked" : "Content-Length: " + std::to_string(bytes);
    start("PUT " + path + " HTTP/1.1\r\nHost: 127.0.0.1\r\nContent-Type: application/octet-stream\r\n" + length +
              "\r\n\r\n",
          false);
    position_ = 0;
    uploadBytes_ = bytes;
    chunked_ = chunked;
    lastChunkSent_ = !chunked;
}

bool HttpConnection::nextPiece() {
    front_.clear();
    back_.clear();
    sent_ = 0;
    bodyBytes_ = static_cast<std::size_t>(std::min<std::uint64_t>(StreamBlockBytes, uploadBytes_ - position_));
    if (bodyBytes_ == 0) {
        if (lastChunkSent_) {
            return false;
        }
        lastChunkSent_ = true;
        front_ = "0\r\n\r\n";
        return true;
    }
    body_ = Pattern::at(position_);
    position_ += bodyBytes_;
    if (chunked_) {
        std::array<char, 20> size;
        std::snprintf(size.data(), size.size(), "%zx\r\n", bodyBytes_);
        front_ = size.data();
        back_ = "\r\n";
    }
    return true;
}

bool HttpConnection::sendRest() {
    while (true) {
        std::array<iovec, 3> pieces;
        std::size_t count = 0;
        std::size_t skip = sent_;
        const auto add = [&](const char* data, std::size_t size) {
            const std::size_t skipped = std::min(skip, size);
            skip -= skipped;
            if (size != skipped) {
                // The kernel's type is not const; sending only reads.
                pieces[count++] = {const_cast<char*>(data) + skipped, size - skipped};
            }
        };
        add(front_.data(), front_.size());
        add(body_, bodyBytes_);
        add(back_.data(), back_.size());
        if (count == 0) {
            if (!nextPiece()) {
                return true;
            }
            continue;
        }
        msghdr message{};
        message.msg_iov = pieces.data();
        message.msg_iovlen = count;
        const ssize_t sent = sendmsg(socket_.get(), &message, MSG_NOSIGNAL);
        if (sent < 0) {
            if (errno == EAGAIN) {
                return false;
            }
            throw std::runtime_error("a connection was lost while sending");
        }
        sent_ += static_cast<std::size_t>(sent);
    }
}

bool HttpConnection::receive(std::vector<char>& scratch) {
    const ssize_t count = recv(socket_.get(), scratch.data(), scratch.size(), 0);
    if (count < 0 && errno == EAGAIN) {
        return false;
    }
    if (count <= 0) {
        throw std::runtime_error("a connection was lost while receiving");
    }
    return response_.take(scratch.data(), static_cast<std::size_t>(count));
}

double runTransfers(std::uint16_t port, const Transfer& transfer) {
    std::vector<char> scratch(ScratchBytes);
    std::vector<HttpConnection> connections;
    std::vector<unsigned int> left(transfer.connections, transfer.each);
    Epoll epoll;
    for (unsigned int i = 0; i < transfer.connections; ++i) {
        connections.emplace_back(port);
        epoll.add(connections.back().socket(), EPOLLIN | EPOLLOUT, i);
    }
    const Clock::time_point begin = Clock::now();
    const auto startNext = [&](std::uint64_t index) {
        startTransfer(connections[index], transfer);
        epoll.change(connections[index].socket(), EPOLLIN | EPOLLOUT, index);
    };
    for (unsigned int i = 0; i < transfer.connections; ++i) {
        startNext(i);
    }
    unsigned int underWay = transfer.connections;
    while (underWay != 0) {
        const bool ready = epoll.wait(transfer.silenceSeconds * 1000, [&](std::uint64_t index, std::uint32_t events) {
            HttpConnection& connection = connections[index];
            if ((events & EPOLLOUT) != 0 && connection.sendRest()) {
                epoll.change(connection.socket(), EPOLLIN, index);
            }
            if ((events & ~static_cast<std::uint32_t>(EPOLLOUT)) == 0 || !connection.receive(scratch)) {
                return;
            }
            finishTransfer(connection, transfer);
            if (--left[index] != 0) {
                startNext(index);
            } else {
                --underWay;
            }
        });
        if (!ready) {
            throw std::runtime_error("a transfer stands still");
        }
    }
    return seconds(Clock::now() - begin);
}

SlowResult runSlow(std::uint16_t port, unsigned int slowRequests, unsigned int instantConnections,
                   Clock::duration instantPeriod) {
    SlowResult result;
    std::vector<char> scratch(ScratchBytes);
    std::vector<HttpConnection> instant = openIdle(port, 1, instantConnections);
    std::vector<HttpConnection> slow = openIdle(port, 1, slowRequests);
    Epoll epoll;
    for (unsigned int i = 0; i < slowRequests; ++i) {
        epoll.add(slow[i].socket(), EPOLLIN, i);
    }
    for (unsigned int i = 0; i < instantConnections; ++i) {
        epoll.add(instant[i].socket(), EPOLLIN, slowRequests + i);
    }
    const Clock::time_point begin = Clock::now();
    for (HttpConnection& connection : slow) {
        connection.startGet("/slow", false);
        connection.sendRest();
    }
    // Each instant connection asks once a period, unless it still waits for its answer.
    std::vector<bool> waiting(instantConnections, false);
    Clock::time_point nextAsk = begin;
    const Clock::time_point deadline = begin + std::chrono::milliseconds(SilenceMs);
    unsigned int slowLeft = slowRequests;
    while (slowLeft != 0 || std::find(waiting.begin(), waiting.end(), true) != waiting.end()) {
        const Clock::time_point now = Clock::now();
        if (now >= deadline) {
            throw std::runtime_error("no answer");
        }
        if (now >= nextAsk && slowLeft != 0) {
            nextAsk += instantPeriod;
            for (unsigned int i = 0; i < instantConnections; ++i) {
                if (!waiting[i]) {
                    waiting[i] = true;
                    instant[i].startGet("/", false);
                    instant[i].sendRest();
                }
            }
        }
        epoll.wait(1, [&](std::uint64_t index, std::uint32_t /*events*/) {
            const bool isSlow = index < slowRequests;
            HttpConnection& connection = isSlow ? slow[index] : instant[index - slowRequests];
            if (!connection.receive(scratch)) {
                return;
            }
            expectPlain(connection);
            (isSlow ? result.slow : result.instant).add(Clock::now() - connection.startTime());
            if (isSlow) {
                --slowLeft;
            } else {
                waiting[index - slowRequests] = false;
            }
        });
    }
    result.seconds = seconds(Clock::now() - begin);
    return result;
}

std::vector<HttpConnection> openIdle(std::uint16_t firstPort, unsigned int ports, unsigned int count) {
    std::vector<char> scratch(ScratchBytes);
    std::vector<HttpConnection> connections;
    connections.reserve(count);
    for (unsigned int i = 0; i < count; ++i) {
        HttpConnection& connection = connections.emplace_back(static_cast<std::uint16_t>(firstPort + i % ports));
        connection.startGet("/", false);
        connection.sendRest();
        finish(connection, scratch);
        expectPlain(connection);
    }
    return connections;
}

} // namespace bench
