// cpp-httplib: a thread for each connection, so that --threads has to cover the connections that are open at once.
#include "support/Pattern.h"
#include "support/Program.h"
#include "support/Work.h"

#include <httplib.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <limits>
#include <string>
#include <thread>

namespace {

/// Of a type that it does not try to compress, which would be other work.
constexpr const char* Type = "application/octet-stream";
constexpr std::time_t IdleSeconds = 360;

bool writePattern(std::uint64_t position, std::uint64_t size, httplib::DataSink& sink) {
    return sink.write(bench::Pattern::at(position), std::min<std::uint64_t>(size, bench::StreamBlockBytes));
}

void addHandlers(httplib::Server& server) {
    server.Get("/", [](const httplib::Request&, httplib::Response& response) {
        response.set_content(bench::PlainBody.data(), bench::PlainBody.size(), Type);
    });
    server.Get("/known", [](const httplib::Request&, httplib::Response& response) {
        response.set_content_provider(bench::StreamBytes, Type,
                                      [](std::size_t position, std::size_t size, httplib::DataSink& sink) {
                                          return writePattern(position, size, sink);
                                      });
    });
    server.Get("/unknown", [](const httplib::Request&, httplib::Response& response) {
        response.set_chunked_content_provider(Type, [](std::size_t position, httplib::DataSink& sink) {
            if (position == bench::StreamBytes) {
                sink.done();
                return true;
            }
            return writePattern(position, bench::StreamBytes - position, sink);
        });
    });
    server.Put("/upload",
               [](const httplib::Request&, httplib::Response& response, const httplib::ContentReader& readContent) {
                   bench::UploadCheck check;
                   readContent([&](const char* data, std::size_t size) {
                       check.take(data, size);
                       return true;
                   });
                   response.set_content(check.report(), Type);
               });
    server.Get("/slow", [](const httplib::Request&, httplib::Response& response) {
        std::this_thread::sleep_for(std::chrono::milliseconds(bench::SlowMs));
        response.set_content(bench::PlainBody.data(), bench::PlainBody.size(), Type);
    });
}

} // namespace

int main(int argc, char** argv) {
    const bench::ServerOptions options = bench::ServerOptions::parse(argc, argv);
    const bench::StopSignal stop;
    bench::raiseDescriptorLimit();
    httplib::Server server;
    addHandlers(server);
    server.new_task_queue = [&] { return new httplib::ThreadPool(options.threads); };
    server.set_tcp_nodelay(true);
    server.set_keep_alive_max_count(std::numeric_limits<std::size_t>::max());
    server.set_keep_alive_timeout(IdleSeconds);
    if (!server.bind_to_port("127.0.0.1", options.port)) {
        std::fprintf(stderr, "bench-httplib: cannot listen\n");
        return 1;
    }
    std::thread listener([&] { server.listen_after_bind(); });
    stop.wait();
    server.stop();
    listener.join();
}
