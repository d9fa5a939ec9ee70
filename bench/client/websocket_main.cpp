// Loads a WebSocket echo server and verifies every echo. Prints one JSON object.
#include "client/WebSocketClient.h"
#include "support/Program.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <exception>

int main(int argc, char** argv) {
    std::uint16_t port = 0;
    unsigned int ports = 1;
    unsigned int busy = 1;
    unsigned int idle = 0;
    std::size_t bytes = 125;
    double warmUp = 0.2;
    double measured = 1;
    bool hold = false;
    CLI::App app("Loads a WebSocket echo server and verifies every echo");
    app.add_option("--port", port, "the server's first port")->required();
    app.add_option("--ports", ports, "consecutive ports to use in turn");
    app.add_option("--connections", busy, "connections that are kept busy");
    app.add_option("--idle", idle, "connections beside them that do nothing after one message");
    app.add_option("--bytes", bytes, "bytes of a message");
    app.add_option("--warm-up", warmUp, "seconds before the measurement");
    app.add_option("--seconds", measured, "seconds of the measurement");
    app.add_flag("--hold", hold, "once connected, print a line and do nothing until standard input ends");
    CLI11_PARSE(app, argc, argv);
    try {
        bench::raiseDescriptorLimit();
        bench::WebSocketClient client(bytes);
        client.open(port, ports, busy + idle);
        if (hold) {
            bench::printResult({{"connections", busy + idle}});
            while (std::getchar() != EOF) {
            }
            return 0;
        }
        client.run(busy, warmUp, measured);
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
