#include "reliability/PoolTraffic.h"

#include "reliability/Choices.h"
#include "reliability/ModelCheck.h"
#include "reliability/PoolHandlers.h"
#include "support/TestLog.h"
#include "websocket/PoolFixture.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

namespace vireotest {

namespace {

class PoolTraffic {
public:
    explicit PoolTraffic(Choices& input)
        : stopsEarly_(input.takeNumber(2) == 0),
          closesAll_(input.takeNumber(3) != 0),
          servesByHand_(input.takeNumber(2) == 0),
          workers_(1 + input.takeNumber(2)),
          startAt_(input.takeNumber(MostConnections)),
          stopAfter_(input.takeNumber(20)) {
        for (std::size_t i = 2 + input.takeNumber(MostConnections - 2); i > 0; --i) {
            plan(input, *connections_.emplace_back(std::make_unique<Connection>()));
        }
        for (std::size_t writer = 0; writer < Writers; ++writer) {
            const auto kind = static_cast<unsigned char>(FirstWriter + writer);
            for (std::size_t i = input.takeNumber(12); i > 0; --i) {
                written_[writer].push_back(numberedMessage(kind, i, input.takeNumber(900)));
            }
        }
    }

    void run() {
        {
            std::vector<std::jthread> threads;
            // Also where a comparison fails: the threads end when the pool has stopped.
            const wstest::StopAtExit stopAtExit{*pool_};
            for (std::size_t client = 0; client < Clients; ++client) {
                threads.emplace_back([this, client] { sendAsClients(client); });
            }
            for (std::size_t writer = 0; writer < Writers; ++writer) {
                threads.emplace_back([this, writer] { writeToAll(written_[writer]); });
            }
            if (servesByHand_) {
                threads.emplace_back([this] { serveByHand(); });
            }
            for (std::size_t i = 0; i < connections_.size(); ++i) {
                if (i == startAt_) {
                    pool_->startThreads(workers_);
                }
                if (!isLate(*connections_[i])) {
                    add(*connections_[i]);
                }
            }
            pool_->startThreads(workers_);
            if (stopsEarly_) {
                expectModel(delivered_.waitFor(std::min(stopAfter_, lastingMessages())), "messages are not delivered");
                threads.emplace_back([this] { pool_->stopThreads(true); });
                threads.emplace_back([this] { add(*connections_.back()); });
                pool_->stopThreads(false);
            } else {
                awaitEffects();
            }
            pool_->stopThreads(true);
        }
        compare();
    }

private:
    static constexpr std::size_t MostConnections = 6;
    static constexpr std::size_t Clients = 2;
    static constexpr std::size_t Writers = 2;
    /// The first byte of what the first writer writes. Those of what clients send are Reactions.
    static constexpr unsigned char FirstWriter = 100;

    enum class Ending { None, EndOfSending, Close, Reset, ByHandler };

    struct Connection {
        bool isLasting() const { return ending == Ending::None; }

        // Constant.
        Ending ending = Ending::None;
        std::vector<wstest::Bytes> messages;
        std::vector<wstest::Bytes> pieces; ///< in which the client sends them

        wstest::UpgradeHandle handle;
        wstest::Watch watch;

        /// While it is held, `socket` stays.
        std::mutex existence;
        ql::http::WebSocket* socket = nullptr;
        /// Until the pool has it.
        std::unique_ptr<ql::http::WebSocket> held;

        /// Who serves the connection counts, one after the other.
        std::size_t delivered = 0;
        std::atomic<bool> isServed{false};
        std::atomic<bool> isWrong{false};

        // What the client has read.
        std::size_t echoes = 0;
        std::array<std::size_t, Writers> news{};
    };

    static bool isOf(const wstest::Bytes& message, Reaction reaction) {
        return message[0] == static_cast<unsigned char>(reaction);
    }
    static bool isEchoed(const wstest::Bytes& message) {
        return isOf(message, Reaction::Echo) || isOf(message, Reaction::EchoAndClose);
    }

    void plan(Choices& input, Connection& one) {
        static constexpr std::array<Ending, 8> Endings = {Ending::None,  Ending::None,         Ending::None,
                                                          Ending::None,  Ending::EndOfSending, Ending::Close,
                                                          Ending::Reset, Ending::ByHandler};
        one.ending = Endings[input.takeNumber(Endings.size() - 1)];
        const std::size_t count = input.takeNumber(10) + 1;
        wstest::Bytes stream;
        for (std::size_t i = 0; i < count; ++i) {
            Reaction reaction = input.takeNumber(3) == 0 ? Reaction::Nothing : Reaction::Echo;
            if (one.ending == Ending::ByHandler && i + 1 == count) {
                reaction = input.takeBool() ? Reaction::Throw : Reaction::EchoAndClose;
            }
            // Large ones are answered in several frames, and not at once. After an early stop nobody would take them.
            const bool isLarge = input.takeNumber(31) == 0 && !stopsEarly_;
            const std::size_t size = isLarge ? 140000 : input.takeNumber(1500);
            one.messages.push_back(numberedMessage(static_cast<unsigned char>(reaction), i, size));
            const wstest::Bytes frame = wstest::clientFrame(0x82, one.messages.back());
            stream.insert(stream.end(), frame.begin(), frame.end());
        }
        if (!one.isLasting() && input.takeBool()) {
            wstest::Bytes part = wstest::clientFrame(0x82, wstest::Bytes(40));
            part.resize(1 + input.takeNumber(40));
            stream.insert(stream.end(), part.begin(), part.end());
        }
        for (auto rest = stream.begin(); rest != stream.end();) {
            const auto left = static_cast<std::size_t>(stream.end() - rest);
            const std::size_t wanted = input.takeNumber(0xFFF);
            const auto end = rest + static_cast<std::ptrdiff_t>(wanted == 0 ? left : std::min(left, wanted));
            one.pieces.emplace_back(rest, end);
            rest = end;
        }

        auto made = std::make_unique<wstest::PoolSocket>(
            one.handle, one.watch, [this, &one](wstest::PoolSocket& socket, wstest::Bytes& message, bool isBinary) {
                handle(one, socket, message, isBinary);
            });
        made->atDestruction = [&one] {
            const std::lock_guard lock(one.existence);
            one.socket = nullptr;
        };
        one.socket = made.get();
        one.held = std::move(made);
    }

    /// It comes while an early stop is under way.
    bool isLate(const Connection& one) const { return stopsEarly_ && &one == connections_.back().get(); }

    std::size_t lastingMessages() const {
        std::size_t count = 0;
        for (const auto& one : connections_) {
            count += one->isLasting() && !isLate(*one) ? one->messages.size() : 0;
        }
        return count;
    }

    void handle(Connection& one, wstest::PoolSocket& socket, const wstest::Bytes& message, bool isBinary) {
        if (one.isServed.exchange(true) || !isBinary || one.delivered == one.messages.size() ||
            message != one.messages[one.delivered]) {
            one.isWrong = true;
        }
        ++one.delivered;
        if (isEchoed(message)) {
            socket.writeMessage(message.data(), message.size(), isBinary);
        }
        if (one.isLasting()) {
            delivered_.add();
        }
        one.isServed = false;
        if (isOf(message, Reaction::Throw)) {
            throw HandlerFailure();
        }
        if (isOf(message, Reaction::EchoAndClose)) {
            socket.markForDeletion();
        }
    }

    void add(Connection& one) {
        pool_->addWebSocket(one.held);
        if (one.held) {
            one.isWrong = one.isWrong || !isLate(one) || one.handle.closes.count() != 1;
            one.held.reset();
        }
    }

    /// Every client of one thread sends piece by piece, in turn with the others, and ends.
    void sendAsClients(std::size_t client) {
        std::size_t left = 0;
        for (std::size_t piece = 0; piece == 0 || left > 0; ++piece) {
            left = 0;
            for (std::size_t i = client; i < connections_.size(); i += Clients) {
                Connection& one = *connections_[i];
                if (piece < one.pieces.size()) {
                    // Where the handler has closed, it does not matter that this fails.
                    wstest::sendAll(one.handle.sockets.client, one.pieces[piece]);
                    ++left;
                } else if (piece == one.pieces.size()) {
                    endAsClient(one);
                }
            }
        }
    }

    static void endAsClient(Connection& one) {
        switch (one.ending) {
        case Ending::None:
        case Ending::ByHandler:
            break;
        case Ending::EndOfSending:
            wstest::shutdownSending(one.handle.sockets.client);
            break;
        case Ending::Close:
            one.handle.sockets.closeClient();
            break;
        case Ending::Reset:
            one.handle.sockets.resetClient();
            break;
        }
    }

    void writeToAll(const std::vector<wstest::Bytes>& messages) {
        for (const wstest::Bytes& message : messages) {
            for (const auto& one : connections_) {
                const std::lock_guard lock(one->existence);
                if (one->socket != nullptr) {
                    one->socket->writeMessage(message.data(), message.size(), false);
                }
            }
        }
    }

    void serveByHand() {
        std::unique_ptr<ql::http::WebSocket> current;
        for (pool_->getFirstWebSocket(current); current; pool_->getFirstWebSocket(current)) {
            bool goesOn = false;
            try {
                goesOn = serveAsWorker(*current);
            } catch (const HandlerFailure&) {
                // It ends, then.
            }
            if (goesOn) {
                pool_->giveBackWebSocket(current);
            } else {
                current->markForDeletion();
            }
            current.reset();
        }
    }

    void awaitEffects() {
        for (const auto& one : connections_) {
            if (!one->isLasting()) {
                expectModel(one->watch.destroyed.waitFor(1), "an ended connection stays");
                continue;
            }
            expectModel(one->watch.messages.waitFor(one->messages.size()), "a message is not delivered");
            const auto isComplete = [&] {
                return one->echoes == echoesOf(*one) && one->news[0] == written_[0].size() &&
                       one->news[1] == written_[1].size();
            };
            while (!isComplete()) {
                expectModel(readMessage(*one), "a client does not receive what it must");
            }
        }
    }

    static std::size_t echoesOf(const Connection& one) {
        return static_cast<std::size_t>(std::count_if(one.messages.begin(), one.messages.end(), isEchoed));
    }

    /// Reads one message as the client, which must be the next of its source. @return false at the end.
    bool readMessage(Connection& one) {
        wstest::Bytes message;
        for (bool isFinal = false; !isFinal;) {
            const wstest::Bytes frame = wstest::receiveFrame(one.handle.sockets.client);
            if (!isWhole(frame)) {
                return false;
            }
            const wstest::ServerFrame parsed = wstest::parseServerFrames(frame).at(0);
            message.insert(message.end(), parsed.payload.begin(), parsed.payload.end());
            isFinal = parsed.fin;
        }
        if (message.at(0) >= FirstWriter) {
            const std::size_t writer = message[0] - FirstWriter;
            std::size_t& next = one.news.at(writer);
            expectModel(next < written_[writer].size() && message == written_[writer][next],
                        "a client receives something else than what was written");
            ++next;
            return true;
        }
        std::size_t echo = 0;
        for (const wstest::Bytes& sent : one.messages) {
            if (isEchoed(sent) && echo++ == one.echoes) {
                expectModel(message == sent, "a client receives something else than its echo");
                ++one.echoes;
                return true;
            }
        }
        throw std::logic_error("a client receives more than its echoes");
    }

    /// Whether the end of the connection has not cut it off.
    static bool isWhole(const wstest::Bytes& frame) {
        const std::optional<wstest::FrameSizes> sizes = wstest::frameSizes(frame);
        return sizes && frame.size() == sizes->header + sizes->payload;
    }

    void compare() {
        if (closesAll_) {
            pool_->closeAll();
        }
        pool_.reset();
        std::size_t throws = 0;
        for (const auto& one : connections_) {
            const wstest::Bytes& last = one->messages.back();
            throws += one->delivered == one->messages.size() && isOf(last, Reaction::Throw) ? 1U : 0U;
        }
        expectModel(servesByHand_ || log_.lines().size() == throws, "another number of lines in the log");
        for (const auto& pointer : connections_) {
            Connection& one = *pointer;
            expectModel(!one.isWrong,
                        "messages are delivered out of order or twice at once, or a pool refuses wrongly");
            expectModel(one.watch.destroyed.count() == 1, "a connection is not destroyed once");
            const std::size_t closes = one.handle.closes.count();
            // Left open by the pool, unless a thread had it in hand at the stop.
            const bool mayStayOpen = !closesAll_ && (stopsEarly_ || one.isLasting());
            expectModel(closes == 1 || (closes == 0 && mayStayOpen), "a connection is not closed once");
            const bool losesMessages = one.ending == Ending::Close || one.ending == Ending::Reset;
            expectModel(stopsEarly_ || losesMessages || one.delivered == one.messages.size(), "messages are lost");
            if (!losesMessages) {
                // What comes before the end is in order, too; and it is all where all had its effect.
                one.handle.sockets.closeServer();
                while (readMessage(one)) {
                }
            }
        }
    }

    const bool stopsEarly_;
    const bool closesAll_;
    const bool servesByHand_;
    const unsigned int workers_;
    const std::size_t startAt_;   ///< before this connection is added
    const std::size_t stopAfter_; ///< so many messages
    std::array<std::vector<wstest::Bytes>, Writers> written_;
    wstest::FakeEngine engine_;
    const wstest::UnlimitedPolls polls_;
    TestLog log_;
    wstest::Counter delivered_; ///< of lasting connections
    std::vector<std::unique_ptr<Connection>> connections_;
    std::unique_ptr<ql::http::WebSocketThread> pool_ = std::make_unique<ql::http::WebSocketThread>();
};

} // namespace

void runPoolTraffic(Choices& input) {
    PoolTraffic(input).run();
}

} // namespace vireotest
