// What a WebSocket frame costs.
#include "support/Pattern.h"
#include "support/WebSocketFrames.h"
#include "vireo/WebSocket.h"
#include "websocket/Unmask.h"

#include <benchmark/benchmark.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <vector>

#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr std::array<unsigned char, 4> Key{0x37, 0xFA, 0x21, 0x3D};

void setBytes(benchmark::State& state) {
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

std::vector<unsigned char> patternBytes(std::int64_t size) {
    std::vector<unsigned char> bytes(static_cast<std::size_t>(size));
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        bytes[i] = static_cast<unsigned char>(*bench::Pattern::at(i));
    }
    return bytes;
}

void unmaskBytes(benchmark::State& state) {
    const std::vector<unsigned char> in = patternBytes(state.range(0));
    std::vector<unsigned char> out(in.size());
    for (auto _ : state) {
        ql::impl::unmask(out.data(), in.data(), in.size(), Key.data(), 1);
        benchmark::ClobberMemory();
    }
    setBytes(state);
}
BENCHMARK(unmaskBytes)->Arg(125)->Arg(1024)->Arg(16384)->Arg(1048576);

/// The yardstick of unmaskBytes.
void copyBytes(benchmark::State& state) {
    const std::vector<unsigned char> in = patternBytes(state.range(0));
    std::vector<unsigned char> out(in.size());
    for (auto _ : state) {
        std::memcpy(out.data(), in.data(), in.size());
        benchmark::ClobberMemory();
    }
    setBytes(state);
}
BENCHMARK(copyBytes)->Arg(125)->Arg(1024)->Arg(16384)->Arg(1048576);

/// Counts what it gets and answers nothing.
class Sink : public ql::http::WebSocket {
public:
    using WebSocket::WebSocket;

    void onMessageReceived(std::vector<unsigned char>& message, bool /*isBinary*/) override {
        received += message.size();
    }

    std::uint64_t received = 0;
};

/// Both ends of a connection that needs no network, with room for every message here.
class Ends {
public:
    Ends() {
        if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends_.data()) != 0) {
            throw std::runtime_error("no socket pair");
        }
        const int room = 4 * 1024 * 1024;
        for (const int end : ends_) {
            setsockopt(end, SOL_SOCKET, SO_SNDBUF, &room, sizeof room);
        }
    }
    ~Ends() {
        close(ends_[0]);
        close(ends_[1]);
    }
    Ends(const Ends&) = delete;
    Ends& operator=(const Ends&) = delete;

    std::uint64_t library() const { return static_cast<std::uint64_t>(ends_[0]); }
    int peer() const { return ends_[1]; }

private:
    std::array<int, 2> ends_{};
};

/// A masked frame from the socket to onMessageReceived(), system calls and all.
void receiveMessage(benchmark::State& state) {
    const Ends ends;
    Sink socket(ends.library(), nullptr);
    std::vector<unsigned char> frame(bench::MaxFrameHeaderBytes);
    bench::FrameHeader header;
    header.fin = true;
    header.opcode = bench::OpcodeBinary;
    header.masked = true;
    header.key = Key;
    header.payload = static_cast<std::uint64_t>(state.range(0));
    header.write(frame.data());
    frame.resize(header.bytes + header.payload);
    const auto size = static_cast<ssize_t>(frame.size());
    for (auto _ : state) {
        if (send(ends.peer(), frame.data(), frame.size(), MSG_DONTWAIT) != size) {
            state.SkipWithError("the socket has no room");
            break;
        }
        socket.setReadEnabled(true);
        const std::uint64_t before = socket.received;
        while (socket.hasReadPending() && socket.readDataIfAvailable()) {
        }
        if (socket.received - before != header.payload) {
            state.SkipWithError("no message");
            break;
        }
    }
    setBytes(state);
}
BENCHMARK(receiveMessage)->Arg(125)->Arg(16384)->Arg(131072);

/// A message from writeMessage() to the socket, system calls and all.
void sendMessage(benchmark::State& state) {
    const Ends ends;
    Sink socket(ends.library(), nullptr);
    const std::vector<unsigned char> message = patternBytes(state.range(0));
    std::vector<unsigned char> taken(message.size() + bench::MaxFrameHeaderBytes);
    for (auto _ : state) {
        socket.writeMessage(message.data(), message.size(), true);
        if (!socket.sendDataIfAvailable() || socket.hasWritePending()) {
            state.SkipWithError("the socket has no room");
            break;
        }
        if (recv(ends.peer(), taken.data(), taken.size(), MSG_DONTWAIT) < state.range(0)) {
            state.SkipWithError("no message");
            break;
        }
    }
    setBytes(state);
}
BENCHMARK(sendMessage)->Arg(125)->Arg(16384)->Arg(65536);

} // namespace
