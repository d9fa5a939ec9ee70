#include "client/Sockets.h"

#include <array>
#include <cerrno>
#include <stdexcept>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace bench {

namespace {

constexpr int PatienceMs = 10000;

[[noreturn]] void fail(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

void waitFor(int socket, short events) {
    pollfd polled{socket, events, 0};
    if (poll(&polled, 1, PatienceMs) <= 0) {
        throw std::runtime_error("the server does not answer");
    }
}

} // namespace

Descriptor::~Descriptor() {
    if (descriptor_ >= 0) {
        close(descriptor_);
    }
}

Descriptor::Descriptor(Descriptor&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
    std::swap(descriptor_, other.descriptor_);
    return *this;
}

Descriptor connectTo(std::uint16_t port) {
    Descriptor result(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (result.get() < 0) {
        fail("socket");
    }
    const int on = 1;
    setsockopt(result.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (connect(result.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        fail("connect");
    }
    fcntl(result.get(), F_SETFL, fcntl(result.get(), F_GETFL) | O_NONBLOCK);
    return result;
}

void sendAll(int socket, const std::string& data) {
    for (std::size_t sent = 0; sent < data.size();) {
        const ssize_t count = send(socket, data.data() + sent, data.size() - sent, MSG_NOSIGNAL);
        if (count >= 0) {
            sent += static_cast<std::size_t>(count);
        } else if (errno == EAGAIN) {
            waitFor(socket, POLLOUT);
        } else {
            fail("send");
        }
    }
}

std::string receiveHead(int socket) {
    constexpr const char* End = "\r\n\r\n";
    std::string head;
    while (head.find(End) == std::string::npos) {
        std::array<char, 4096> buffer;
        const ssize_t count = recv(socket, buffer.data(), buffer.size(), 0);
        if (count > 0) {
            head.append(buffer.data(), static_cast<std::size_t>(count));
        } else if (count == 0) {
            throw std::runtime_error("the server closed the connection");
        } else if (errno == EAGAIN) {
            waitFor(socket, POLLIN);
        } else {
            fail("recv");
        }
    }
    return head;
}

Epoll::Epoll() : descriptor_(epoll_create1(EPOLL_CLOEXEC)) {
    if (descriptor_.get() < 0) {
        fail("epoll_create1");
    }
}

void Epoll::add(int descriptor, std::uint32_t events, std::uint64_t tag) {
    epoll_event event{};
    event.events = events;
    event.data.u64 = tag;
    if (epoll_ctl(descriptor_.get(), EPOLL_CTL_ADD, descriptor, &event) != 0) {
        fail("epoll_ctl");
    }
}

void Epoll::change(int descriptor, std::uint32_t events, std::uint64_t tag) {
    epoll_event event{};
    event.events = events;
    event.data.u64 = tag;
    if (epoll_ctl(descriptor_.get(), EPOLL_CTL_MOD, descriptor, &event) != 0) {
        fail("epoll_ctl");
    }
}

void Epoll::remove(int descriptor) {
    if (epoll_ctl(descriptor_.get(), EPOLL_CTL_DEL, descriptor, nullptr) != 0) {
        fail("epoll_ctl");
    }
}

int Epoll::waitForEvents(int timeoutMs) {
    const int count = epoll_wait(descriptor_.get(), events_, EventsAtOnce, timeoutMs);
    if (count < 0 && errno != EINTR) {
        fail("epoll_wait");
    }
    return count;
}

} // namespace bench
