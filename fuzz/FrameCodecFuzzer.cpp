// Frames that arrive in any pieces, and messages that leave in any: the codec and a connection's queues, without a
// socket, beside a model.

#include "Check.h"
#include "reliability/Choices.h"
#include "reliability/FrameModel.h"
#include "vireo/WebSocket.h"
#include "websocket/Fakes.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

using namespace vireofuzz;
using namespace vireotest;

/// Around the size that a message goes out in one frame with: how long one of the application's own is when the number
/// for it is this one or above. Most have to be short for most runs to be.
constexpr unsigned int FirstOfLong = 0xFFE0;
constexpr unsigned int ShortestOfLong = 131000 - 16;

/// A number that the system has given to nobody.
constexpr std::uint64_t NoSystemSocket = 1000000;

std::string_view textOf(const std::vector<unsigned char>& bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

/// The other side of all runs, which keeps its memory from one to the next. Sends a piece at a time; takes what it is
/// offered, or no more than it was told, after which it would block.
class Peer {
public:
    Peer() {
        system_.receive = [this](std::uint64_t, ql::impl::SocketBuffers buffers) { return giveTo(buffers); };
        system_.send = [this](std::uint64_t, ql::impl::SocketBuffers buffers) { return takeFrom(buffers); };
    }

    void beginRun() {
        piece_ = {};
        steps_.clear();
        nextStep_ = 0;
        isFull_ = false;
        taken.clear();
    }

    void send(std::string_view piece) { piece_ = piece; }
    void willTake(std::size_t bytes) { steps_.push_back(bytes); }

    std::string taken;

private:
    static std::int64_t wouldBlock() {
        wstest::setLastError(wstest::SocketError::WouldBlock);
        return -1;
    }

    std::int64_t giveTo(ql::impl::SocketBuffers buffers) {
        const std::size_t before = piece_.size();
        for (const ql::impl::SocketBuffer& buffer : buffers) {
            const std::size_t count = piece_.copy(reinterpret_cast<char*>(buffer.data), buffer.size);
            piece_.remove_prefix(count);
        }
        return before == 0 ? wouldBlock() : static_cast<std::int64_t>(before - piece_.size());
    }

    std::int64_t takeFrom(ql::impl::SocketBuffers buffers) {
        if (std::exchange(isFull_, false)) {
            return wouldBlock();
        }
        const bool isLimited = nextStep_ < steps_.size();
        const std::size_t most = isLimited ? steps_[nextStep_++] : std::string_view::npos;
        isFull_ = isLimited;
        const std::size_t before = taken.size();
        for (const ql::impl::SocketBuffer& buffer : buffers) {
            const std::size_t room = most - (taken.size() - before);
            taken.append(reinterpret_cast<const char*>(buffer.data), std::min<std::size_t>(buffer.size, room));
        }
        return static_cast<std::int64_t>(taken.size() - before);
    }

    wstest::FakeSystem system_;
    std::string_view piece_;
    std::vector<std::size_t> steps_;
    std::size_t nextStep_ = 0;
    bool isFull_ = false;
};

/// Keeps what it receives, and answers each message with itself.
class Recorder : public ql::http::WebSocket {
public:
    Recorder() : WebSocket(ql::http::WebSocket(NoSystemSocket, nullptr)) {}

    void onMessageReceived(std::vector<unsigned char>& message, bool isBinary) override {
        received.push_back({std::string(textOf(message)), isBinary});
        writeMessage(message.data(), message.size(), isBinary);
    }

    std::vector<Message> received;
};

/// Serves the connection until it has nothing more to read. @return false when it is to be closed.
bool serve(Recorder& socket) {
    socket.setReadEnabled(true);
    while (socket.hasReadPending()) {
        if (!socket.readDataIfAvailable()) {
            return false;
        }
    }
    return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static Peer peer;
    static std::string expectedOut;
    static std::string bytes;
    static Message own;
    peer.beginRun();
    expectedOut.clear();
    bytes.clear();
    Choices input(data, size);
    Recorder socket;

    // A long message of the application's own, so that fragments are seen, too.
    const unsigned int length = input.takeNumber(0xFFFF);
    const unsigned int ownSize = length < FirstOfLong ? length % 1024 : ShortestOfLong + (length - FirstOfLong);
    own.payload.assign(ownSize, 'x');
    own.isBinary = input.takeBool();
    socket.writeMessage(own.payload.data(), own.payload.size(), own.isBinary);
    appendServerFrames(expectedOut, own);
    for (unsigned int i = input.takeNumber(8); i > 0; --i) {
        peer.willTake(input.takeNumber(0xFFFF));
    }

    bool isOpen = true;
    while (isOpen && !input.isUsedUp()) {
        const std::string_view piece = input.takePiece();
        if (piece.empty()) {
            continue;
        }
        bytes += piece;
        peer.send(piece);
        isOpen = serve(socket);
        check(!isOpen || socket.sendDataIfAvailable(), "a socket that would block ends the connection");
    }

    const ReadFrames expected = readClientFrames(bytes);
    check(isOpen == !expected.failed, "the connection is kept or dropped against the rules");
    check(socket.received == expected.messages, "other messages arrive than were sent");
    for (const Message& message : expected.messages) {
        appendServerFrames(expectedOut, message);
    }
    while (socket.hasWritePending()) {
        check(socket.sendDataIfAvailable(), "a socket that would block ends the connection");
    }
    check(peer.taken == expectedOut, "other bytes leave than were written");
    return 0;
}
