#include "server/ConnectionWatch.h"

#include "engine/Listener.h"
#include "engine/PeerEnd.h"
#include "frame/ExceptionLog.h"
#include "request/RequestAccess.h"
#include "request/RequestState.h"
#include "server/ClientConnection.h"
#include "server/ConnectionTable.h"
#include "server/Exchange.h"
#include "server/ExchangeCut.h"
#include "vireo/HttpBaseRequest.h"
#include "vireo/HttpServerImpl.h"
#include "vireo/support/SystemError.h"
#include "vireo/support/qlLog.h"
#include "vireo/support/qlSystemUtils.h"
#include "websocket/SocketPort.h"

#include <algorithm>
#include <system_error>
#include <utility>

namespace ql::impl {

namespace {

/// The first look after a client has left; it is twice as long to each later one. So long an answer may take that is to
/// reach a client which ends its sending right after its request.
constexpr std::int64_t FirstDelayMs = 50;
constexpr std::int64_t MostDelayMs = 1000;
constexpr std::int64_t MostWaitMs = 1000;

/// What to do about the exchange of a client that has left.
enum class Step { Nothing, Tell, Cut };

Step stepForReset(Exchange& exchange) {
    const bool isUnderWay = exchange.phase() == Exchange::Phase::Answered && !exchange.isSuspended();
    return isUnderWay && exchange.noteLeaving() ? Step::Nothing : Step::Cut;
}

Step stepForEnd(Exchange& exchange, bool endsOnClientClose, bool isFirstLook) {
    switch (exchange.phase()) {
    case Exchange::Phase::Head:
    case Exchange::Phase::Body:
        return Step::Nothing;
    case Exchange::Phase::Ended:
    case Exchange::Phase::Answered:
        break;
    }
    if (isFirstLook && !exchange.isSuspended()) {
        // Most clients that close have got their answer, and the engine is about to get done with it.
        return Step::Nothing;
    }
    if (exchange.noteLeaving()) {
        return Step::Tell;
    }
    return endsOnClientClose && exchange.isSuspended() ? Step::Cut : Step::Nothing;
}

/// The engine does not hand on to a WebSocket over TLS that its peer has left, but what came before.
/// @return false while some of that is on its way.
bool showWebSocketItsEnd(ClientConnection& client) QL_REQUIRES(client.gate()) {
    const std::uint64_t end = client.endOfWebSocket().socket();
    if (!client.isReset() && (unreadBytes(client.socket()) != 0 || unreadBytes(end) != 0)) {
        return false;
    }
    shutSocket(end);
    return true;
}

} // namespace

ConnectionWatch::~ConnectionWatch() {
    stop();
}

void ConnectionWatch::start(http::HttpServerImpl& application, bool endsOnClientClose, std::int64_t periodMs,
                            std::function<void(std::int64_t nowMs)> eachPeriod) {
    application_ = &application;
    endsOnClientClose_ = endsOnClientClose;
    periodMs_ = periodMs;
    eachPeriod_ = std::move(eachPeriod);
    nextPeriodMs_ = qlSystemUtils::GetTimeBaseMs() + periodMs;
    sockets_.open();
    startThread("watch");
}

void ConnectionWatch::stop() noexcept {
    isStopping_ = true;
    sockets_.wake();
    waitThread(NoTimeLimit);
}

void ConnectionWatch::add(const ClientConnection& client) {
    if (!sockets_.add(client.socket(), client.number())) {
        throw std::system_error(lastSocketError(), std::system_category(), "nobody would notice that a client leaves");
    }
}

void ConnectionWatch::remove(const ClientConnection& client) noexcept {
    sockets_.remove(client.socket());
}

void ConnectionWatch::linger(const ClientConnection& client) noexcept {
    try {
        LingeringSocket socket(client.socket());
        if (!socket.isOpen()) {
            qlLogObject(qlLogType::Failure, "httpserver")
                << "A client may lose its answer : " << SystemError(lastSocketError()).toString();
            return;
        }
        const qlMutexLocker locker(mutex_);
        newLingering_.push_back(std::move(socket));
        isLingering_ = true;
    } catch (...) {
        logCurrentException("connection watch", "httpserver");
    }
    sockets_.wake();
}

void ConnectionWatch::run() {
    SocketWatch::NewsBuffer buffer;
    while (!isStopping_) {
        try {
            runOnce(buffer);
        } catch (...) {
            logCurrentException("connection watch", "httpserver");
        }
    }
    lingering_.clear();
}

void ConnectionWatch::runOnce(SocketWatch::NewsBuffer& buffer) {
    const std::int64_t beforeMs = qlSystemUtils::GetTimeBaseMs();
    std::int64_t untilMs = lingering_.nextDueMs(beforeMs + MostWaitMs);
    if (periodMs_ != 0) {
        untilMs = std::min(untilMs, nextPeriodMs_);
    }
    if (!due_.empty()) {
        untilMs = std::min(untilMs, due_.begin()->first);
    }
    const auto news = sockets_.wait(buffer, static_cast<int>(std::max<std::int64_t>(untilMs - beforeMs, 0)));
    const std::int64_t nowMs = qlSystemUtils::GetTimeBaseMs();
    for (const SocketWatch::News& one : news) {
        if (LingeringCloses::isKey(one.key)) {
            lingering_.take(one);
        } else {
            take(one, nowMs);
        }
    }
    takeDue(nowMs);
    takeLingering(nowMs);
    if (periodMs_ != 0 && nowMs >= nextPeriodMs_) {
        nextPeriodMs_ = nowMs + periodMs_;
        eachPeriod_(nowMs);
    }
}

void ConnectionWatch::takeLingering(std::int64_t nowMs) {
    std::vector<LingeringSocket> sockets;
    {
        const qlMutexLocker locker(mutex_);
        sockets.swap(newLingering_);
    }
    for (LingeringSocket& socket : sockets) {
        lingering_.add(std::move(socket), nowMs);
    }
    lingering_.takeDue(nowMs);
    const qlMutexLocker locker(mutex_);
    isLingering_ = lingering_.size() != 0 || !newLingering_.empty();
}

bool ConnectionWatch::isLingering() {
    const qlMutexLocker locker(mutex_);
    return isLingering_;
}

void ConnectionWatch::take(const SocketWatch::News& news, std::int64_t nowMs) {
    const auto client = connections_.find(news.key);
    if (!client) {
        return;
    }
    // What this thread does to the socket is news again.
    const bool isNew = news.isReset ? client->noteReset() : client->notePeerEnd();
    if (isNew && look(*client, true)) {
        lookLater(*client, {news.key, FirstDelayMs}, nowMs);
    }
}

void ConnectionWatch::takeDue(std::int64_t nowMs) {
    while (!due_.empty() && due_.begin()->first <= nowMs) {
        const Due due = due_.begin()->second;
        due_.erase(due_.begin());
        const auto client = connections_.find(due.number);
        if (client && look(*client, false)) {
            const std::int64_t delayMs = std::min(2 * due.delayMs, MostDelayMs);
            lookLater(*client, {due.number, delayMs}, nowMs);
        }
    }
}

void ConnectionWatch::lookLater(ClientConnection& client, const Due& due, std::int64_t nowMs) noexcept {
    try {
        due_.emplace(nowMs + due.delayMs, due);
    } catch (...) {
        logCurrentException("connection watch", "httpserver");
        // It would not be looked at any more.
        const qlMutexLocker gate(client.gate());
        client.setUnwatched();
        cutExchange(client, CutReason::ClientLeft);
    }
}

/// @return whether to look again.
bool ConnectionWatch::look(ClientConnection& client, bool isFirst) {
    {
        const qlMutexLocker locker(client.gate());
        const bool isWebSocket = client.endOfWebSocket().isOpen();
        if (!isWebSocket && !client.isOpen()) {
            return false;
        }
        if (!client.isReset()) {
            showPeerEnd(client.socket());
        }
        if (isWebSocket) {
            return isFirst || !showWebSocketItsEnd(client);
        }
        Exchange* const exchange = client.exchange();
        if (exchange == nullptr) {
            return true;
        }
        switch (client.isReset() ? stepForReset(*exchange) : stepForEnd(*exchange, endsOnClientClose_, isFirst)) {
        case Step::Nothing:
            return true;
        case Step::Cut:
            cutExchange(client, CutReason::ClientLeft);
            return true;
        case Step::Tell:
            RequestAccess::state(*client.request()).hasClientLeft = true;
        }
    }
    try {
        application_->notifyScheduler();
    } catch (...) {
        logCurrentException("notifyScheduler", "httpserver");
    }
    return true;
}

} // namespace ql::impl
