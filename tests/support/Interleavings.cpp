#include "support/Interleavings.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <mutex>
#include <random>
#include <sstream>
#include <thread>
#include <utility>

namespace vireotest {

namespace {

/// Leaves the body of a thread whose run has failed.
struct Abandoned {};

/// Which of the threads that can go on does: by number among them.
using Chooser = std::function<std::size_t(std::size_t count)>;
using OnFailure = Interleavings::OnFailure;

constexpr std::size_t Unlimited = static_cast<std::size_t>(-1);
constexpr std::size_t Nobody = static_cast<std::size_t>(-1);
/// A run of more steps does not end.
constexpr std::uint64_t MaxSteps = 1000000;
/// So often may a thread look for what nobody brings, before time goes on.
constexpr std::uint64_t MaxFruitlessYields = 1000;
/// And so often may it keep its core all the same, where the choice is random.
constexpr std::uint64_t MaxRandomYields = 20;

/// How long the system may take to bring a byte from one socket to another.
constexpr std::chrono::milliseconds SystemsPatience{2000};
constexpr std::chrono::milliseconds SystemsPause{1};

/// One run. Exactly one of the threads, or the one that makes them, works at a time.
class Run {
public:
    /// @param name of this run, in the text of its failure.
    /// @param preemptions how often a thread may be held up that could go on.
    Run(std::string name, std::size_t preemptions, Chooser chooser, OnFailure onFailure)
        : name_(std::move(name)), preemptions_(preemptions), chooser_(std::move(chooser)), onFailure_(onFailure) {}

    std::string execute(const std::vector<Interleavings::Body>& bodies);
    void step(const std::function<bool()>& ready, std::int64_t deadlineNs = Interleavings::NoDeadline,
              bool isYield = false);
    void fail(const std::string& reason);

    std::size_t announce();
    void begin(std::size_t number);
    void end(std::size_t number);
    bool hasEnded(std::size_t number);
    std::int64_t nowNs();

private:
    struct Thread {
        bool ended = false;
        std::function<bool()> ready;
        std::int64_t deadlineNs = Interleavings::NoDeadline;
        bool isYielding = false;
        bool mayGo = false;
        std::condition_variable turn;
    };

    void live(std::size_t number, const Interleavings::Body& body);
    void await(std::unique_lock<std::mutex>& lock, Thread& self);
    void chooseNext();
    /// Those that can go on, the one that worked last first, so that choosing another is what can be counted.
    std::vector<std::size_t> ableThreads();
    /// What threads wait for may be on its way in the system, with which nobody is scheduled.
    std::vector<std::size_t> threadsThatTheSystemLetsGo();
    bool isAble(const Thread& thread) const;
    /// @return whether a thread waits for a moment, which has come now.
    bool passTime();
    void noteFailure(const std::string& reason);
    /// Each throws when it is woken, and wakes the next when it has ended.
    void leaveOneByOne();
    static void wake(Thread& thread);

    const std::string name_;
    std::size_t preemptions_;
    const Chooser chooser_;
    const OnFailure onFailure_;
    std::mutex mutex_;
    std::condition_variable done_;
    std::deque<Thread> threads_;
    std::size_t living_ = 0;
    std::size_t last_ = 0;
    std::int64_t nowNs_ = 0;
    std::uint64_t steps_ = 0;
    std::uint64_t fruitlessYields_ = 0;
    /// Who worked, in a row.
    std::vector<std::size_t> schedule_;
    std::string failure_;
};

Run* currentRun = nullptr;
/// Of the calling thread, in that run.
thread_local std::size_t current = Nobody;
/// The calling thread is in a call of this file, where its locks are the system's.
thread_local bool isInside = false;

/// What a thread does in here is no step.
class Inside {
public:
    Inside() : before_(isInside) { isInside = true; }
    ~Inside() { isInside = before_; }
    Inside(const Inside&) = delete;
    Inside& operator=(const Inside&) = delete;

private:
    const bool before_;
};

std::string Run::execute(const std::vector<Interleavings::Body>& bodies) {
    currentRun = this;
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
    currentRun = nullptr;
    return failure_;
}

void Run::step(const std::function<bool()>& ready, std::int64_t deadlineNs, bool isYield) {
    std::unique_lock lock(mutex_);
    Thread& self = threads_[current];
    self.ready = ready;
    self.deadlineNs = deadlineNs;
    self.isYielding = isYield;
    chooseNext();
    await(lock, self);
}

void Run::fail(const std::string& reason) {
    const std::unique_lock lock(mutex_);
    noteFailure(reason);
}

std::size_t Run::announce() {
    const std::unique_lock lock(mutex_);
    threads_.emplace_back();
    ++living_;
    return threads_.size() - 1;
}

void Run::begin(std::size_t number) {
    std::unique_lock lock(mutex_);
    current = number;
    await(lock, threads_[number]);
}

void Run::end(std::size_t number) {
    const std::unique_lock lock(mutex_);
    current = Nobody;
    threads_[number].ended = true;
    fruitlessYields_ = 0;
    if (--living_ == 0) {
        done_.notify_all();
    } else {
        chooseNext();
    }
}

bool Run::hasEnded(std::size_t number) {
    return threads_[number].ended;
}

std::int64_t Run::nowNs() {
    return nowNs_;
}

void Run::live(std::size_t number, const Interleavings::Body& body) {
    try {
        {
            const Inside inside;
            begin(number);
        }
        body();
    } catch (const Abandoned&) {
        // The failure is noted already.
    }
    const Inside inside;
    end(number);
}

void Run::await(std::unique_lock<std::mutex>& lock, Thread& self) {
    self.turn.wait(lock, [&] { return self.mayGo; });
    self.mayGo = false;
    if (!failure_.empty()) {
        throw Abandoned();
    }
}

void Run::chooseNext() {
    if (failure_.empty() && ++steps_ > MaxSteps) {
        noteFailure("it does not end");
    }
    if (!failure_.empty()) {
        leaveOneByOne();
        return;
    }
    std::vector<std::size_t> able = ableThreads();
    while (able.empty() && living_ > 0 && passTime()) {
        able = ableThreads();
    }
    if (able.empty() && living_ > 0) {
        able = threadsThatTheSystemLetsGo();
    }
    if (able.empty()) {
        if (living_ > 0) {
            noteFailure("no thread can go on");
            leaveOneByOne();
        }
        return;
    }
    const bool lastIsAble = able.front() == last_ && !threads_[last_].isYielding;
    const std::size_t choice = able.size() == 1 || (lastIsAble && preemptions_ == 0) ? 0 : chooser_(able.size());
    if (lastIsAble && choice != 0 && preemptions_ != Unlimited) {
        --preemptions_;
    }
    if (able[choice] != std::exchange(last_, able[choice])) {
        fruitlessYields_ = 0;
    } else if (threads_[last_].isYielding) {
        ++fruitlessYields_;
    }
    if (schedule_.empty() || schedule_.back() != last_) {
        schedule_.push_back(last_);
    }
    wake(threads_[last_]);
}

std::vector<std::size_t> Run::ableThreads() {
    std::vector<std::size_t> able;
    std::vector<std::size_t> yielding;
    for (std::size_t i = 0; i < threads_.size(); ++i) {
        const std::size_t number = (last_ + i) % threads_.size();
        if (isAble(threads_[number])) {
            (threads_[number].isYielding ? yielding : able).push_back(number);
        }
    }
    if (preemptions_ == Unlimited && fruitlessYields_ < MaxRandomYields) {
        // A thread that offers its core may keep it.
        able.insert(able.end(), yielding.begin(), yielding.end());
    } else if (able.empty() && !yielding.empty() && fruitlessYields_ < MaxFruitlessYields) {
        // In turns: what one of them waits for another may bring. No choice, which would make as many runs as looks.
        const auto next = std::ranges::find_if(yielding, [this](std::size_t number) { return number != last_; });
        able.push_back(next == yielding.end() ? last_ : *next);
    }
    return able;
}

std::vector<std::size_t> Run::threadsThatTheSystemLetsGo() {
    std::vector<std::size_t> able;
    for (auto wait = SystemsPatience; able.empty() && wait > std::chrono::milliseconds(0); wait -= SystemsPause) {
        std::this_thread::sleep_for(SystemsPause);
        able = ableThreads();
    }
    return able;
}

bool Run::isAble(const Thread& thread) const {
    return !thread.ended && (!thread.ready || thread.deadlineNs <= nowNs_ || thread.ready());
}

bool Run::passTime() {
    std::int64_t next = Interleavings::NoDeadline;
    for (const Thread& thread : threads_) {
        if (!thread.ended && thread.ready) {
            next = std::min(next, thread.deadlineNs);
        }
    }
    if (next == Interleavings::NoDeadline) {
        return false;
    }
    nowNs_ = std::max(nowNs_, next);
    fruitlessYields_ = 0;
    return true;
}

void Run::noteFailure(const std::string& reason) {
    if (!failure_.empty()) {
        return;
    }
    std::ostringstream text;
    text << reason << " (" << name_ << "); threads in turns:";
    for (const std::size_t number : schedule_) {
        text << ' ' << number;
    }
    failure_ = text.str();
    if (onFailure_ == OnFailure::EndProcess) {
        std::fprintf(stderr, "%s\n", failure_.c_str());
        std::fflush(nullptr);
        std::_Exit(1);
    }
}

void Run::leaveOneByOne() {
    for (Thread& thread : threads_) {
        if (!thread.ended) {
            wake(thread);
            return;
        }
    }
}

void Run::wake(Thread& thread) {
    thread.mayGo = true;
    thread.turn.notify_all();
}

} // namespace

Interleavings::Result Interleavings::all(const Case& makeCase, std::size_t preemptions, OnFailure onFailure) {
    /// At each choice of the last run: what was taken, of how many.
    struct Choice {
        std::size_t taken;
        std::size_t count;
    };
    std::vector<Choice> path;
    Result result;
    do {
        std::size_t depth = 0;
        Run run(
            "run " + std::to_string(result.runs), preemptions,
            [&](std::size_t count) {
                if (depth == path.size()) {
                    path.push_back({0, count});
                }
                return std::min(path[depth++].taken, count - 1);
            },
            onFailure);
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

Interleavings::Result Interleavings::random(const Case& makeCase, std::uint64_t runs, std::uint32_t seed,
                                            OnFailure onFailure) {
    Result result;
    for (; result.failure.empty() && result.runs < runs; ++result.runs, ++seed) {
        std::mt19937 generator(seed);
        Run run(
            "VIREO_SEED=" + std::to_string(seed), Unlimited, [&](std::size_t count) { return generator() % count; },
            onFailure);
        result.failure = run.execute(makeCase());
    }
    return result;
}

void Interleavings::point() {
    const Inside inside;
    currentRun->step({});
}

void Interleavings::waitUntil(const std::function<bool()>& ready) {
    const Inside inside;
    currentRun->step(ready);
}

bool Interleavings::waitUntil(const std::function<bool()>& ready, std::int64_t deadlineNs) {
    const Inside inside;
    currentRun->step(ready, deadlineNs);
    return ready();
}

void Interleavings::yield() {
    const Inside inside;
    currentRun->step({}, NoDeadline, true);
}

std::int64_t Interleavings::nowNs() {
    return currentRun->nowNs();
}

void Interleavings::fail(const std::string& reason) {
    const Inside inside;
    currentRun->fail(reason);
}

bool Interleavings::isScheduled() {
    return current != Nobody && !isInside;
}

std::size_t Interleavings::announce() {
    const Inside inside;
    return currentRun->announce();
}

void Interleavings::begin(std::size_t number) {
    const Inside inside;
    currentRun->begin(number);
}

void Interleavings::end() {
    const Inside inside;
    currentRun->end(current);
}

bool Interleavings::hasEnded(std::size_t number) {
    return currentRun->hasEnded(number);
}

std::size_t Interleavings::currentNumber() {
    return current;
}

} // namespace vireotest
