#pragma once

#include "session/pool/PoolTask.h"
#include "session/pool/Readiness.h"
#include "session/pool/TaskPool.h"
#include "websocket/Fakes.h"

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace pooltest {

/// What a test watches of a task; outlives it.
struct Watch {
    wstest::Counter turns;
    wstest::Counter left;
    wstest::Counter abandoned;
    wstest::Counter destroyed;
    /// Two threads were in it, or it was served after its end.
    std::atomic<bool> isBroken{false};
};

/// A task that does what the test says, by default: sends back what comes and leaves at the end of the input.
class Task : public ql::impl::PoolTask {
public:
    using Handler = std::function<ql::impl::TurnResult(Task&, const ql::impl::Turn&)>;

    explicit Task(Watch& watch, Handler handler = &echo) : watch_(watch), handler_(std::move(handler)) {
        ql::impl::prepareSocket(pair.server);
    }
    ~Task() override { watch_.destroyed.add(); }

    static ql::impl::TurnResult echo(Task& task, const ql::impl::Turn& turn) {
        using ql::impl::TurnResult;
        for (;;) {
            const ql::impl::SocketBuffer room{turn.buffer().data(), turn.buffer().size()};
            const std::int64_t count = ql::impl::receiveFromSocket(task.pair.server, {&room, 1});
            if (count < 0 && ql::impl::isWouldBlock(ql::impl::lastSocketError())) {
                return {};
            }
            if (count <= 0) {
                return {TurnResult::Next::Leave};
            }
            const ql::impl::SocketBuffer bytes{room.data, static_cast<std::uint64_t>(count)};
            ql::impl::sendToSocket(task.pair.server, {&bytes, 1});
            if (static_cast<std::uint64_t>(count) < room.size && !turn.hasInputEnded()) {
                return {};
            }
        }
    }

    /// Whether a byte comes back.
    bool answers() { return wstest::sendAll(pair.client, {7}) && wstest::receiveExactly(pair.client, 1).size() == 1; }

    wstest::SocketPair pair;

protected:
    std::uint64_t getSocket() const override { return pair.server; }

    ql::impl::TurnResult serve(const ql::impl::Turn& turn) noexcept override {
        enter();
        const ql::impl::TurnResult result = handler_(*this, turn);
        isInside_ = false;
        watch_.turns.add();
        return result;
    }
    void left() noexcept override { end(watch_.left); }
    void abandon() noexcept override { end(watch_.abandoned); }

private:
    void enter() {
        if (isInside_.exchange(true) || isOver_) {
            watch_.isBroken = true;
        }
    }
    void end(wstest::Counter& counter) {
        enter();
        isOver_ = true;
        isInside_ = false;
        pair.closeServer();
        counter.add();
    }

    Watch& watch_;
    const Handler handler_;
    std::atomic<bool> isInside_{false};
    std::atomic<bool> isOver_{false};
};

/// Tells what the test says, and keeps what it was told. The test lets go of it before it is destroyed by the pool.
class ScriptedReadiness : public ql::impl::Readiness {
public:
    /// What it knows outlives it.
    struct Script {
        std::mutex mutex;
        std::condition_variable changed;
        std::deque<std::vector<News>> news;
        bool hasAlarm = false;
        bool isWoken = false;
        std::vector<std::string> calls;
        std::vector<std::int64_t> alarms;
        std::vector<ql::impl::WatchedSocket> watched;
        std::size_t waiting = 0;
        std::size_t wakes = 0;

        /// One wait's news.
        void tell(std::vector<News> some) {
            change([&] { news.push_back(std::move(some)); });
        }
        void ring() {
            change([&] { hasAlarm = true; });
        }
        bool waitFor(const std::function<bool()>& isSo) {
            std::unique_lock<std::mutex> lock(mutex);
            return changed.wait_for(lock, wstest::Patience, isSo);
        }
        /// Until so many threads wait and nothing is left to tell.
        bool waitForQuiet(std::size_t threads) {
            return waitFor([&] { return waiting == threads && news.empty() && !hasAlarm && !isWoken; });
        }
        void change(const std::function<void()>& how) {
            {
                const std::lock_guard<std::mutex> lock(mutex);
                how();
            }
            changed.notify_all();
        }
    };

    explicit ScriptedReadiness(std::shared_ptr<Script> script) : script_(std::move(script)) {}

    void watch(ql::impl::WatchedSocket& watched) override {
        script_->change([&] { script_->watched.push_back(watched); });
    }
    void rearm(ql::impl::WatchedSocket&, bool forReading, bool forWriting) noexcept override {
        script_->change([&] {
            script_->calls.push_back(std::string("rearm") + (forReading ? " read" : "") + (forWriting ? " write" : ""));
        });
    }
    void forget(const ql::impl::WatchedSocket&) noexcept override {
        script_->change([&] { script_->calls.emplace_back("forget"); });
    }
    WaitResult wait(std::span<News> room, bool blocking) override {
        Script& script = *script_;
        std::unique_lock<std::mutex> lock(script.mutex);
        const auto hasSome = [&] { return !script.news.empty() || script.hasAlarm || script.isWoken; };
        if (blocking && !hasSome()) {
            ++script.waiting;
            script.changed.notify_all();
            script.changed.wait(lock, hasSome);
            --script.waiting;
        }
        WaitResult result;
        if (!script.news.empty()) {
            for (const News& one : script.news.front()) {
                room[result.count++] = one;
            }
            script.news.pop_front();
        } else if (std::exchange(script.hasAlarm, false)) {
            result.alarm = true;
        } else {
            result.woken = std::exchange(script.isWoken, false);
        }
        script.changed.notify_all();
        return result;
    }
    void wake() noexcept override {
        script_->change([&] {
            script_->isWoken = true;
            ++script_->wakes;
        });
    }
    void setAlarm(std::int64_t inMs) noexcept override {
        script_->change([&] { script_->alarms.push_back(inMs); });
    }

private:
    const std::shared_ptr<Script> script_;
};

} // namespace pooltest
