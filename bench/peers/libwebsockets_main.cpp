// libwebsockets: Debian builds it for one service thread a context, so each of the two threads has a context of its
// own, and the connections go to the contexts in turn.
#include "support/Program.h"

#include <libwebsockets.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <deque>
#include <memory>
#include <mutex>
#include <new>
#include <stdexcept>
#include <thread>
#include <unordered_set>
#include <utility>
#include <vector>

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr std::size_t ReceiveBytes = 131072;

/// Room for the header stands before the payload.
using Bytes = std::vector<unsigned char>;

/// A piece of a message, to be sent as it came: the connection's own, or one that all of the thread's have.
struct Piece {
    Bytes own;
    std::shared_ptr<Bytes> shared;
    lws_write_protocol kind = LWS_WRITE_BINARY;
};

/// libwebsockets gives zeroed memory for it.
struct Session {
    std::deque<Piece>* pieces;
    bool joined; ///< what broadcasts send comes to it
};

constexpr std::size_t MaxQueuedPieces = 16;

void receive(lws* socket, Session& session, const void* data, std::size_t size) {
    const bool first = lws_is_first_fragment(socket) != 0;
    const bool final = lws_is_final_fragment(socket) != 0;
    const lws_write_protocol opcode = !first                             ? LWS_WRITE_CONTINUATION
                                      : lws_frame_is_binary(socket) != 0 ? LWS_WRITE_BINARY
                                                                         : LWS_WRITE_TEXT;
    const int kind = static_cast<int>(opcode) | (final ? 0 : static_cast<int>(LWS_WRITE_NO_FIN));
    Piece& piece = session.pieces->emplace_back();
    piece.kind = static_cast<lws_write_protocol>(kind);
    piece.own.resize(LWS_PRE + size);
    std::memcpy(piece.own.data() + LWS_PRE, data, size);
    if (session.pieces->size() >= MaxQueuedPieces) {
        lws_rx_flow_control(socket, 0);
    }
    lws_callback_on_writable(socket);
}

/// @return false when the connection is to be closed.
bool sendNext(lws* socket, Session& session) {
    if (session.pieces->empty()) {
        return true;
    }
    Piece piece = std::move(session.pieces->front());
    session.pieces->pop_front();
    Bytes& bytes = piece.shared ? *piece.shared : piece.own;
    const std::size_t size = bytes.size() - LWS_PRE;
    if (lws_write(socket, bytes.data() + LWS_PRE, size, piece.kind) < static_cast<int>(size)) {
        return false;
    }
    if (session.pieces->empty()) {
        lws_rx_flow_control(socket, 1);
    } else {
        lws_callback_on_writable(socket);
    }
    return true;
}

/// A context and its thread.
class Service {
public:
    explicit Service(const std::array<lws_protocols, 2>& protocols) {
        lws_context_creation_info info{};
        info.port = CONTEXT_PORT_NO_LISTEN_SERVER;
        info.protocols = protocols.data();
        info.pt_serv_buf_size = ReceiveBytes;
        info.user = this;
        context_ = lws_create_context(&info);
        if (context_ == nullptr) {
            throw std::runtime_error("no context");
        }
        thread_ = std::thread([this] {
            while (!stopping_.load(std::memory_order_relaxed) && lws_service(context_, 0) >= 0) {
            }
        });
    }

    ~Service() {
        stopping_ = true;
        lws_cancel_service(context_);
        thread_.join();
        lws_context_destroy(context_);
    }

    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;

    /// Any thread.
    void add(int socket) {
        {
            const std::lock_guard lock(mutex_);
            accepted_.push_back(socket);
        }
        lws_cancel_service(context_);
    }

    /// Has a message sent to all of this thread's that have joined. Any thread.
    void broadcast(const void* data, std::size_t size) {
        const auto message = std::make_shared<Bytes>(LWS_PRE + size);
        std::memcpy(message->data() + LWS_PRE, data, size);
        {
            const std::lock_guard lock(mutex_);
            messages_.push_back(message);
        }
        lws_cancel_service(context_);
    }

    /// The service thread, after a wake-up.
    void takeNew() {
        std::vector<int> sockets;
        std::vector<std::shared_ptr<Bytes>> messages;
        {
            const std::lock_guard lock(mutex_);
            sockets.swap(accepted_);
            messages.swap(messages_);
        }
        for (const int socket : sockets) {
            lws_adopt_socket(context_, socket);
        }
        for (const std::shared_ptr<Bytes>& message : messages) {
            for (lws* const socket : joined_) {
                static_cast<Session*>(lws_wsi_user(socket))->pieces->push_back({{}, message, LWS_WRITE_BINARY});
                lws_callback_on_writable(socket);
            }
        }
    }

    /// The service thread.
    ///@{
    void join(lws* socket) { joined_.insert(socket); }
    void leave(lws* socket) { joined_.erase(socket); }
    ///@}

private:
    lws_context* context_ = nullptr;
    std::atomic<bool> stopping_{false};
    std::mutex mutex_;
    std::vector<int> accepted_;                    // guarded by mutex_
    std::vector<std::shared_ptr<Bytes>> messages_; // guarded by mutex_
    std::unordered_set<lws*> joined_;
    std::thread thread_;
};

Service& serviceOf(lws* socket) {
    return *static_cast<Service*>(lws_context_user(lws_get_context(socket)));
}

/// All of them, where messages but a connection's first go to all; otherwise none.
std::vector<Service*> broadcasters;

void handle(lws* socket, Session& session, const void* data, std::size_t size) {
    if (!session.joined) {
        receive(socket, session, data, size);
        if (!broadcasters.empty()) {
            session.joined = true;
            serviceOf(socket).join(socket);
        }
        return;
    }
    for (Service* const service : broadcasters) {
        service->broadcast(data, size);
    }
}

int onEvent(lws* socket, lws_callback_reasons reason, void* user, void* data, std::size_t size) {
    Session* const session = static_cast<Session*>(user);
    switch (reason) {
    case LWS_CALLBACK_EVENT_WAIT_CANCELLED:
        serviceOf(socket).takeNew();
        return 0;
    case LWS_CALLBACK_ESTABLISHED:
        session->pieces = new (std::nothrow) std::deque<Piece>;
        return session->pieces == nullptr ? -1 : 0;
    case LWS_CALLBACK_CLOSED:
        serviceOf(socket).leave(socket);
        delete session->pieces;
        session->pieces = nullptr;
        return 0;
    case LWS_CALLBACK_RECEIVE:
        handle(socket, *session, data, size);
        return 0;
    case LWS_CALLBACK_SERVER_WRITEABLE:
        return sendNext(socket, *session) ? 0 : -1;
    default:
        return 0;
    }
}

/// A socket that listens on 127.0.0.1, or -1.
int listenOn(std::uint16_t port) {
    constexpr int Backlog = 1024;
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const int on = 1;
    setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        listen(listener, Backlog) != 0) {
        return -1;
    }
    return listener;
}

} // namespace

int main(int argc, char** argv) {
    const bench::ServerOptions options = bench::ServerOptions::parse(argc, argv);
    try {
        const bench::StopSignal stop;
        bench::raiseDescriptorLimit();
        lws_set_log_level(LLL_ERR, nullptr);
        const std::array<lws_protocols, 2> protocols{
            {{"echo", onEvent, sizeof(Session), ReceiveBytes, 0, nullptr, 0}, {}}};
        std::deque<Service> services;
        for (unsigned int i = 0; i < options.threads; ++i) {
            services.emplace_back(protocols);
        }
        if (options.broadcast) {
            for (Service& service : services) {
                broadcasters.push_back(&service);
            }
        }
        const int listener = listenOn(options.port);
        if (listener < 0) {
            throw std::runtime_error("cannot listen");
        }
        std::thread acceptor([&] {
            std::size_t next = 0;
            for (int socket = 0; (socket = accept(listener, nullptr, nullptr)) >= 0;) {
                services[next++ % services.size()].add(socket);
            }
        });
        stop.wait();
        shutdown(listener, SHUT_RDWR);
        acceptor.join();
        close(listener);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "bench-libwebsockets: %s\n", error.what());
        return 1;
    }
}
