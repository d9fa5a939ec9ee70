#include "engine/SocketWatch.h"

#include "websocket/SocketPort.h"

#include <cerrno>
#include <system_error>

#include <NativeSockets.h>

// Where the system has no epoll, only deadlines notice who leaves.
#ifdef __linux__
#    include <sys/epoll.h>
#    include <unistd.h>
#endif

namespace ql::impl {

#ifdef __linux__

namespace {

constexpr auto WakeKey = ~std::uint64_t{0};

} // namespace

struct SocketWatch::Native {
    int epoll = -1;
    WakeSignal signal;

    bool control(int operation, std::uint64_t socket, std::uint32_t events, std::uint64_t key) const {
        epoll_event event{};
        event.events = events;
        event.data.u64 = key;
        return ::epoll_ctl(epoll, operation, static_cast<int>(socket), &event) == 0;
    }
};

SocketWatch::SocketWatch() : native_(std::make_unique<Native>()) {}

SocketWatch::~SocketWatch() {
    if (native_->epoll >= 0) {
        ::close(native_->epoll);
    }
}

void SocketWatch::open() {
    native_->epoll = ::epoll_create1(EPOLL_CLOEXEC);
    if (native_->epoll < 0) {
        throw std::system_error(errno, std::generic_category(), "epoll_create1");
    }
    // Where there is none, what is to end a wait has to be waited for.
    native_->signal.open();
    native_->control(EPOLL_CTL_ADD, native_->signal.getSocket(), EPOLLIN, WakeKey);
}

bool SocketWatch::add(std::uint64_t socket, std::uint64_t key) noexcept {
    return native_->control(EPOLL_CTL_ADD, socket, EPOLLRDHUP | EPOLLET, key);
}

bool SocketWatch::addForBytes(std::uint64_t socket, std::uint64_t key) noexcept {
    return native_->control(EPOLL_CTL_ADD, socket, EPOLLIN, key);
}

void SocketWatch::remove(std::uint64_t socket) noexcept {
    native_->control(EPOLL_CTL_DEL, socket, 0, 0);
}

void SocketWatch::wake() noexcept {
    native_->signal.raise();
}

std::span<const SocketWatch::News> SocketWatch::wait(NewsBuffer& buffer, int timeoutMs) {
    std::array<epoll_event, std::tuple_size_v<NewsBuffer>> events;
    const int ready = ::epoll_wait(native_->epoll, events.data(), static_cast<int>(events.size()), timeoutMs);
    std::size_t count = 0;
    for (int i = 0; i < ready; ++i) {
        const epoll_event& event = events[static_cast<std::size_t>(i)];
        if (event.data.u64 == WakeKey) {
            native_->signal.lower();
        } else {
            // A hang-up alone may be this side's doing.
            buffer[count++] = {event.data.u64, (event.events & EPOLLERR) != 0};
        }
    }
    return std::span(buffer).first(count);
}

#else

struct SocketWatch::Native {
    WakeSignal signal;
};

SocketWatch::SocketWatch() : native_(std::make_unique<Native>()) {}

SocketWatch::~SocketWatch() = default;

void SocketWatch::open() {
    native_->signal.open();
}

bool SocketWatch::add(std::uint64_t /*socket*/, std::uint64_t /*key*/) noexcept {
    return true;
}

bool SocketWatch::addForBytes(std::uint64_t /*socket*/, std::uint64_t /*key*/) noexcept {
    return false;
}

void SocketWatch::remove(std::uint64_t /*socket*/) noexcept {}

void SocketWatch::wake() noexcept {
    native_->signal.raise();
}

std::span<const SocketWatch::News> SocketWatch::wait(NewsBuffer& /*buffer*/, int timeoutMs) {
    NativePollEntry entry{static_cast<int>(native_->signal.getSocket()), POLLIN, 0};
    if (::poll(&entry, 1, timeoutMs) > 0) {
        native_->signal.lower();
    }
    return {};
}

#endif

} // namespace ql::impl
