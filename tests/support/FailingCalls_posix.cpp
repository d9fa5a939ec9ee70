#include "support/FailingCalls.h"

#include "websocket/SocketPort.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <string_view>

#include <dlfcn.h>
#include <fcntl.h>
#include <microhttpd.h>
#include <pthread.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/sendfile.h>
#include <sys/socket.h>
#include <sys/timerfd.h>
#include <unistd.h>

namespace vireotest {

namespace {

std::array<std::atomic<std::size_t>, 9> untilFailure{};
std::atomic<int> pollError{ENOMEM};
std::atomic<std::size_t> failures{0};
thread_local bool isSpared = false;

bool isToFail(FailingCall kind) {
    std::atomic<std::size_t>& counter = untilFailure[static_cast<std::size_t>(kind)];
    std::size_t left = counter;
    const std::size_t last = kind == FailingCall::FileRead ? 1 : 0;
    while (left > last && !counter.compare_exchange_weak(left, left - 1)) {
    }
    if (left == 1) {
        ++failures;
    }
    return left == 1;
}

/// Whether a call of the system's fails; errno then says why.
bool isToFail(FailingCall kind, int error) {
    if (isSpared || !isToFail(kind)) {
        return false;
    }
    errno = error;
    return true;
}

/// The function that the program would call if this file did not stand in front of it.
template <typename Function>
Function* real(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

std::int64_t receive(std::uint64_t socket, ql::impl::SocketBuffers buffers) {
    if (isToFail(FailingCall::Receive)) {
        errno = ECONNRESET;
        return -1;
    }
    return ql::impl::systemSocketFunctions.receive(socket, buffers);
}

std::int64_t send(std::uint64_t socket, ql::impl::SocketBuffers buffers) {
    if (isToFail(FailingCall::Send)) {
        errno = EPIPE;
        return -1;
    }
    return ql::impl::systemSocketFunctions.send(socket, buffers);
}

int poll(void* entries, std::size_t count, int timeoutMs) {
    if (isToFail(FailingCall::Poll)) {
        errno = pollError;
        return -1;
    }
    return ql::impl::systemSocketFunctions.poll(entries, count, timeoutMs);
}

const ql::impl::SocketFunctions failingFunctions = {&receive, &send, &poll};

} // namespace

void failCall(FailingCall kind, std::size_t nth) {
    isSpared = true;
    ql::impl::socketFunctions = &failingFunctions;
    untilFailure[static_cast<std::size_t>(kind)] = nth;
}

void setPollError(int error) {
    pollError = error;
}

std::size_t callFailures() {
    return failures;
}

} // namespace vireotest

// The program's own functions go before those of shared libraries.

using vireotest::FailingCall;
using vireotest::isToFail;
using vireotest::real;

extern "C" {

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*), void* argument) {
    static auto* const next = real<decltype(pthread_create)>("pthread_create");
    return isToFail(FailingCall::ThreadStart) ? EAGAIN : next(thread, attributes, body, argument);
}

MHD_Response* MHD_create_response_from_buffer(std::size_t size, void* buffer, MHD_ResponseMemoryMode mode) {
    static auto* const next = real<decltype(MHD_create_response_from_buffer)>("MHD_create_response_from_buffer");
    return isToFail(FailingCall::Engine) ? nullptr : next(size, buffer, mode);
}

MHD_Response* MHD_create_response_from_callback(std::uint64_t size, std::size_t block, MHD_ContentReaderCallback reader,
                                                void* closure, MHD_ContentReaderFreeCallback free) {
    static auto* const next = real<decltype(MHD_create_response_from_callback)>("MHD_create_response_from_callback");
    return isToFail(FailingCall::Engine) ? nullptr : next(size, block, reader, closure, free);
}

MHD_Response* MHD_create_response_for_upgrade(MHD_UpgradeHandler handler, void* closure) {
    static auto* const next = real<decltype(MHD_create_response_for_upgrade)>("MHD_create_response_for_upgrade");
    return isToFail(FailingCall::Engine) ? nullptr : next(handler, closure);
}

MHD_Result MHD_add_response_header(MHD_Response* response, const char* name, const char* value) {
    static auto* const next = real<decltype(MHD_add_response_header)>("MHD_add_response_header");
    return isToFail(FailingCall::Engine) ? MHD_NO : next(response, name, value);
}

MHD_Result MHD_queue_response(MHD_Connection* connection, unsigned int status, MHD_Response* response) {
    static auto* const next = real<decltype(MHD_queue_response)>("MHD_queue_response");
    return isToFail(FailingCall::Engine) ? MHD_NO : next(connection, status, response);
}

const char* MHD_lookup_connection_value(MHD_Connection* connection, MHD_ValueKind kind, const char* key) {
    static auto* const next = real<decltype(MHD_lookup_connection_value)>("MHD_lookup_connection_value");
    // By these the engine itself goes: without them it has received another request.
    const std::string_view name(key);
    const bool isFraming = name == "Content-Length" || name == "Transfer-Encoding";
    return !isFraming && isToFail(FailingCall::Engine) ? nullptr : next(connection, kind, key);
}

int MHD_get_connection_values(MHD_Connection* connection, MHD_ValueKind kind, MHD_KeyValueIterator iterator,
                              void* closure) {
    static auto* const next = real<decltype(MHD_get_connection_values)>("MHD_get_connection_values");
    return isToFail(FailingCall::Engine) ? 0 : next(connection, kind, iterator, closure);
}

const MHD_ConnectionInfo* MHD_get_connection_info(MHD_Connection* connection, MHD_ConnectionInfoType type, ...) {
    static auto* const next = real<decltype(MHD_get_connection_info)>("MHD_get_connection_info");
    return isToFail(FailingCall::Engine) ? nullptr : next(connection, type);
}

MHD_Result MHD_add_connection(MHD_Daemon* daemon, MHD_socket socket, const sockaddr* address, socklen_t size) {
    static auto* const next = real<decltype(MHD_add_connection)>("MHD_add_connection");
    if (isToFail(FailingCall::Engine)) {
        ::close(socket); // as the engine does
        return MHD_NO;
    }
    return next(daemon, socket, address, size);
}

int socket(int domain, int type, int protocol) noexcept {
    static auto* const next = real<decltype(socket)>("socket");
    return isToFail(FailingCall::Descriptor, EMFILE) ? -1 : next(domain, type, protocol);
}

int accept(int listener, sockaddr* address, socklen_t* size) {
    static auto* const next = real<decltype(accept)>("accept");
    return isToFail(FailingCall::Descriptor, EMFILE) ? -1 : next(listener, address, size);
}

int pipe(int* ends) noexcept {
    static auto* const next = real<decltype(pipe)>("pipe");
    return isToFail(FailingCall::Descriptor, EMFILE) ? -1 : next(ends);
}

int eventfd(unsigned int value, int flags) noexcept {
    static auto* const next = real<decltype(eventfd)>("eventfd");
    return isToFail(FailingCall::Descriptor, EMFILE) ? -1 : next(value, flags);
}

int timerfd_create(int clock, int flags) noexcept {
    static auto* const next = real<decltype(timerfd_create)>("timerfd_create");
    return isToFail(FailingCall::Descriptor, EMFILE) ? -1 : next(clock, flags);
}

int epoll_create1(int flags) noexcept {
    static auto* const next = real<decltype(epoll_create1)>("epoll_create1");
    return isToFail(FailingCall::Descriptor, EMFILE) ? -1 : next(flags);
}

int fcntl(int descriptor, int command, ...) {
    static auto* const next = real<decltype(fcntl)>("fcntl");
    va_list arguments;
    va_start(arguments, command);
    // Numbers come through as well.
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    const bool makesOne = command == F_DUPFD || command == F_DUPFD_CLOEXEC;
    return makesOne && isToFail(FailingCall::Descriptor, EMFILE) ? -1 : next(descriptor, command, argument);
}

int epoll_ctl(int epoll, int operation, int descriptor, epoll_event* event) noexcept {
    static auto* const next = real<decltype(epoll_ctl)>("epoll_ctl");
    return operation == EPOLL_CTL_ADD && isToFail(FailingCall::Watch, ENOMEM)
               ? -1
               : next(epoll, operation, descriptor, event);
}

int getsockopt(int socket, int level, int option, void* value, socklen_t* size) noexcept {
    static auto* const next = real<decltype(getsockopt)>("getsockopt");
    return isToFail(FailingCall::SocketOption, ENOBUFS) ? -1 : next(socket, level, option, value, size);
}

int setsockopt(int socket, int level, int option, const void* value, socklen_t size) noexcept {
    static auto* const next = real<decltype(setsockopt)>("setsockopt");
    return isToFail(FailingCall::SocketOption, ENOBUFS) ? -1 : next(socket, level, option, value, size);
}

int getsockname(int socket, sockaddr* address, socklen_t* size) noexcept {
    static auto* const next = real<decltype(getsockname)>("getsockname");
    return isToFail(FailingCall::SocketOption, ENOBUFS) ? -1 : next(socket, address, size);
}

ssize_t pread(int file, void* buffer, std::size_t size, off_t offset) {
    static auto* const next = real<decltype(pread)>("pread");
    return isToFail(FailingCall::FileRead, EIO) ? -1 : next(file, buffer, size, offset);
}

ssize_t pread64(int file, void* buffer, std::size_t size, off64_t offset) {
    static auto* const next = real<decltype(pread64)>("pread64");
    return isToFail(FailingCall::FileRead, EIO) ? -1 : next(file, buffer, size, offset);
}

ssize_t sendfile(int socket, int file, off_t* offset, std::size_t size) noexcept {
    static auto* const next = real<decltype(sendfile)>("sendfile");
    return isToFail(FailingCall::FileRead, EIO) ? -1 : next(socket, file, offset, size);
}

ssize_t sendfile64(int socket, int file, off64_t* offset, std::size_t size) noexcept {
    static auto* const next = real<decltype(sendfile64)>("sendfile64");
    return isToFail(FailingCall::FileRead, EIO) ? -1 : next(socket, file, offset, size);
}

} // extern "C"
