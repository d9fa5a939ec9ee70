#pragma once

#include <cstdint>
#include <string>

#include <sys/epoll.h>

namespace bench {

/// A descriptor that is closed with its owner.
class Descriptor {
public:
    explicit Descriptor(int descriptor = -1) : descriptor_(descriptor) {}
    ~Descriptor();
    Descriptor(Descriptor&& other) noexcept;
    Descriptor& operator=(Descriptor&& other) noexcept;

    int get() const { return descriptor_; }

private:
    int descriptor_;
};

/// A connection to 127.0.0.1, non-blocking and without send delay.
/// @throws std::system_error
Descriptor connectTo(std::uint16_t port);

/// Sends all of it, waiting as needed.
/// @throws std::system_error
void sendAll(int socket, const std::string& data);

/// Receives up to the end of a response's head, which must hold nothing beyond it.
/// @throws std::runtime_error when it is not complete within some seconds.
std::string receiveHead(int socket);

/// The readiness of many descriptors.
class Epoll {
public:
    Epoll();

    void add(int descriptor, std::uint32_t events, std::uint64_t tag);
    void change(int descriptor, std::uint32_t events, std::uint64_t tag);
    void remove(int descriptor);

    /// @param handle called with the tag and the events of each ready descriptor.
    /// @return false when nothing became ready in time.
    template <typename Handle>
    bool wait(int timeoutMs, Handle handle) {
        const int count = waitForEvents(timeoutMs);
        for (int i = 0; i < count; ++i) {
            handle(events_[i].data.u64, events_[i].events);
        }
        return count > 0;
    }

private:
    static constexpr int EventsAtOnce = 256;

    int waitForEvents(int timeoutMs);

    Descriptor descriptor_;
    epoll_event events_[EventsAtOnce];
};

} // namespace bench
