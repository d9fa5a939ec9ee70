// Transfers bodies, asks for slow answers, listens to events, or holds connections open; verifies all answers. Prints
// one JSON object.
#include "client/EventClient.h"
#include "client/HttpClient.h"
#include "support/Pattern.h"
#include "support/Program.h"
#include "support/Work.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <exception>
#include <fstream>

namespace {

struct Arguments {
    std::uint16_t port = 0;
    unsigned int ports = 1;
    bench::Transfer transfer;
    unsigned int slow = 200;
    unsigned int instant = 4;
    unsigned int periodMs = 10;
    unsigned int hold = 1;
    unsigned int streams = 1;
    unsigned int probes = 2;
    double seconds = 1;
    std::string file;
};

void transfer(const Arguments& arguments) {
    const bench::Transfer& transfer = arguments.transfer;
    const double seconds = bench::runTransfers(arguments.port, transfer);
    const double bytes = static_cast<double>(std::max(transfer.expectedBytes, transfer.uploadBytes)) *
                         transfer.connections * transfer.each;
    bench::printResult({{"bytes", bytes}, {"seconds", seconds}, {"mb_per_s", bytes / seconds / 1e6}});
}

void slow(const Arguments& arguments) {
    bench::SlowResult result = bench::runSlow(arguments.port, arguments.slow, arguments.instant,
                                              std::chrono::milliseconds(arguments.periodMs));
    bench::printResult({{"seconds", result.seconds},
                        {"slow_p50_us", result.slow.percentile(0.5)},
                        {"slow_max_us", result.slow.percentile(1)},
                        {"instant_count", static_cast<double>(result.instant.count())},
                        {"instant_p50_us", result.instant.percentile(0.5)},
                        {"instant_p99_us", result.instant.percentile(0.99)},
                        {"instant_max_us", result.instant.percentile(1)}});
}

void hold(const Arguments& arguments) {
    const std::vector<bench::HttpConnection> connections =
        bench::openIdle(arguments.port, arguments.ports, arguments.hold);
    bench::printResult({{"connections", static_cast<double>(connections.size())}});
    while (std::getchar() != EOF) {
    }
}

void listen(const Arguments& arguments) {
    bench::EventClient client(arguments.port, arguments.streams);
    bench::printResult({{"connections", static_cast<double>(client.count())}});
    for (int input = std::getchar(); input != EOF; input = std::getchar()) {
        if (input == '\n') {
            bench::printResult({{"seconds", client.publish()}});
        }
    }
}

void probe(const Arguments& arguments) {
    const auto duration =
        std::chrono::duration_cast<bench::Clock::duration>(std::chrono::duration<double>(arguments.seconds));
    bench::Latencies latencies =
        bench::runProbe(arguments.port, arguments.probes, std::chrono::milliseconds(arguments.periodMs), duration);
    bench::printResult({{"count", static_cast<double>(latencies.count())},
                        {"p50_us", latencies.percentile(0.5)},
                        {"p99_us", latencies.percentile(0.99)},
                        {"max_us", latencies.percentile(1)}});
}

void writeFile(const Arguments& arguments) {
    std::ofstream file(arguments.file, std::ios::binary);
    file.exceptions(std::ios::failbit | std::ios::badbit);
    for (std::uint64_t position = 0; position < bench::StreamBytes;) {
        const std::uint64_t size = std::min<std::uint64_t>(bench::Pattern::Contiguous, bench::StreamBytes - position);
        file.write(bench::Pattern::at(position), static_cast<std::streamsize>(size));
        position += size;
    }
}

} // namespace

int main(int argc, char** argv) {
    Arguments arguments;
    CLI::App app("Transfers bodies, asks for slow answers, or holds connections open; verifies all answers");
    app.require_subcommand(1);
    const auto addCommand = [&](const char* name, const char* what, void (*run)(const Arguments&)) {
        CLI::App* const command = app.add_subcommand(name, what);
        command->callback([&arguments, run] { run(arguments); });
        return command;
    };
    CLI::App* command = addCommand("get", "downloads", transfer);
    command->add_option("--port", arguments.port)->required();
    command->add_option("--path", arguments.transfer.path)->required();
    command->add_option("--bytes", arguments.transfer.expectedBytes, "of each body")->required();
    command->add_option("--connections", arguments.transfer.connections);
    command->add_option("--each", arguments.transfer.each, "transfers in sequence on each connection");
    command = addCommand("put", "uploads", transfer);
    command->add_option("--port", arguments.port)->required();
    command->add_option("--path", arguments.transfer.path);
    command->add_option("--bytes", arguments.transfer.uploadBytes, "of each body")->required();
    command->add_flag("--chunked", arguments.transfer.chunked, "without a declared length");
    command->add_option("--connections", arguments.transfer.connections);
    command->add_option("--each", arguments.transfer.each, "transfers in sequence on each connection");
    command->add_option("--silence", arguments.transfer.silenceSeconds, "seconds for which a transfer may stand still");
    command = addCommand("slow", "slow requests, and instant ones beside them", slow);
    command->add_option("--port", arguments.port)->required();
    command->add_option("--count", arguments.slow, "slow requests at once");
    command->add_option("--instant", arguments.instant, "connections for instant requests");
    command->add_option("--period-ms", arguments.periodMs, "between the requests of each of them");
    command = addCommand("hold", "one answer on each connection, then nothing until standard input ends", hold);
    command->add_option("--port", arguments.port)->required();
    command->add_option("--ports", arguments.ports, "consecutive ports to use in turn");
    command->add_option("--connections", arguments.hold);
    command = addCommand("listen", "event streams; each line of standard input publishes an event to all", listen);
    command->add_option("--port", arguments.port)->required();
    command->add_option("--streams", arguments.streams);
    command = addCommand("probe", "plain requests now and then, one at a time", probe);
    command->add_option("--port", arguments.port)->required();
    command->add_option("--connections", arguments.probes);
    command->add_option("--period-ms", arguments.periodMs, "between the requests of each connection");
    command->add_option("--seconds", arguments.seconds);
    command = addCommand("write-file", "writes the streamed body to a file", writeFile);
    command->add_option("--path", arguments.file)->required();
    try {
        bench::raiseDescriptorLimit();
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "bench-http-client: %s\n", error.what());
        return 1;
    }
}
