#include "tls/HandshakeWatch.h"

#include "engine/PeerEnd.h"
#include "vireo/support/qlSystemUtils.h"

namespace ql::impl {

namespace {

/// How late a handshake that has taken too long is ended, and at most a stop noticed where the thread cannot be woken.
constexpr int LookMs = 1000;

} // namespace

HandshakeWatch::~HandshakeWatch() {
    stop();
}

void HandshakeWatch::start(std::int64_t timeoutMs) {
    timeoutMs_ = timeoutMs;
    sockets_.open();
    startThread("vireo-tls");
    const qlMutexLocker locker(mutex_);
    isOpen_ = true;
}

void HandshakeWatch::stop() noexcept {
    isStopping_ = true;
    sockets_.wake();
    waitThread(NoTimeLimit);
    const qlMutexLocker locker(mutex_);
    isOpen_ = false;
    while (!waiting_.empty()) {
        takeUp(waiting_.begin());
    }
}

bool HandshakeWatch::putAside(const Handshake& handshake) noexcept {
    const qlMutexLocker locker(mutex_);
    if (!isOpen_) {
        return false;
    }
    try {
        const auto waiting = waiting_.emplace(handshake.socket, handshake).first;
        if (!sockets_.addForBytes(handshake.socket, handshake.socket)) {
            waiting_.erase(waiting);
            return false;
        }
    } catch (...) {
        // For want of memory. It comes here again.
        return false;
    }
    handshake.connection.suspend();
    return true;
}

void HandshakeWatch::run() {
    SocketWatch::NewsBuffer buffer;
    std::int64_t nextLookMs = 0;
    while (!isStopping_) {
        const auto news = sockets_.wait(buffer, LookMs);
        const std::int64_t nowMs = qlSystemUtils::GetTimeBaseMs();
        const qlMutexLocker locker(mutex_);
        for (const SocketWatch::News& one : news) {
            if (const auto waiting = waiting_.find(one.key); waiting != waiting_.end()) {
                takeUp(waiting);
            }
        }
        if (timeoutMs_ != 0 && nowMs >= nextLookMs) {
            nextLookMs = nowMs + LookMs;
            endLate(nowMs);
        }
    }
}

void HandshakeWatch::takeUp(Waiting::iterator waiting) {
    const EngineConnection connection = waiting->second.connection;
    sockets_.remove(waiting->first);
    waiting_.erase(waiting);
    connection.resume();
}

void HandshakeWatch::endLate(std::int64_t nowMs) {
    for (const auto& [socket, handshake] : waiting_) {
        if (nowMs - handshake.sinceMs >= timeoutMs_) {
            // That is news, as whatever happens to a socket.
            shutSocket(socket);
        }
    }
}

} // namespace ql::impl
