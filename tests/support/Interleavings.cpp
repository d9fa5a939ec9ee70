#include "support/Interleavings.h"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <random>
#include <thread>

namespace vireotest {

namespace {

/// Leaves the body of a thread whose run has failed.
struct Abandoned {};

/// Which of the threads that can go on does: by number among them.
using Chooser = std::function<std::size_t(std::size_t count)>;

constexpr std::size_t Unlimited = static_cast<std::size_t>(-1);

/// One run. Exactly one of the threads, or the one that makes them, works at a time.
class Run {
public:
    /// @param preemptions how often a thread may be held up that could go on.
    Run(std::size_t preemptions, Chooser chooser) : preemptions_(preemptions), chooser_(std::move(chooser)) {}

    std::string execute(const std::vector<Interleavings::Body>& bodies) {
        for (std::size_t i = 0; i < bodies.size(); ++i) {
            threads_.emplace_back();
        }
        living_ = bodies.size();
        std::vector<std::thread> native;
        for (std::size_t i = 0; i < bodies.size(); ++i) {
            native.emplace_back([this, i, &body = bodies[i]] { live(i, body); });
        }
        {
            std::unique_lock lock(mutex_);
            chooseNext();
            done_.wait(lock, [this] { return living_ == 0; });
        }
        for (std::thread& thread : native) {
            thread.join();
        }
        return failure_;
    }

    void step(const std::function<bool()>& ready) {
        std::unique_lock lock(mutex_);
        Thread& self = threads_[current];
        self.ready = ready;
        chooseNext();
        await(lock, self);
    }

    void fail(const std::string& reason) {
        const std::unique_lock lock(mutex_);
        if (failure_.empty()) {
            failure_ = reason;
        }
    }

    static thread_local Run* run;
    static thread_local std::size_t current;

private:
    struct Thread {
        bool ended = false;
        std::function<bool()> ready;
        std::condition_variable turn;
        bool mayGo = false;
    };

    void live(std::size_t number, const Interleavings::Body& body) {
        run = this;
        current = number;
        try {
            {
                std::unique_lock lock(mutex_);
                await(lock, threads_[number]);
            }
            body();
        } catch (const Abandoned&) {
            // The failure is noted already.
        }
        const std::unique_lock lock(mutex_);
        threads_[number].ended = true;
        if (--living_ == 0) {
            done_.notify_all();
        } else {
            chooseNext();
        }
    }

    void await(std::unique_lock<std::mutex>& lock, Thread& self) {
        self.turn.wait(lock, [&] { return self.mayGo; });
        self.mayGo = false;
        if (!failure_.empty()) {
            throw Abandoned();
        }
    }

    void chooseNext() {
        if (!failure_.empty()) {
            leaveOneByOne();
            return;
        }
        // The one that worked last comes first, so that choosing another is what can be counted.
        std::vector<std::size_t> able;
        for (std::size_t i = 0; i < threads_.size(); ++i) {
            const std::size_t number = (last_ + i) % threads_.size();
            const Thread& thread = threads_[number];
            if (!thread.ended && (!thread.ready || thread.ready())) {
                able.push_back(number);
            }
        }
        if (able.empty()) {
            if (living_ > 0) {
                failure_ = "no thread can go on";
                leaveOneByOne();
            }
            return;
        }
        const bool lastIsAble = able.front() == last_;
        const std::size_t choice = lastIsAble && preemptions_ == 0 ? 0 : chooser_(able.size());
        if (lastIsAble && choice != 0 && preemptions_ != Unlimited) {
            --preemptions_;
        }
        last_ = able[choice];
        wake(threads_[last_]);
    }

    /// Each throws when it is woken, and wakes the next when it has ended.
    void leaveOneByOne() {
        for (Thread& thread : threads_) {
            if (!thread.ended) {
                wake(thread);
                return;
            }
        }
    }

    static void wake(Thread& thread) {
        thread.mayGo = true;
        thread.turn.notify_all();
    }

    std::size_t preemptions_;
    const Chooser chooser_;
    std::mutex mutex_;
    std::condition_variable done_;
    std::deque<Thread> threads_;
    std::size_t living_ = 0;
    std::size_t last_ = 0;
    std::string failure_;
};

thread_local Run* Run::run = nullptr;
thread_local std::size_t Run::current = 0;

} // namespace

Interleavings::Result Interleavings::all(const Case& makeCase, std::size_t preemptions) {
    /// At each choice of the last run: what was taken, of how many.
    struct Choice {
        std::size_t taken;
        std::size_t count;
    };
    std::vector<Choice> path;
    Result result;
    do {
        std::size_t depth = 0;
        Run run(preemptions, [&](std::size_t count) {
            if (depth == path.size()) {
                path.push_back({0, count});
            }
            return path[depth++].taken;
        });
        result.failure = run.execute(makeCase());
        ++result.runs;
        while (!path.empty() && path.back().taken + 1 == path.back().count) {
            path.pop_back();
        }
        if (!path.empty()) {
            ++path.back().taken;
        }
    } while (result.failure.empty() && !path.empty());
    return result;
}

Interleavings::Result Interleavings::random(const Case& makeCase, std::uint64_t runs, std::uint32_t seed) {
    std::mt19937 generator(seed);
    Result result;
    while (result.failure.empty() && result.runs < runs) {
        Run run(Unlimited, [&](std::size_t count) { return generator() % count; });
        result.failure = run.execute(makeCase());
        ++result.runs;
    }
    return result;
}

void Interleavings::point() {
    Run::run->step({});
}

void Interleavings::waitUntil(const std::function<bool()>& ready) {
    Run::run->step(ready);
}

void Interleavings::fail(const std::string& reason) {
    Run::run->fail(reason);
}

} // namespace vireotest
