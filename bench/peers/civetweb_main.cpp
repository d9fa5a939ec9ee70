// CivetWeb: a thread for each connection, so that --threads has to cover the connections that are open at once.
#include "support/Pattern.h"
#include "support/Program.h"
#include "support/WebSocketFrames.h"
#include "support/Work.h"

#include <civetweb.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

namespace {

void sendHead(mg_connection* connection, int status, long long length) {
    mg_response_header_start(connection, status);
    mg_response_header_add(connection, "Content-Type", bench::PlainType, -1);
    if (length < 0) {
        mg_response_header_add(connection, "Transfer-Encoding", "chunked", -1);
    } else {
        mg_response_header_add(connection, "Content-Length", std::to_string(length).c_str(), -1);
    }
    mg_response_header_send(connection);
}

/// Head and body in one write.
void answer(mg_connection* connection, const std::string& body) {
    const std::string text = std::string("HTTP/1.1 200 OK\r\nConnection: keep-alive\r\nContent-Type: ") +
                             bench::PlainType + "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" +
                             body;
    mg_write(connection, text.data(), text.size());
}

void stream(mg_connection* connection, bool lengthKnown) {
    sendHead(connection, 200, lengthKnown ? static_cast<long long>(bench::StreamBytes) : -1);
    for (std::uint64_t position = 0; position < bench::StreamBytes;) {
        const std::uint64_t size = std::min<std::uint64_t>(bench::StreamBlockBytes, bench::StreamBytes - position);
        const char* const data = bench::Pattern::at(position);
        const int sent = lengthKnown ? mg_write(connection, data, size)
                                     : mg_send_chunk(connection, data, static_cast<unsigned int>(size));
        if (sent <= 0) {
            return;
        }
        position += size;
    }
    if (!lengthKnown) {
        mg_send_chunk(connection, "", 0);
    }
}

void takeUpload(mg_connection* connection) {
    std::vector<char> block(bench::StreamBlockBytes);
    bench::UploadCheck check;
    for (int size = 0; (size = mg_read(connection, block.data(), block.size())) > 0;) {
        check.take(block.data(), static_cast<std::size_t>(size));
    }
    answer(connection, check.report());
}

int handleRequest(mg_connection* connection, void* /*data*/) {
    switch (bench::workOf(mg_get_request_info(connection)->local_uri)) {
    case bench::Work::Plain:
        answer(connection, std::string(bench::PlainBody));
        return 200;
    case bench::Work::KnownStream:
        stream(connection, true);
        return 200;
    case bench::Work::UnknownStream:
        stream(connection, false);
        return 200;
    case bench::Work::Upload:
        takeUpload(connection);
        return 200;
    case bench::Work::Slow:
        std::this_thread::sleep_for(std::chrono::milliseconds(bench::SlowMs));
        answer(connection, std::string(bench::PlainBody));
        return 200;
    case bench::Work::Whole:
    case bench::Work::Unknown:
        break;
    }
    mg_send_http_error(connection, 404, "%s", "");
    return 404;
}

int onWebSocketConnect(const mg_connection* /*connection*/, void* /*data*/) {
    return 0;
}

int onWebSocketFrame(mg_connection* connection, int bits, char* payload, std::size_t size, void* /*data*/) {
    const int opcode = bits & 0x0F;
    if (opcode == bench::OpcodeClose) {
        return 0;
    }
    return mg_websocket_write(connection, opcode, payload, size) > 0 ? 1 : 0;
}

/// Before the first request.
void addHandlers(const mg_context* created) {
    mg_context* const context = const_cast<mg_context*>(created);
    mg_set_request_handler(context, "/", handleRequest, nullptr);
    mg_set_websocket_handler(context, "/", onWebSocketConnect, nullptr, onWebSocketFrame, nullptr, nullptr);
}

} // namespace

int main(int argc, char** argv) {
    const bench::ServerOptions options = bench::ServerOptions::parse(argc, argv);
    const bench::StopSignal stop;
    bench::raiseDescriptorLimit();
    mg_init_library(MG_FEATURES_WEBSOCKET);
    const std::string port = "127.0.0.1:" + std::to_string(options.port);
    const std::string threads = std::to_string(options.threads);
    const std::array<const char*, 17> settings{"listening_ports",
                                               port.c_str(),
                                               "num_threads",
                                               threads.c_str(),
                                               "enable_keep_alive",
                                               "yes",
                                               "keep_alive_timeout_ms",
                                               "360000",
                                               "request_timeout_ms",
                                               "360000",
                                               "websocket_timeout_ms",
                                               "360000",
                                               "tcp_nodelay",
                                               "1",
                                               "listen_backlog",
                                               "1024",
                                               nullptr};
    mg_callbacks callbacks{};
    callbacks.init_context = addHandlers;
    mg_context* const context = mg_start(&callbacks, nullptr, const_cast<const char**>(settings.data()));
    if (context == nullptr) {
        std::fprintf(stderr, "bench-civetweb: cannot start\n");
        return 1;
    }
    stop.wait();
    mg_stop(context);
    mg_exit_library();
}
