#include "engine/EchoLoop.h"

#include "support/WebSocketFrames.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

namespace bench {

namespace {

constexpr std::size_t ScratchBytes = 262144;

} // namespace

EchoLoop::EchoLoop()
    : wakeUp_(eventfd(0, EFD_NONBLOCK)), polled_{{wakeUp_, POLLIN, 0}}, scratch_(ScratchBytes), thread_([this] {
          run();
      }) {}

EchoLoop::~EchoLoop() {
    stop();
    close(wakeUp_);
}

void EchoLoop::add(MHD_socket socket, MHD_UpgradeResponseHandle* handle) {
    const int on = 1;
    setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    {
        const std::lock_guard lock(mutex_);
        if (stopping_) {
            MHD_upgrade_action(handle, MHD_UPGRADE_ACTION_CLOSE);
            return;
        }
        new_.push_back({socket, handle, {}, {}});
    }
    wake();
}

void EchoLoop::stop() {
    {
        const std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    wake();
    if (thread_.joinable()) {
        thread_.join();
    }
    for (const Connection& connection : connections_) {
        MHD_upgrade_action(connection.handle, MHD_UPGRADE_ACTION_CLOSE);
    }
    connections_.clear();
}

void EchoLoop::wake() const {
    eventfd_write(wakeUp_, 1);
}

void EchoLoop::takeNew() {
    eventfd_t count = 0;
    eventfd_read(wakeUp_, &count);
    const std::lock_guard lock(mutex_);
    for (Connection& connection : new_) {
        polled_.push_back({connection.socket, POLLIN, 0});
        connections_.push_back(std::move(connection));
    }
    new_.clear();
}

void EchoLoop::run() {
    while (true) {
        if (poll(polled_.data(), polled_.size(), -1) < 0 && errno != EINTR) {
            return;
        }
        // Backwards, so that a closed one can be replaced by the last.
        for (std::size_t i = connections_.size(); i-- > 0;) {
            pollfd& polled = polled_[i + 1];
            if (polled.revents == 0) {
                continue;
            }
            Connection& connection = connections_[i];
            const bool open = (polled.revents & POLLOUT) != 0 ? sendRest(connection) : receive(connection);
            if (!open) {
                MHD_upgrade_action(connection.handle, MHD_UPGRADE_ACTION_CLOSE);
                std::swap(connection, connections_.back());
                connections_.pop_back();
                polled = polled_.back();
                polled_.pop_back();
                continue;
            }
            polled.events = static_cast<short>(connection.out.empty() ? POLLIN : POLLOUT);
        }
        if ((polled_.front().revents & POLLIN) != 0) {
            takeNew();
            const std::lock_guard lock(mutex_);
            if (stopping_) {
                return;
            }
        }
    }
}

bool EchoLoop::receive(Connection& connection) {
    const ssize_t received = recv(connection.socket, scratch_.data(), scratch_.size(), MSG_DONTWAIT);
    if (received <= 0) {
        return received < 0 && (errno == EAGAIN || errno == EINTR);
    }
    const std::size_t size = static_cast<std::size_t>(received);
    if (connection.in.empty()) {
        const std::int64_t consumed = echoFrames(connection, scratch_.data(), size);
        if (consumed >= 0) {
            connection.in.assign(scratch_.data() + consumed, scratch_.data() + size);
        }
        return consumed >= 0;
    }
    connection.in.insert(connection.in.end(), scratch_.data(), scratch_.data() + size);
    const std::int64_t consumed = echoFrames(connection, connection.in.data(), connection.in.size());
    if (consumed < 0) {
        return false;
    }
    connection.in.erase(connection.in.begin(), connection.in.begin() + consumed);
    return true;
}

std::int64_t EchoLoop::echoFrames(Connection& connection, std::uint8_t* data, std::size_t size) {
    std::size_t consumed = 0;
    FrameHeader header;
    while (header.parse(data + consumed, size - consumed)) {
        if (!header.masked || header.opcode == OpcodeClose) {
            return -1;
        }
        if (size - consumed - header.bytes < header.payload) {
            break;
        }
        std::uint8_t* const payload = data + consumed + header.bytes;
        consumed += header.bytes + header.payload;
        applyMask(payload, header.payload, header.key);
        // Without the mask's key the header is shorter: the echo goes out from where the frame stands.
        std::uint8_t* const echo = payload - (header.bytes - header.key.size());
        header.masked = false;
        header.write(echo);
        if (!send(connection, echo, header.bytes + header.payload)) {
            return -1;
        }
    }
    return static_cast<std::int64_t>(consumed);
}

bool EchoLoop::send(Connection& connection, const std::uint8_t* data, std::size_t size) {
    ssize_t sent = 0;
    if (connection.out.empty()) {
        sent = ::send(connection.socket, data, size, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (sent < 0 && errno != EAGAIN) {
            return false;
        }
        sent = std::max<ssize_t>(sent, 0);
    }
    connection.out.insert(connection.out.end(), data + sent, data + size);
    return true;
}

bool EchoLoop::sendRest(Connection& connection) {
    const ssize_t sent =
        ::send(connection.socket, connection.out.data(), connection.out.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    if (sent < 0) {
        return errno == EAGAIN;
    }
    connection.out.erase(connection.out.begin(), connection.out.begin() + sent);
    return true;
}

} // namespace bench
