#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/websocket.hpp>
#include <nlohmann/json.hpp>

#include <cstdlib>
#include <exception>
#include <string>
#include <thread>

namespace beast = boost::beast;
namespace http = beast::http;
using Tcp = boost::asio::ip::tcp;
using Answer = http::response<http::string_body>;

namespace {
Answer answerTo(const http::request<http::string_body>& request) {
    const std::string target(request.target());
    const std::string hello = "/hello/";
    Answer answer(http::status::ok, request.version());
    answer.keep_alive(request.keep_alive());
    const std::string name =
        target.starts_with(hello) ? target.substr(hello.size()) : ""; // as it came, with its escapes
    if (request.method() == http::verb::get && !name.empty() && name.find('/') == std::string::npos) {
        answer.set(http::field::content_type, "application/json");
        answer.body() = nlohmann::json{{"hello", name}}.dump();
    } else if (request.method() == http::verb::put && target == "/upload") {
        answer.set(http::field::content_type, "text/plain");
        answer.body() = std::to_string(request.body().size()) + " bytes\n";
    } else {
        answer.result(http::status::not_found);
    }
    answer.prepare_payload();
    return answer;
}

void echo(Tcp::socket socket, const http::request<http::string_body>& request) {
    beast::websocket::stream<Tcp::socket> stream(std::move(socket));
    stream.accept(request);
    for (beast::flat_buffer buffer;; buffer.clear()) {
        stream.read(buffer);
        stream.text(stream.got_text());
        stream.write(buffer.data());
    }
}

void serve(Tcp::socket socket) try {
    for (beast::flat_buffer buffer;;) {
        http::request_parser<http::string_body> parser;
        parser.body_limit(1000000);
        beast::error_code error;
        http::read(socket, buffer, parser, error);
        if (error == http::error::body_limit) {
            Answer answer(http::status::payload_too_large, 11);
            answer.keep_alive(false);
            answer.prepare_payload();
            http::write(socket, answer);
            return;
        }
        if (error) {
            return; // the client has gone, or what it sent is no HTTP
        }
        if (beast::websocket::is_upgrade(parser.get()) && parser.get().target() == "/echo") {
            return echo(std::move(socket), parser.get());
        }
        const Answer answer = answerTo(parser.get());
        http::write(socket, answer);
        if (!answer.keep_alive()) {
            return;
        }
    }
} catch (const beast::system_error&) {
    // The client has gone, or has closed its WebSocket.
}
} // namespace

int main(int argc, char** argv) try {
    boost::asio::io_context context;
    Tcp::acceptor acceptor(context, {boost::asio::ip::address_v4::loopback(),
                                     static_cast<unsigned short>(argc > 1 ? std::atoi(argv[1]) : 8181)});
    for (;;) {
        std::thread([socket = acceptor.accept()]() mutable { serve(std::move(socket)); }).detach();
    }
} catch (const std::exception&) {
    return 1; // the port is taken
}
