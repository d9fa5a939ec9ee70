#include "engine/SocketWatch.h"

#include "frame/ExceptionLog.h"
#include "vireo/support/qlMutex.h"
#include "vireo/support/qlThread.h"
#include "websocket/SocketPort.h"

#include <NativeSockets.h>

#include <algorithm>
#include <unordered_map>
#include <vector>

// WSAPoll() reports what has happened again and again, so that a socket is told of once and then left alone.

namespace ql::impl {

struct SocketWatch::Native {
    struct Entry {
        std::uint64_t socket;
        std::uint64_t key;
    };

    /// Takes out an entry, unless that was done.
    bool take(const Entry& entry) QL_EXCLUDES(mutex) {
        const qlMutexLocker locker(mutex);
        const auto found = keys.find(entry.socket);
        if (found == keys.end() || found->second != entry.key) {
            return false;
        }
        keys.erase(found);
        return true;
    }

    WakeSignal signal;
    qlMutex mutex;
    std::unordered_map<std::uint64_t, std::uint64_t> keys QL_GUARDED_BY(mutex);
    /// The waiting thread's.
    std::vector<NativePollEntry> polled;
    std::vector<Entry> entries;
};

namespace {

constexpr int PollFailedMs = 10;

/// Whether the peer has reset the connection of a hung-up socket, and not only ended its sending.
bool isReset(SOCKET socket) {
    char byte = 0;
    return ::recv(socket, &byte, 1, MSG_PEEK) < 0 && ::WSAGetLastError() != WSAEWOULDBLOCK;
}

} // namespace

SocketWatch::SocketWatch() : native_(std::make_unique<Native>()) {}

SocketWatch::~SocketWatch() = default;

void SocketWatch::open() {
    native_->signal.open();
}

bool SocketWatch::add(std::uint64_t socket, std::uint64_t key) noexcept {
    try {
        const qlMutexLocker locker(native_->mutex);
        native_->keys[socket] = key;
    } catch (...) {
        logCurrentException("connection watch", "httpserver");
        return false;
    }
    wake();
    return true;
}

bool SocketWatch::addForBytes(std::uint64_t /*socket*/, std::uint64_t /*key*/) noexcept {
    return false;
}

void SocketWatch::remove(std::uint64_t socket) noexcept {
    const qlMutexLocker locker(native_->mutex);
    native_->keys.erase(socket);
}

void SocketWatch::wake() noexcept {
    native_->signal.raise();
}

std::span<const SocketWatch::News> SocketWatch::wait(NewsBuffer& buffer, int timeoutMs) {
    std::vector<NativePollEntry>& polled = native_->polled;
    std::vector<Native::Entry>& entries = native_->entries;
    polled.assign(1, {static_cast<SOCKET>(native_->signal.getSocket()), POLLRDNORM, 0});
    entries.assign(1, {});
    {
        const qlMutexLocker locker(native_->mutex);
        for (const auto& [socket, key] : native_->keys) {
            // A hang-up and an error are told of in any case.
            polled.push_back({static_cast<SOCKET>(socket), 0, 0});
            entries.push_back({socket, key});
        }
    }
    const int ready = pollSockets(polled.data(), polled.size(), timeoutMs);
    if (ready < 0) {
        // At once, for instance where there is nothing to poll, not even the signal.
        qlThread::msleep(static_cast<unsigned long>(std::min(timeoutMs, PollFailedMs)));
    }
    if (ready <= 0) {
        return {};
    }
    if (polled.front().revents != 0) {
        native_->signal.lower();
    }
    std::size_t count = 0;
    for (std::size_t i = 1; i < polled.size() && count < buffer.size(); ++i) {
        const bool isOver = (polled[i].revents & (POLLHUP | POLLERR)) != 0;
        if (isOver && native_->take(entries[i])) {
            const bool reset = (polled[i].revents & POLLERR) != 0 || isReset(polled[i].fd);
            buffer[count++] = {entries[i].key, reset};
        }
    }
    return std::span(buffer).first(count);
}

} // namespace ql::impl
