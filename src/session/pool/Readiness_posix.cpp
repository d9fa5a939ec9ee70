#include "session/pool/Readiness.h"

#ifdef __linux__
#    include <algorithm>
#    include <array>
#    include <cerrno>
#    include <ctime>
#    include <sys/epoll.h>
#    include <sys/eventfd.h>
#    include <sys/timerfd.h>
#    include <system_error>
#    include <unistd.h>
#else
#    include "session/pool/PollReadiness.h"
#endif

namespace ql::impl {

#ifdef __linux__

namespace {

// No socket has these: a pool doesn't come to so high numbers.
constexpr auto WakeId = ~std::uint64_t{0};
constexpr auto AlarmId = WakeId - 1;

class Descriptor {
public:
    /// @throws std::system_error when the system did not give one.
    Descriptor(int number, const char* call) : number_(number) {
        if (number_ < 0) {
            throw std::system_error(errno, std::generic_category(), call);
        }
    }
    ~Descriptor() { ::close(number_); }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int get() const { return number_; }

private:
    const int number_;
};

/// News are edges: each wakes one of the threads that wait, and a socket stays in the set as it is from one turn to the
/// next. Room to write is asked for only while it is wanted. Where the engine stands between, for TLS, it would be news
/// with everything that the engine takes.
class EpollReadiness final : public Readiness {
public:
    EpollReadiness() {
        add(static_cast<std::uint64_t>(signal_.get()), EPOLLIN | EPOLLET, WakeId);
        add(static_cast<std::uint64_t>(alarm_.get()), EPOLLIN | EPOLLET, AlarmId);
    }

    void watch(WatchedSocket& watched) override { add(watched.socket, eventsFor(watched), watched.id); }

    void rearm(WatchedSocket& watched, bool forReading, bool forWriting) noexcept override {
        if (watched.forReading != forReading || watched.forWriting != forWriting) {
            watched.forReading = forReading;
            watched.forWriting = forWriting;
            // Looks at the socket again: what is there already is news. It cannot fail with a socket in the set.
            (void)control(EPOLL_CTL_MOD, watched.socket, eventsFor(watched), watched.id);
        }
    }

    void forget(const WatchedSocket& watched) noexcept override {
        (void)control(EPOLL_CTL_DEL, watched.socket, 0, watched.id);
    }

    WaitResult wait(std::span<News> news, bool blocking) override {
        std::array<epoll_event, MostNews> events;
        const std::size_t most = std::min(news.size(), events.size());
        const int found = ::epoll_wait(epoll_.get(), events.data(), static_cast<int>(most), blocking ? -1 : 0);
        WaitResult result;
        for (int i = 0; i < found; ++i) {
            const epoll_event& event = events[static_cast<std::size_t>(i)];
            if (event.data.u64 == WakeId) {
                result.woken = true;
            } else if (event.data.u64 == AlarmId) {
                result.alarm = true;
            } else {
                news[result.count++] = {event.data.u64, (event.events & EPOLLIN) != 0, (event.events & EPOLLOUT) != 0,
                                        (event.events & (EPOLLRDHUP | EPOLLHUP | EPOLLERR)) != 0};
            }
        }
        return result;
    }

    void wake() noexcept override {
        // Each time is an edge: nobody has to read it.
        const std::uint64_t once = 1;
        [[maybe_unused]] const ssize_t written = ::write(signal_.get(), &once, sizeof once);
    }

    void setAlarm(std::int64_t inMs) noexcept override {
        itimerspec time{};
        if (inMs != NoAlarm) {
            time.it_value.tv_sec = static_cast<std::time_t>(inMs / 1000);
            // 0 would switch it off.
            time.it_value.tv_nsec = std::max(static_cast<long>(inMs % 1000) * 1000000, 1L);
        }
        (void)::timerfd_settime(alarm_.get(), 0, &time, nullptr);
    }

private:
    static std::uint32_t eventsFor(const WatchedSocket& watched) {
        std::uint32_t events = EPOLLET;
        if (watched.forReading) {
            events |= EPOLLIN | EPOLLRDHUP;
        }
        if (watched.forWriting) {
            events |= EPOLLOUT;
        }
        return events;
    }

    bool control(int operation, std::uint64_t socket, std::uint32_t events, std::uint64_t id) const noexcept {
        epoll_event event{};
        event.events = events;
        event.data.u64 = id;
        return ::epoll_ctl(epoll_.get(), operation, static_cast<int>(socket), &event) == 0;
    }

    void add(std::uint64_t socket, std::uint32_t events, std::uint64_t id) const {
        if (!control(EPOLL_CTL_ADD, socket, events, id)) {
            throw std::system_error(errno, std::generic_category(), "epoll_ctl");
        }
    }

    const Descriptor epoll_{::epoll_create1(EPOLL_CLOEXEC), "epoll_create1"};
    const Descriptor alarm_{::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK), "timerfd_create"};
    const Descriptor signal_{::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK), "eventfd"};
};

} // namespace

std::unique_ptr<Readiness> makeReadiness() {
    return std::make_unique<EpollReadiness>();
}

#else

std::unique_ptr<Readiness> makeReadiness() {
    return std::make_unique<PollReadiness>();
}

#endif

} // namespace ql::impl
