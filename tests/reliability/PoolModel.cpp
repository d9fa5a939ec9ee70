#include "reliability/PoolModel.h"

#include "reliability/Choices.h"
#include "reliability/ModelCheck.h"
#include "reliability/PoolHandlers.h"
#include "support/WaitUntil.h"
#include "websocket/PoolFixture.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <limits>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

namespace vireotest {

namespace {

/// One connection, as it must be.
struct PooledConnection {
    enum class Place {
        Hand,   ///< of the caller
        Polled, ///< or about to be found ready
        Ready,
        Gone, ///< destroyed
    };
    enum class PeerState {
        Open,
        Ended,  ///< has ended its sending and still reads
        Closed, ///< in an orderly way, as far as nothing was left to read
        Reset,
    };
    struct Sent {
        std::size_t end; ///< of its bytes in all that the peer sends
        wstest::Message message;
    };

    bool isPeerThere() const { return peer == PeerState::Open || peer == PeerState::Ended; }
    /// Whether the pool, while it polls, is to find something to do for it.
    bool hasNews() const { return hasReadNews() || !queued.empty(); }
    bool hasReadNews() const { return sentBytes > receivedBytes || peer != PeerState::Open; }
    /// Whether the poll thread may take it for broken.
    bool mayBreak() const { return !isPeerThere() || (peer == PeerState::Ended && wstest::isEndOfSendingAHangUp()); }
    /// Whether the pool keeps it, whatever its threads do at the moment.
    bool isLasting() const {
        return place == Place::Hand || place == Place::Ready || (place == Place::Polled && !mayBreak());
    }
    /// How many of the peer's messages end within so many bytes.
    std::size_t wholeMessages(std::size_t bytes) const {
        std::size_t count = 0;
        while (count < messages.size() && messages[count].end <= bytes) {
            ++count;
        }
        return count;
    }

    wstest::UpgradeHandle handle;
    wstest::Watch watch;
    /// Taken by whoever is not its holder and uses it, and by its destructor.
    std::mutex existence;
    ql::http::WebSocket* socket = nullptr; ///< until it is gone
    std::unique_ptr<ql::http::WebSocket> held;

    Place place = Place::Hand;
    PeerState peer = PeerState::Open;
    wstest::Bytes unsent; ///< the rest of what the peer has begun to send
    std::size_t sentBytes = 0;
    std::size_t receivedBytes = 0;
    std::vector<Sent> messages;
    std::size_t delivered = 0;
    std::deque<wstest::Message> queued;  ///< written and not sent
    std::deque<wstest::Message> arrived; ///< sent, and not read by the peer
    bool mayLoseArrived = false;         ///< it was closed with bytes unread, which resets the connection
    std::size_t closes = 0;
    /// Which of those that became ready between two looks it was.
    std::size_t readyGroup = 0;
    bool mustBeReadable = false;
    bool mayBeReadable = false;
    /// It was polled without news, and nothing but a reset has come since.
    bool wasQuiet = false;
};

class PoolModel {
public:
    explicit PoolModel(Choices& input) : input_(input) {
        polls_.system.receive = [this](std::uint64_t socket, ql::impl::SocketBuffers buffers) {
            const std::int64_t count = ql::impl::systemSocketFunctions.receive(socket, buffers);
            receivedInTurn_ += count > 0 ? static_cast<std::size_t>(count) : 0;
            return count;
        };
    }

    void drive() {
        const std::uint32_t ending = input_.takeNumber(3);
        while (!input_.isUsedUp()) {
            act();
            if (input_.takeNumber(3) != 0) {
                settle();
            }
        }
        settle();
        end(ending);
    }

private:
    using Place = PooledConnection::Place;
    using PeerState = PooledConnection::PeerState;
    using Connection = PooledConnection;

    static constexpr std::size_t MostConnections = 8;
    /// Over one block of the queues. All that a connection gets fits into the system's buffers.
    static constexpr std::uint32_t MostPayload = 1500;

    void act() {
        switch (input_.takeNumber(23)) {
        case 0:
            add();
            break;
        case 1:
            joinTogether();
            break;
        case 2:
        case 3:
        case 4:
            take();
            break;
        case 5:
        case 6:
        case 7:
        case 8:
            if (Connection* const held = choose(&PoolModel::isHeld)) {
                serve(*held);
            }
            break;
        case 9:
            if (Connection* const held = choose(&PoolModel::isHeld)) {
                giveBack(*held);
            }
            break;
        case 10:
            if (Connection* const held = choose(&PoolModel::isHeld)) {
                close(*held);
            }
            break;
        case 11:
        case 12:
        case 13:
            if (Connection* const target = choose([](const Connection& one) { return one.isLasting(); })) {
                write(*target);
            }
            break;
        case 14:
        case 15:
        case 16:
        case 17:
            if (Connection* const sender = choose(&PoolModel::isPeerSending)) {
                sendFromPeer(*sender);
            }
            break;
        case 18:
            if (Connection* const reader = choose([](const Connection& one) { return one.isPeerThere(); })) {
                readAsPeer(*reader);
            }
            break;
        case 19:
            if (Connection* const sender = choose(&PoolModel::isPeerSending)) {
                wstest::shutdownSending(sender->handle.sockets.client);
                sender->peer = PeerState::Ended;
                sender->wasQuiet = false;
            }
            break;
        case 20:
            if (Connection* const leaving = choose([](const Connection& one) { return one.isPeerThere(); })) {
                leave(*leaving);
            }
            break;
        case 21:
            pool_->startThreads(0); // also again, and after the end
            isStarted_ = true;
            break;
        default:
            // Rarely, else little happens.
            if (input_.takeNumber(15) == 0) {
                stop(input_.takeBool());
            }
            break;
        }
    }

    static bool isHeld(const Connection& one) { return one.place == Place::Hand; }
    static bool isInPool(const Connection& one) { return one.place == Place::Polled || one.place == Place::Ready; }
    static bool isPeerSending(const Connection& one) { return one.peer == PeerState::Open && one.place != Place::Gone; }

    /// @return one of those for which `fits` holds, or null.
    template <typename Fits>
    Connection* choose(Fits fits) {
        std::vector<Connection*> fitting;
        for (const auto& one : connections_) {
            if (fits(*one)) {
                fitting.push_back(one.get());
            }
        }
        const std::size_t index = input_.takeByte();
        return fitting.empty() ? nullptr : fitting[index % fitting.size()];
    }

    template <typename Fits>
    std::size_t count(Fits fits) const {
        return static_cast<std::size_t>(
            std::count_if(connections_.begin(), connections_.end(), [&](const auto& one) { return fits(*one); }));
    }

    bool isFull() const {
        return count([](const Connection& one) { return one.place != Place::Gone; }) >= MostConnections;
    }

    bool isPolling() const { return isStarted_ && !isStopped_; }

    Connection& make() {
        Connection& made = *connections_.emplace_back(std::make_unique<Connection>());
        auto socket = std::make_unique<wstest::PoolSocket>(
            made.handle, made.watch, [this, &made](wstest::PoolSocket&, wstest::Bytes& message, bool isBinary) {
                handle(made, message, isBinary);
            });
        socket->atDestruction = [&made] { const std::lock_guard lock(made.existence); };
        made.held = std::move(socket);
        made.socket = made.held.get();
        return made;
    }

    void add() {
        if (isFull()) {
            return;
        }
        Connection& added = make();
        pool_->addWebSocket(added.held);
        expectTaken(added, Place::Polled);
    }

    /// Several join, and at once something happens to them: before the poll thread takes them up, meanwhile or after.
    void joinTogether() {
        if (isStopped_ || isFull()) {
            return;
        }
        std::vector<Connection*> added;
        for (std::size_t i = input_.takeNumber(2) + 2; i > 0; --i) {
            added.push_back(&make());
        }
        for (Connection* const one : added) {
            pool_->addWebSocket(one->held);
            expectTaken(*one, Place::Polled);
        }
        pool_->startThreads(0);
        isStarted_ = true;
        for (Connection* const one : added) {
            if (input_.takeBool()) {
                write(*one);
            } else if (input_.takeBool()) {
                sendFromPeer(*one);
            }
        }
    }

    void take() {
        if (!isStopped_) {
            settle();
            if (count([](const Connection& one) { return one.place == Place::Ready; }) == 0) {
                return; // it would wait
            }
        }
        std::unique_ptr<ql::http::WebSocket> slot;
        Connection* const old = input_.takeNumber(7) == 0 ? choose(&PoolModel::isHeld) : nullptr;
        if (old != nullptr) {
            slot = std::move(old->held);
        }
        const ql::http::WebSocket* const before = slot.get();
        pool_->getFirstWebSocket(slot);
        if (isStopped_) {
            expectModel(slot.get() == before, "a stopped pool changes the pointer");
            if (old != nullptr) {
                old->held = std::move(slot);
            }
            return;
        }
        if (old != nullptr) {
            destroyed(*old);
        }
        std::size_t firstGroup = std::numeric_limits<std::size_t>::max();
        Connection* taken = nullptr;
        for (const auto& one : connections_) {
            if (one->place == Place::Ready) {
                firstGroup = std::min(firstGroup, one->readyGroup);
                taken = one->socket == slot.get() ? one.get() : taken;
            }
        }
        expectModel(taken != nullptr, "what is taken was not ready");
        expectModel(taken->readyGroup == firstGroup, "what is taken is not the first");
        taken->held = std::move(slot);
        taken->place = Place::Hand;
        const bool isReadable = taken->held->hasReadPending();
        expectModel(isReadable || !taken->mustBeReadable, "what is readable is not noted as such");
        expectModel(!isReadable || taken->mayBeReadable, "what is not readable is noted as such");
    }

    void serve(Connection& one) {
        ql::http::WebSocket& socket = *one.held;
        const bool wasReadable = socket.hasReadPending();
        const std::size_t deliveredBefore = one.delivered;
        receivedInTurn_ = 0;
        endsByHandler_ = false;
        bool goesOn = false;
        try {
            goesOn = serveAsWorker(socket);
        } catch (const HandlerFailure&) {
            endsByHandler_ = true;
        }
        one.receivedBytes += receivedInTurn_;
        if (one.isPeerThere()) {
            // No peer here lets so much pile up that the system refuses it.
            one.arrived.insert(one.arrived.end(), one.queued.begin(), one.queued.end());
        }
        one.queued.clear();

        const std::size_t whole = one.wholeMessages(one.receivedBytes);
        expectModel(one.delivered <= whole, "a message is delivered before its end has come");
        expectModel(one.delivered <= deliveredBefore + 1, "several messages are delivered in one turn");
        expectModel(wasReadable || receivedInTurn_ == 0, "without a note of it something is received");
        if (!goesOn) {
            expectModel(endsByHandler_ || one.peer != PeerState::Open, "a sound connection is given up");
            expectModel(endsByHandler_ || one.peer != PeerState::Ended ||
                            one.delivered == one.wholeMessages(one.sentBytes),
                        "a connection is given up before the last message of its peer");
            close(one);
            return;
        }
        expectModel(!endsByHandler_, "what the handler ends goes on");
        expectModel(!one.isPeerThere() || !socket.hasWritePending(), "what was written stays");
        expectModel(socket.hasReadPending() || !wasReadable || one.delivered == whole,
                    "a connection with a message at hand is put to rest");
        giveBack(one);
    }

    void handle(Connection& one, const wstest::Bytes& message, bool isBinary) {
        expectModel(one.delivered < one.messages.size() &&
                        one.messages[one.delivered].message == wstest::Message{message, isBinary},
                    "another message is delivered");
        ++one.delivered;
        ql::http::WebSocket& socket = *one.socket;
        const auto echo = [&] {
            socket.writeMessage(message.data(), message.size(), isBinary);
            one.queued.push_back({message, isBinary});
        };
        switch (static_cast<Reaction>(message.at(0))) {
        case Reaction::Nothing:
            break;
        case Reaction::EchoTwice:
            echo();
            echo();
            break;
        case Reaction::Echo:
            echo();
            break;
        case Reaction::Throw:
            throw HandlerFailure();
        case Reaction::EchoAndClose:
            echo();
            endsByHandler_ = true;
            socket.markForDeletion();
            one.closes = 1;
            break;
        }
    }

    void giveBack(Connection& one) {
        const bool isReadable = one.held->hasReadPending();
        pool_->giveBackWebSocket(one.held);
        if (expectTaken(one, isReadable ? Place::Ready : Place::Polled) && isReadable) {
            one.readyGroup = looks_;
            one.mustBeReadable = true;
            one.mayBeReadable = true;
        }
    }

    /// After it was offered to the pool. @return whether the pool has it.
    bool expectTaken(Connection& one, Place place) {
        if (!isStopped_) {
            expectModel(one.held == nullptr, "a running pool leaves the connection");
            one.place = place;
            one.wasQuiet = false;
            return true;
        }
        expectModel(one.held != nullptr, "a stopped pool keeps the connection");
        expectModel(one.handle.closes.count() == 1, "a stopped pool does not close what it leaves");
        close(one);
        return false;
    }

    void close(Connection& one) {
        one.held->markForDeletion();
        one.held->markForDeletion();
        closed(one);
        one.held.reset();
        destroyed(one);
    }

    static void closed(Connection& one) {
        one.closes = 1;
        one.mayLoseArrived = one.mayLoseArrived || one.sentBytes > one.receivedBytes;
    }

    static void destroyed(Connection& one) {
        one.place = Place::Gone;
        one.socket = nullptr;
        expectCounts(one);
    }

    static void expectCounts(const Connection& one) {
        expectModel(one.handle.closes.count() == one.closes, "another number of closes");
        expectModel(one.watch.destroyed.count() == (one.place == Place::Gone ? 1U : 0U), "another number of ends");
        expectModel(one.watch.messages.count() == one.delivered, "another number of messages");
    }

    void write(Connection& one) {
        const bool isBinary = input_.takeBool();
        const wstest::Bytes message = numberedMessage(static_cast<unsigned char>(Reaction::Nothing), ++messageCount_,
                                                      input_.takeNumber(MostPayload));
        const auto write = [&] {
            const std::lock_guard existing(one.existence);
            one.socket->writeMessage(message.data(), message.size(), isBinary);
        };
        if (input_.takeBool()) {
            const std::jthread other(write);
        } else {
            write();
        }
        one.queued.push_back({message, isBinary});
        one.wasQuiet = false;
    }

    /// A whole message, a part of one, or what was missing of one.
    void sendFromPeer(Connection& one) {
        if (one.unsent.empty()) {
            static constexpr std::array<Reaction, 12> Reactions = {
                Reaction::Echo,    Reaction::Echo,    Reaction::Echo,      Reaction::Echo,
                Reaction::Nothing, Reaction::Nothing, Reaction::Nothing,   Reaction::Nothing,
                Reaction::Throw,   Reaction::Echo,    Reaction::EchoTwice, Reaction::EchoAndClose};
            const Reaction reaction = Reactions[input_.takeNumber(Reactions.size() - 1)];
            wstest::Message message{
                numberedMessage(static_cast<unsigned char>(reaction), ++messageCount_, input_.takeNumber(MostPayload)),
                false};
            message.isBinary = input_.takeBool();
            const unsigned char opcode = message.isBinary ? 2 : 1;
            if (input_.takeBool()) {
                // Not empty: a message begins with its first byte of payload.
                const auto cut = message.payload.begin() + 1 + input_.takeNumber(1);
                one.unsent =
                    wstest::concatenate({wstest::clientFrame(opcode, wstest::Bytes(message.payload.begin(), cut)),
                                         wstest::clientFrame(0x80, wstest::Bytes(cut, message.payload.end()))});
            } else {
                one.unsent = wstest::clientFrame(0x80U | opcode, message.payload);
            }
            one.messages.push_back({one.sentBytes + one.unsent.size(), std::move(message)});
        }
        const std::size_t size =
            input_.takeBool() ? one.unsent.size() : input_.takeNumber(0xFF) % one.unsent.size() + 1;
        const auto cut = one.unsent.begin() + static_cast<std::ptrdiff_t>(size);
        expectModel(wstest::sendAll(one.handle.sockets.client, wstest::Bytes(one.unsent.begin(), cut)),
                    "a peer cannot send");
        one.unsent.erase(one.unsent.begin(), cut);
        one.sentBytes += size;
        one.wasQuiet = false;
    }

    static void readAsPeer(Connection& one) {
        if (one.arrived.empty()) {
            return;
        }
        const wstest::Bytes frame = wstest::receiveFrame(one.handle.sockets.client);
        const std::size_t payloadSize = one.arrived.front().payload.size();
        if (one.mayLoseArrived && frame.size() < payloadSize + (payloadSize < 126 ? 2 : 4)) {
            one.arrived.clear();
            return;
        }
        const std::vector<wstest::ServerFrame> frames = wstest::parseServerFrames(frame);
        expectModel(frames.size() == 1 && frames[0].fin &&
                        wstest::Message{frames[0].payload, frames[0].opcode == 2} == one.arrived.front(),
                    "the peer receives another message");
        one.arrived.pop_front();
    }

    void leave(Connection& one) {
        // What it has begun is never finished.
        if (!one.unsent.empty()) {
            one.messages.pop_back();
            one.unsent.clear();
        }
        if (input_.takeBool()) {
            one.handle.sockets.resetClient();
            one.peer = PeerState::Reset;
        } else {
            one.handle.sockets.closeClient();
            one.peer = PeerState::Closed;
            one.wasQuiet = false;
        }
        one.arrived.clear();
    }

    void stop(bool wait) {
        pool_->stopThreads(wait);
        isStopped_ = true;
        isJoined_ = isJoined_ || wait;
        settle();
        if (isJoined_ && input_.takeBool()) {
            closeAll();
        }
    }

    void closeAll() {
        pool_->closeAll();
        for (const auto& one : connections_) {
            if (isInPool(*one)) {
                closed(*one);
                destroyed(*one);
            }
        }
    }

    /// Waits until everything has had its effect, and compares.
    void settle() {
        if (isPolling()) {
            settlePolled();
        } else if (isJoined_) {
            // What the poll thread did to those with news, before it saw the end, is its affair.
            settleBroken();
        } else if (isStopped_) {
            return;
        }
        const std::size_t polled = count([](const Connection& one) { return one.place == Place::Polled; });
        const std::size_t ready = count([](const Connection& one) { return one.place == Place::Ready; });
        if (isStopped_) {
            expectModel(wstest::PoolLook(*pool_).idle + wstest::PoolLook(*pool_).ready == polled + ready,
                        "another number of connections after the end");
        } else {
            expectModel(wstest::PoolLook(*pool_).idle == polled, "another number of idle connections");
            expectModel(wstest::PoolLook(*pool_).ready == ready, "another number of ready connections");
        }
        for (const auto& one : connections_) {
            expectCounts(*one);
        }
        ++looks_;
    }

    void settlePolled() {
        const std::size_t quiet =
            count([](const Connection& one) { return one.place == Place::Polled && !one.hasNews(); });
        expectModel(becomes([&] { return wstest::PoolLook(*pool_).idle <= quiet; }),
                    "a connection with news is left idle");
        expectModel(wstest::PoolLook(*pool_).idle == quiet, "a connection without news is not left idle");
        settleBroken();
        for (const auto& one : connections_) {
            if (one->place != Place::Polled) {
                continue;
            }
            if (!one->hasNews()) {
                one->wasQuiet = true;
                continue;
            }
            expectModel(!one->wasQuiet || one->peer != PeerState::Reset, "a broken connection is ready");
            one->place = Place::Ready;
            one->readyGroup = looks_;
            one->mayBeReadable = one->hasReadNews();
            one->mustBeReadable = one->hasReadNews() && one->queued.empty();
        }
    }

    /// Notes what the poll thread has destroyed.
    void settleBroken() {
        for (const auto& one : connections_) {
            if (one->place == Place::Polled && one->watch.destroyed.count() > 0) {
                expectModel(one->mayBreak(), "a sound connection is destroyed");
                closed(*one);
                destroyed(*one);
            }
        }
    }

    /// The pool ends in one of the ways there are.
    void end(std::uint32_t way) {
        if (way < 3) {
            stop(way == 0);
        }
        if (way < 2) {
            stop(true);
            closeAll();
        }
        pool_.reset();
        for (const auto& one : connections_) {
            if (isInPool(*one)) {
                // Stopped and not joined, it may have seen this one break.
                one->closes = one->mayBreak() && isStopped_ && !isJoined_ ? one->handle.closes.count() : 0;
                destroyed(*one);
            } else if (isHeld(*one)) {
                write(*one);
                close(*one);
            }
            expectCounts(*one);
            while (one->isPeerThere() && !one->arrived.empty()) {
                readAsPeer(*one);
            }
            if (one->isPeerThere() && one->closes > 0) {
                expectModel(one->mayLoseArrived || wstest::atEnd(one->handle.sockets.client),
                            "the peer receives more, or no end");
            }
        }
    }

    /// For what no event tells of, and what comes at once.
    template <typename Predicate>
    static bool becomes(Predicate isTrue) {
        const Deadline deadline = soon();
        while (!isTrue()) {
            if (std::chrono::steady_clock::now() >= deadline) {
                return false;
            }
            std::this_thread::yield();
        }
        return true;
    }

    Choices& input_;
    wstest::FakeEngine engine_;
    wstest::UnlimitedPolls polls_;
    std::vector<std::unique_ptr<Connection>> connections_;
    std::unique_ptr<ql::http::WebSocketThread> pool_ = std::make_unique<ql::http::WebSocketThread>();
    bool isStarted_ = false;
    bool isStopped_ = false;
    bool isJoined_ = false;
    std::size_t looks_ = 0; ///< of settle()
    std::size_t messageCount_ = 0;
    std::size_t receivedInTurn_ = 0; ///< only this thread receives
    bool endsByHandler_ = false;     ///< of the turn
};

} // namespace

void drivePoolModel(Choices& input) {
    PoolModel(input).drive();
}

} // namespace vireotest
