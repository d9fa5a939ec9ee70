// Frames that arrive in any pieces, and messages that leave in any: the codec and a connection's queues, without a
// socket, beside a model.

#include "Check.h"
#include "reliability/Choices.h"
#include "reliability/FrameModel.h"
#include "vireo/WebSocket.h"
#include "websocket/Fakes.h"

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
constexpr unsigned int FirstOfLong = 0xFF00;
constexpr unsigned int ShortestOfLong = 131000 - 128;

/// A number that the system has given to nobody.
constexpr std::uint64_t NoSystemSocket = 1000000;

std::string_view textOf(const std::vector<unsigned char>& bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

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
    Choices input(data, size);
    wstest::ScriptedSocket system;
    Recorder socket;

    // A long message of the application's own, so that fragments are seen, too.
    std::string expectedOut;
    const unsigned int length = input.takeNumber(0xFFFF);
    const unsigned int ownSize = length < FirstOfLong ? length % 1024 : ShortestOfLong + (length - FirstOfLong);
    const Message own{std::string(ownSize, 'x'), input.takeBool()};
    socket.writeMessage(own.payload.data(), own.payload.size(), own.isBinary);
    expectedOut += serverFrames(own);
    for (unsigned int i = input.takeNumber(8); i > 0; --i) {
        system.willAccept(input.takeNumber(0xFFFF));
        system.willRefuse(wstest::SocketError::WouldBlock);
    }

    std::string bytes;
    bool isOpen = true;
    for (const std::string& piece : input.takePieces()) {
        if (piece.empty() || !isOpen) {
            continue;
        }
        bytes += piece;
        system.willReceive({piece.begin(), piece.end()});
        system.willReceiveError(wstest::SocketError::WouldBlock);
        isOpen = serve(socket);
        check(!isOpen || socket.sendDataIfAvailable(), "a socket that would block ends the connection");
    }

    const ReadFrames expected = readClientFrames(bytes);
    check(isOpen == !expected.failed, "the connection is kept or dropped against the rules");
    check(socket.received == expected.messages, "other messages arrive than were sent");
    for (const Message& message : expected.messages) {
        expectedOut += serverFrames(message);
    }
    while (socket.hasWritePending()) {
        check(socket.sendDataIfAvailable(), "a socket that would block ends the connection");
    }
    check(textOf(system.sent) == expectedOut, "other bytes leave than were written");
    return 0;
}
