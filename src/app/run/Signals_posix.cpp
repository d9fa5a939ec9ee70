// SPDX-License-Identifier: MIT
#include "app/kernel/Throw.h"
#include "app/run/Signals.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace vireo::impl {

namespace {

// Lock-free atomics and write() are what a signal handler may touch.

/// How many signals have asked for the end, since the process began and when the signals were taken.
///@{
std::atomic<unsigned int> stops{0};
std::atomic<unsigned int> stopsBefore{0};
///@}
std::atomic<bool> isReloadWanted{false};
/// Where a byte wakes who waits. Of a pipe that is never closed: a signal handler may still be about to write when the
/// signals are given back.
std::atomic<int> wakingEnd{-1};
std::atomic<bool> areInUse{false};
static_assert(std::atomic<unsigned int>::is_always_lock_free && std::atomic<int>::is_always_lock_free);

/// What a write at the second end makes readable at the first.
using Pipe = std::array<int, 2>;

Pipe makePipe() {
    Pipe pipe{};
    if (::pipe2(pipe.data(), O_CLOEXEC | O_NONBLOCK) != 0) {
        throwSystemError(errno, "no pipe for signals");
    }
    return pipe;
}

const Pipe& pipeOfSignals() {
    static const Pipe pipe = makePipe();
    return pipe;
}

void writeByte(int pipeEnd) {
    const char byte = 0;
    // Where the pipe is full there are enough of them.
    [[maybe_unused]] const ssize_t written = ::write(pipeEnd, &byte, 1);
}

extern "C" void onStopSignal(int signal) {
    const int error = errno;
    if (++stops - stopsBefore > 2) {
        // Comes when this function has returned, and ends the process.
        std::signal(signal, SIG_DFL);
        std::raise(signal);
    }
    writeByte(wakingEnd);
    errno = error;
}

extern "C" void onReloadSignal(int /*signal*/) {
    const int error = errno;
    isReloadWanted = true;
    writeByte(wakingEnd);
    errno = error;
}

struct sigaction take(int signal, void (*handler)(int)) {
    struct sigaction wanted {};
    struct sigaction former {};
    wanted.sa_handler = handler;
    wanted.sa_flags = SA_RESTART;
    ::sigaction(signal, &wanted, &former);
    return former;
}

} // namespace

struct Signals::Native {
    explicit Native(bool areTaken) : hasTaken(areTaken), pipe(areTaken ? pipeOfSignals() : makePipe()) {
        if (!hasTaken) {
            return;
        }
        if (areInUse.exchange(true)) {
            throwLogicError("another App::run() of this process has the signals: give this one {.signals = false}");
        }
        stopsBefore = stops.load();
        isReloadWanted = false;
        wakingEnd = pipe[1];
        formerInterrupt = take(SIGINT, onStopSignal);
        formerTerminate = take(SIGTERM, onStopSignal);
        formerHangUp = take(SIGHUP, onReloadSignal);
    }

    ~Native() {
        if (hasTaken) {
            ::sigaction(SIGHUP, &formerHangUp, nullptr);
            ::sigaction(SIGTERM, &formerTerminate, nullptr);
            ::sigaction(SIGINT, &formerInterrupt, nullptr);
            areInUse = false;
        } else {
            ::close(pipe[0]);
            ::close(pipe[1]);
        }
    }

    Native(const Native&) = delete;
    Native& operator=(const Native&) = delete;

    const bool hasTaken;
    const Pipe pipe;
    struct sigaction formerInterrupt {};
    struct sigaction formerTerminate {};
    struct sigaction formerHangUp {};
    /// How many of the stops wait() has told.
    unsigned int toldStops = 0;
};

Signals::Signals(bool areTaken) : native_(std::make_unique<Native>(areTaken)) {}

Signals::~Signals() = default;

Signals::Wishes Signals::wait() {
    pollfd entry{native_->pipe[0], POLLIN, 0};
    while (::poll(&entry, 1, -1) < 0 && errno == EINTR) {
    }
    std::array<char, 64> bytes{};
    while (::read(native_->pipe[0], bytes.data(), bytes.size()) > 0) {
    }
    Wishes wishes;
    if (native_->hasTaken) {
        const unsigned int count = stops - stopsBefore;
        wishes.stop = native_->toldStops == 0 && count > 0;
        wishes.stopAtOnce = native_->toldStops < 2 && count > 1;
        wishes.reload = isReloadWanted.exchange(false);
        native_->toldStops = count;
    }
    return wishes;
}

void Signals::wake() {
    writeByte(native_->pipe[1]);
}

} // namespace vireo::impl
