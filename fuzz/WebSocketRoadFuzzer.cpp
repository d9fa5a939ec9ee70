// Any bytes behind a real handshake, in any pieces: through the engine, the pool and back, beside a model.

#include "Check.h"
#include "Mutators.h"
#include "RoadServer.h"
#include "integration/EchoSocket.h"
#include "reliability/Choices.h"
#include "reliability/FrameModel.h"
#include "support/FakeRequest.h"
#include "support/WaitUntil.h"
#include "vireo/WebSocketThread.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>

namespace {

using namespace vireofuzz;
using namespace vireotest;

/// The server that all runs share. It echoes.
class Road {
public:
    Road() {
        auto* const application = new FakeServerImpl;
        application->onAccept = [this](ql::http::WebSocket* accepted) { addEchoSocket(pool_, accepted, alive_); };
        pool_.startThreads(2);
        port_ = serveForGood(application);
    }

    std::uint16_t port() const { return port_; }

    /// All connections are closed and destroyed.
    bool isQuiet() const { return alive_ == 0; }

private:
    std::atomic<int> alive_{0};
    ql::http::WebSocketThread pool_;
    std::uint16_t port_ = 0;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // Never destroyed: the process ends without a stop, and nothing is left to leak.
    static Road& road = *new Road;
    Choices input(data, size);
    std::string bytes;
    {
        RawClient client = openWebSocket(road.port());
        for (const std::string& piece : input.takePieces()) {
            bytes += piece;
            if (!client.trySend(piece)) {
                break; // a frame before was not accepted
            }
        }
        const ReadFrames expected = readClientFrames(bytes);
        std::string echo;
        for (const Message& message : expected.messages) {
            echo += serverFrames(message);
        }
        if (expected.failed) {
            // The connection is dropped, and with it what was still on its way.
            const std::string part = client.readToEnd();
            check(echo.substr(0, part.size()) == part, "the echo has other bytes");
        } else {
            check(client.read(echo.size()) == echo, "the echo has other bytes");
            client.endSending();
            check(client.readToEnd().empty(), "there is more than the echo");
        }
    }
    check(waitUntil([] { return road.isQuiet(); }), "a connection stays");
    return 0;
}

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t most,
                                               unsigned int seed) {
    return vireofuzz::mutateFrames(data, size, most, seed, 0);
}
