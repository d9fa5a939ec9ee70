#include "engine/EngineServer.h"

#include "engine/Throttle.h"
#include "support/Pattern.h"
#include "support/WebSocketFrames.h"
#include "support/Work.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <list>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include <netinet/in.h>

namespace bench {

/// What the calls of one request share, where they share something.
struct Exchange {
    enum class State { Pending, Answered, Abandoned };
    using Values = std::map<std::string, std::list<std::string>>;

    /// Answered by the worker, Abandoned by the daemon: who comes second, deletes.
    std::atomic<State> state{State::Pending};
    std::string body;
    UploadCheck upload;
    Values headers;
    Values cookies;
    Values arguments;
};

namespace {

constexpr unsigned int ListenBacklog = 1024;
constexpr unsigned int TimeoutSeconds = 360;

/// Their addresses stand in the slots of requests that need no Exchange, one for each kind of work.
std::array<char, static_cast<std::size_t>(Work::Unknown) + 1> markers;

void* markerOf(Work work) {
    return &markers[static_cast<std::size_t>(work)];
}

/// The work that the slot's content marks, if it is no Exchange.
std::optional<Work> markedWork(const void* slot) {
    const std::uintptr_t offset =
        reinterpret_cast<std::uintptr_t>(slot) - reinterpret_cast<std::uintptr_t>(markers.data());
    return offset < markers.size() ? std::optional(static_cast<Work>(offset)) : std::nullopt;
}

EngineServer::Answer answerOf(const std::string& name) {
    if (name == "maps") {
        return EngineServer::Answer::Maps;
    }
    return name == "handover" ? EngineServer::Answer::HandOver : EngineServer::Answer::Inline;
}

MHD_Result queue(MHD_Connection* connection, MHD_Response* response, unsigned int status = MHD_HTTP_OK) {
    MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_TYPE, PlainType);
    const MHD_Result result = MHD_queue_response(connection, status, response);
    MHD_destroy_response(response);
    return result;
}

MHD_Result queuePlain(MHD_Connection* connection) {
    // The engine's signature is not const; a persistent buffer is only read.
    return queue(connection, MHD_create_response_from_buffer(PlainBody.size(), const_cast<char*>(PlainBody.data()),
                                                             MHD_RESPMEM_PERSISTENT));
}

MHD_Result queueCopy(MHD_Connection* connection, std::string& body) {
    return queue(connection, MHD_create_response_from_buffer(body.size(), body.data(), MHD_RESPMEM_MUST_COPY));
}

MHD_Result queueWhole(MHD_Connection* connection) {
    static std::string whole = [] {
        std::string bytes;
        while (bytes.size() < WholeBytes) {
            bytes.append(Pattern::at(bytes.size()), std::min(Pattern::Contiguous, WholeBytes - bytes.size()));
        }
        return bytes;
    }();
    return queueCopy(connection, whole);
}

ssize_t readContent(void* /*closure*/, std::uint64_t position, char* buffer, std::size_t max) {
    if (position == StreamBytes) {
        return MHD_CONTENT_READER_END_OF_STREAM;
    }
    const std::uint64_t size = std::min<std::uint64_t>({max, StreamBytes - position, Pattern::Contiguous});
    std::memcpy(buffer, Pattern::at(position), size);
    return static_cast<ssize_t>(size);
}

MHD_Result queueStream(MHD_Connection* connection, std::uint64_t size) {
    return queue(connection, MHD_create_response_from_callback(size, StreamBlockBytes, readContent, nullptr, nullptr));
}

char lowerCase(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

MHD_Result fileValue(void* closure, MHD_ValueKind kind, const char* name, const char* value) {
    Exchange& exchange = *static_cast<Exchange*>(closure);
    std::string key(name);
    Exchange::Values* values = &exchange.arguments;
    if (kind == MHD_HEADER_KIND) {
        std::transform(key.begin(), key.end(), key.begin(), lowerCase);
        values = &exchange.headers;
    } else if (kind == MHD_COOKIE_KIND) {
        values = &exchange.cookies;
    }
    (*values)[std::move(key)].emplace_back(value == nullptr ? "" : value);
    return MHD_YES;
}

MHD_Result onAccess(void* server, MHD_Connection* connection, const char* url, const char* /*method*/,
                    const char* /*version*/, const char* data, std::size_t* dataSize, void** slot) {
    return static_cast<EngineServer*>(server)->handleCall(connection, url, data, *dataSize, *slot);
}

void* onUri(void* /*closure*/, const char* /*uri*/, MHD_Connection* /*connection*/) {
    return nullptr;
}

void onLog(void* /*closure*/, const char* format, std::va_list arguments) {
    std::vfprintf(stderr, format, arguments);
}

void onCompleted(void* /*server*/, MHD_Connection* /*connection*/, void** slot, MHD_RequestTerminationCode /*code*/) {
    if (*slot == nullptr || markedWork(*slot)) {
        return;
    }
    Exchange* const exchange = static_cast<Exchange*>(*slot);
    if (exchange->state.exchange(Exchange::State::Abandoned, std::memory_order_acq_rel) == Exchange::State::Answered) {
        delete exchange;
    }
}

/// What the daemon thread can answer without a look at the request's Exchange.
MHD_Result answerInline(MHD_Connection* connection, Work work) {
    switch (work) {
    case Work::Plain:
        return queuePlain(connection);
    case Work::KnownStream:
        return queueStream(connection, StreamBytes);
    case Work::UnknownStream:
        return queueStream(connection, MHD_SIZE_UNKNOWN);
    case Work::Whole:
        return queueWhole(connection);
    case Work::Upload:
    case Work::Slow:
    case Work::Unknown:
        break;
    }
    return queue(connection, MHD_create_response_from_buffer(0, nullptr, MHD_RESPMEM_PERSISTENT), MHD_HTTP_NOT_FOUND);
}

std::string contentOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void onUpgrade(void* server, MHD_Connection* /*connection*/, void* /*slot*/, const char* /*extra*/,
               std::size_t /*extraSize*/, MHD_socket socket, MHD_UpgradeResponseHandle* handle) {
    static_cast<EngineServer*>(server)->acceptWebSocket(socket, handle);
}

} // namespace

EngineServer::EngineServer(const ServerOptions& options)
    : answer_(answerOf(options.answer)),
      workers_(options.workers, answerOnWorker),
      late_(std::chrono::milliseconds(SlowMs), [this](Exchange* exchange) { workers_.push(exchange); }) {
    for (unsigned int i = 0; i < options.servers; ++i) {
        startDaemon(options, static_cast<std::uint16_t>(options.port + i));
    }
}

EngineServer::~EngineServer() {
    echo_.stop();
    for (MHD_Daemon* const daemon : daemons_) {
        MHD_stop_daemon(daemon);
    }
}

void EngineServer::startDaemon(const ServerOptions& options, std::uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    // The engine reads them at the start, and keeps what it makes of them.
    std::string chain;
    std::string key;
    std::string priorities = TlsPriorities;
    std::vector<MHD_OptionItem> tls;
    if (!options.tls.empty()) {
        chain = contentOf(options.tls[0]);
        key = contentOf(options.tls[1]);
        tls = {{MHD_OPTION_HTTPS_MEM_CERT, 0, chain.data()},
               {MHD_OPTION_HTTPS_MEM_KEY, 0, key.data()},
               {MHD_OPTION_HTTPS_PRIORITIES, 0, priorities.data()}};
    }
    tls.push_back({MHD_OPTION_END, 0, nullptr});
    const unsigned int flags = MHD_USE_AUTO | MHD_USE_INTERNAL_POLLING_THREAD | MHD_USE_ERROR_LOG |
                               (options.webSocket ? MHD_ALLOW_UPGRADE : MHD_NO_FLAG) |
                               (options.turbo ? MHD_USE_TURBO : MHD_NO_FLAG) |
                               (options.tls.empty() ? MHD_NO_FLAG : MHD_USE_TLS);
    MHD_Daemon* const daemon = MHD_start_daemon(flags, port, nullptr, nullptr, &onAccess, this,                    //
                                                MHD_OPTION_EXTERNAL_LOGGER, &onLog, nullptr,                       //
                                                MHD_OPTION_URI_LOG_CALLBACK, &onUri, nullptr,                      //
                                                MHD_OPTION_CONNECTION_MEMORY_LIMIT, options.connectionMemoryBytes, //
                                                MHD_OPTION_LISTEN_BACKLOG_SIZE, ListenBacklog,                     //
                                                MHD_OPTION_CONNECTION_TIMEOUT, TimeoutSeconds,                     //
                                                MHD_OPTION_SOCK_ADDR, reinterpret_cast<sockaddr*>(&address),       //
                                                MHD_OPTION_THREAD_POOL_SIZE, options.threads,                      //
                                                MHD_OPTION_NOTIFY_COMPLETED, &onCompleted, nullptr,                //
                                                MHD_OPTION_STRICT_FOR_CLIENT, 1,                                   //
                                                MHD_OPTION_ARRAY, tls.data(),                                      //
                                                MHD_OPTION_END);
    if (daemon == nullptr) {
        throw std::runtime_error("cannot listen on port " + std::to_string(port));
    }
    daemons_.push_back(daemon);
}

MHD_Result EngineServer::handleCall(MHD_Connection* connection, const char* url, const char* data,
                                    std::size_t& dataSize, void*& slot) {
    if (slot == nullptr) {
        return takeHead(connection, url, slot);
    }
    if (const std::optional<Work> work = markedWork(slot)) {
        return answerInline(connection, *work);
    }
    Exchange& exchange = *static_cast<Exchange*>(slot);
    if (dataSize != 0) {
        exchange.upload.take(data, std::exchange(dataSize, 0));
        return MHD_YES;
    }
    return answerWhenReady(connection, exchange);
}

MHD_Result EngineServer::takeHead(MHD_Connection* connection, const char* url, void*& slot) {
    Throttle::ofThisThread().clear();
    const Work work = workOf(url);
    if (work == Work::Plain &&
        MHD_lookup_connection_value(connection, MHD_HEADER_KIND, MHD_HTTP_HEADER_UPGRADE) != nullptr) {
        return upgrade(connection);
    }
    const bool needsExchange =
        work == Work::Upload || work == Work::Slow || (work == Work::Plain && answer_ != Answer::Inline);
    if (!needsExchange) {
        slot = markerOf(work);
        return MHD_YES;
    }
    Exchange* const exchange = new Exchange;
    slot = exchange;
    if (work == Work::Slow) {
        late_.push(exchange);
    } else if (work == Work::Plain && answer_ == Answer::HandOver) {
        workers_.push(exchange);
    } else {
        if (work == Work::Plain) {
            constexpr int Kinds = MHD_HEADER_KIND | MHD_COOKIE_KIND | MHD_GET_ARGUMENT_KIND;
            MHD_get_connection_values(connection, static_cast<MHD_ValueKind>(Kinds), fileValue, exchange);
            exchange->body = PlainBody;
        }
        exchange->state = Exchange::State::Answered;
    }
    return MHD_YES;
}

MHD_Result EngineServer::answerWhenReady(MHD_Connection* connection, Exchange& exchange) {
    if (exchange.state.load(std::memory_order_acquire) == Exchange::State::Pending) {
        Throttle::ofThisThread().run();
        return MHD_YES;
    }
    Throttle::ofThisThread().clear();
    if (exchange.body.empty()) {
        exchange.body = exchange.upload.report();
    }
    return queueCopy(connection, exchange.body);
}

void EngineServer::answerOnWorker(Exchange* exchange) {
    exchange->body = PlainBody;
    if (exchange->state.exchange(Exchange::State::Answered, std::memory_order_acq_rel) == Exchange::State::Abandoned) {
        delete exchange;
    }
}

MHD_Result EngineServer::upgrade(MHD_Connection* connection) {
    const char* const key = MHD_lookup_connection_value(connection, MHD_HEADER_KIND, "Sec-WebSocket-Key");
    if (key == nullptr || std::string_view(key) != HandshakeKey) {
        return MHD_NO;
    }
    MHD_Response* const response = MHD_create_response_for_upgrade(onUpgrade, this);
    MHD_add_response_header(response, MHD_HTTP_HEADER_UPGRADE, "websocket");
    MHD_add_response_header(response, "Sec-WebSocket-Accept", HandshakeAccept);
    MHD_add_response_header(response, MHD_HTTP_HEADER_CONNECTION, "Upgrade");
    const MHD_Result result = MHD_queue_response(connection, MHD_HTTP_SWITCHING_PROTOCOLS, response);
    MHD_destroy_response(response);
    return result;
}

} // namespace bench
