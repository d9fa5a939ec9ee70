// Loads a WebSocket echo server and verifies every echo. Prints one JSON object.
#include "client/WebSocketClient.h"
#include "support/Program.h"

#include <CLI/CLI.hpp>

#include <array>
#include <cstdio>
#include <exception>

#include <unistd.h>

namespace {

/// Answers pings until a line comes on standard input. @return false when it has ended instead.
bool waitForLine(bench::WebSocketClient& client) {
    client.waitFor(STDIN_FILENO);
    std::array<char, 64> line;
    return read(STDIN_FILENO, line.data(), line.size()) > 0;
}

} // namespace

int main(int argc, char** argv) {
    std::uint16_t port = 0;
    unsigned int ports = 1;
    unsigned int busy = 1;
    unsigned int idle = 0;
    std::size_t bytes = 125;
    double warmUp = 0.2;
    double measured = 1;
    bool hold = false;
    bool broadcast = false;
    CLI::App app("Loads a WebSocket echo server and verifies every echo");
    app.add_option("--port", port, "the server's first port")->required();
    app.add_option("--ports", ports, "consecutive ports to use in turn");
    app.add_option("--connections", busy, "connections that are kept busy");
    app.add_option("--idle", idle, "connections beside them that do nothing after one message");
    app.add_option("--bytes", bytes, "bytes of a message");
    app.add_option("--warm-up", warmUp, "seconds before the measurement");
    app.add_option("--seconds", measured, "seconds of the measurement");
    app.add_flag("--hold", hold,
                 "once connected, print a line, and for each one on standard input the pings that were answered, "
                 "until it ends");
    app.add_flag(
        "--broadcast", broadcast,
        "once connected, print a line, and measure a server that sends to all when one comes on standard input");
    CLI11_PARSE(app, argc, argv);
    try {
        bench::raiseDescriptorLimit();
        bench::WebSocketClient client(bytes);
        client.open(port, ports, busy + idle, broadcast);
        if (hold || broadcast) {
            bench::printResult({{"connections", busy + idle}});
        }
        if (hold) {
            while (waitForLine(client)) {
                bench::printResult({{"pings", static_cast<double>(client.pings())}});
            }
            return 0;
        }
        if (broadcast) {
            if (!waitForLine(client)) {
                return 0;
            }
            client.broadcast(measured);
        } else {
            client.run(busy, warmUp, measured);
        }
        const double rate = static_cast<double>(client.messages()) / client.measuredSeconds();
        bench::printResult({{"messages", static_cast<double>(client.messages())},
                            {"seconds", client.measuredSeconds()},
                            {"rate", rate},
                            {"mb_per_s", rate * static_cast<double>(bytes) / 1e6},
                            {"p50_us", client.latencies().percentile(0.5)},
                            {"p99_us", client.latencies().percentile(0.99)},
                            {"max_us", client.latencies().percentile(1)}});
    } catch (const std::exception& error) {
        std::fprintf(stderr, "bench-websocket-client: %s\n", error.what());
        return 1;
    }
}
