// Sends every WebSocket message back. Browsers reach it through the proxy of ../reverse-proxy.

#include "skeleton/WebSocketServer.h"

#include <memory>
#include <utility>
#include <vector>

namespace {

class EchoSocket final : public ql::http::WebSocket {
public:
    explicit EchoSocket(WebSocket&& accepted) : WebSocket(std::move(accepted)) {}

    /// On a worker of the pool; never two messages of one connection at once.
    void onMessageReceived(std::vector<unsigned char>& message, bool isBinary) override {
        writeMessage(message.data(), message.size(), isBinary);
    }
};

class EchoServer final : public skeleton::WebSocketServer {
    std::unique_ptr<ql::http::WebSocket> makeSocket(ql::http::WebSocket&& accepted) override {
        return std::make_unique<EchoSocket>(std::move(accepted));
    }
};

} // namespace

int main(int argc, char** argv) {
    ql::http::HttpServer::Parameters parameters = skeleton::parametersOf(argc, argv);
    parameters.webSocketEnabled = true;
    return skeleton::serveUntilSignal("websocket-echo", parameters, [] { return std::make_unique<EchoServer>(); });
}
