// Boost.Beast: asynchronous, an io_context for each of the two threads, no locks between them.
#include "support/Pattern.h"
#include "support/Program.h"
#include "support/Work.h"

#include <boost/asio/basic_stream_socket.hpp>
#include <boost/asio/basic_waitable_timer.hpp>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/websocket.hpp>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
namespace websocket = beast::websocket;

using Error = beast::error_code;
using Executor = asio::io_context::executor_type;
using Tcp = asio::ip::tcp;
using Socket = asio::basic_stream_socket<Tcp, Executor>;
using Timer =
    asio::basic_waitable_timer<std::chrono::steady_clock, asio::wait_traits<std::chrono::steady_clock>, Executor>;

class WebSocketSession : public std::enable_shared_from_this<WebSocketSession> {
public:
    explicit WebSocketSession(Socket&& socket) : stream_(std::move(socket)) {
        // One frame for each message, straight from the buffer.
        stream_.auto_fragment(false);
        stream_.read_message_max(0);
    }

    void run(http::request<http::buffer_body>&& request) {
        stream_.async_accept(request, [self = shared_from_this()](Error error) {
            if (!error) {
                self->read();
            }
        });
    }

private:
    void read() {
        stream_.async_read(buffer_, [self = shared_from_this()](Error error, std::size_t /*bytes*/) {
            if (!error) {
                self->write();
            }
        });
    }

    void write() {
        stream_.binary(stream_.got_binary());
        stream_.async_write(buffer_.data(), [self = shared_from_this()](Error error, std::size_t /*bytes*/) {
            if (!error) {
                self->buffer_.consume(self->buffer_.size());
                self->read();
            }
        });
    }

    websocket::stream<Socket> stream_;
    beast::flat_buffer buffer_;
};

class HttpSession : public std::enable_shared_from_this<HttpSession> {
public:
    explicit HttpSession(Socket&& socket) : socket_(std::move(socket)), timer_(socket_.get_executor()) {
        // Beast reads as much as the buffer has room for: without any, 512 bytes at a time.
        buffer_.reserve(HeadBytes);
    }

    void readHead() {
        parser_.emplace();
        parser_->body_limit(std::numeric_limits<std::uint64_t>::max());
        http::async_read_header(socket_, buffer_, *parser_, [self = shared_from_this()](Error error, std::size_t) {
            if (!error) {
                self->takeHead();
            }
        });
    }

private:
    static constexpr std::size_t HeadBytes = 2048;

    void takeHead() {
        const auto& request = parser_->get();
        if (websocket::is_upgrade(request)) {
            std::make_shared<WebSocketSession>(std::move(socket_))->run(parser_->release());
            return;
        }
        const std::string_view target(request.target().data(), request.target().size());
        switch (bench::workOf(target.substr(0, target.find('?')))) {
        case bench::Work::Plain:
            answer(http::status::ok, std::string(bench::PlainBody));
            break;
        case bench::Work::KnownStream:
            startStream(true);
            break;
        case bench::Work::UnknownStream:
            startStream(false);
            break;
        case bench::Work::Upload:
            upload_ = {};
            block_.resize(bench::StreamBlockBytes);
            buffer_.reserve(bench::StreamBlockBytes);
            readBody();
            break;
        case bench::Work::Slow:
            timer_.expires_after(std::chrono::milliseconds(bench::SlowMs));
            timer_.async_wait([self = shared_from_this()](Error error) {
                if (!error) {
                    self->answer(http::status::ok, std::string(bench::PlainBody));
                }
            });
            break;
        case bench::Work::Whole:
        case bench::Work::Unknown:
            answer(http::status::not_found, {});
            break;
        }
    }

    void answer(http::status status, std::string body) {
        auto& response = plain_.emplace(status, parser_->get().version());
        response.set(http::field::content_type, bench::PlainType);
        response.body() = std::move(body);
        response.prepare_payload();
        http::async_write(socket_, response, [self = shared_from_this()](Error error, std::size_t) {
            if (!error) {
                self->readHead();
            }
        });
    }

    void readBody() {
        while (!parser_->is_done()) {
            auto& body = parser_->get().body();
            body.data = block_.data();
            body.size = block_.size();
            http::async_read(socket_, buffer_, *parser_, [self = shared_from_this()](Error error, std::size_t) {
                if (!error || error == http::error::need_buffer) {
                    const std::size_t left = self->parser_->get().body().size;
                    self->upload_.take(self->block_.data(), self->block_.size() - left);
                    self->readBody();
                }
            });
            return;
        }
        answer(http::status::ok, upload_.report());
    }

    void startStream(bool lengthKnown) {
        auto& response = stream_.emplace(http::status::ok, parser_->get().version());
        response.set(http::field::content_type, bench::PlainType);
        if (lengthKnown) {
            response.content_length(bench::StreamBytes);
        } else {
            response.chunked(true);
        }
        response.body().more = true;
        serializer_.emplace(response);
        position_ = 0;
        writeStream();
    }

    void writeStream() {
        auto& body = stream_->body();
        body.size = std::min<std::uint64_t>(bench::StreamBlockBytes, bench::StreamBytes - position_);
        // Beast's type is not const, since the same body is also read into; writing only reads it.
        body.data = body.size == 0 ? nullptr : const_cast<char*>(bench::Pattern::at(position_));
        body.more = body.size != 0;
        position_ += body.size;
        http::async_write(socket_, *serializer_, [self = shared_from_this()](Error error, std::size_t) {
            if (error == http::error::need_buffer) {
                self->writeStream();
            } else if (!error) {
                self->readHead();
            }
        });
    }

    Socket socket_;
    Timer timer_;
    beast::flat_buffer buffer_;
    std::optional<http::request_parser<http::buffer_body>> parser_;
    std::optional<http::response<http::string_body>> plain_;
    std::optional<http::response<http::buffer_body>> stream_;
    std::optional<http::response_serializer<http::buffer_body>> serializer_;
    std::uint64_t position_ = 0;
    bench::UploadCheck upload_;
    std::vector<char> block_;
};

class Listener {
public:
    Listener(std::vector<std::unique_ptr<asio::io_context>>& contexts, std::uint16_t port)
        : contexts_(contexts), acceptor_(contexts.front()->get_executor()) {
        const Tcp::endpoint endpoint(asio::ip::address_v4::loopback(), port);
        acceptor_.open(endpoint.protocol());
        acceptor_.set_option(asio::socket_base::reuse_address(true));
        acceptor_.bind(endpoint);
        acceptor_.listen(Backlog);
        accept();
    }

private:
    static constexpr int Backlog = 1024;

    void accept() {
        asio::io_context& context = *contexts_[next_++ % contexts_.size()];
        acceptor_.async_accept(context, [this](Error error, Socket socket) {
            if (error == asio::error::operation_aborted) {
                return;
            }
            if (!error) {
                socket.set_option(Tcp::no_delay(true));
                const Executor executor = socket.get_executor();
                asio::post(executor,
                           [session = std::make_shared<HttpSession>(std::move(socket))] { session->readHead(); });
            }
            accept();
        });
    }

    std::vector<std::unique_ptr<asio::io_context>>& contexts_;
    asio::basic_socket_acceptor<Tcp, Executor> acceptor_;
    std::size_t next_ = 0;
};

} // namespace

int main(int argc, char** argv) {
    const bench::ServerOptions options = bench::ServerOptions::parse(argc, argv);
    try {
        const bench::StopSignal stop;
        bench::raiseDescriptorLimit();
        std::vector<std::unique_ptr<asio::io_context>> contexts;
        for (unsigned int i = 0; i < options.threads; ++i) {
            contexts.push_back(std::make_unique<asio::io_context>(1));
        }
        const Listener listener(contexts, options.port);
        std::vector<asio::executor_work_guard<Executor>> guards;
        std::vector<std::thread> threads;
        for (const auto& context : contexts) {
            guards.emplace_back(context->get_executor());
            threads.emplace_back([&context = *context] { context.run(); });
        }
        stop.wait();
        for (const auto& context : contexts) {
            context->stop();
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
    } catch (const std::exception& error) {
        std::fprintf(stderr, "bench-beast: %s\n", error.what());
        return 1;
    }
}
