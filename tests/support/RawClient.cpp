#include "support/RawClient.h"

#include <algorithm>
#include <array>

namespace vireotest {

namespace {

constexpr std::string_view LineEnd = "\r\n";
constexpr std::string_view HeadEnd = "\r\n\r\n";

std::string_view trimmed(std::string_view text) {
    const std::size_t first = text.find_first_not_of(" \t");
    return first == std::string_view::npos ? std::string_view()
                                           : text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

} // namespace

std::vector<std::string> RawResponse::values(std::string_view name) const {
    std::vector<std::string> found;
    for (const auto& [headerName, value] : headers) {
        if (headerName == name) {
            found.push_back(value);
        }
    }
    return found;
}

std::string RawResponse::value(std::string_view name) const {
    const std::vector<std::string> found = values(name);
    return found.size() == 1 ? found.front() : std::string();
}

RawClient::RawClient(std::uint16_t port, const std::string& host, int receiveBufferBytes)
    : socket_(RawSocket::Connect(host, port, receiveBufferBytes)) {
    if (!socket_.isOpen()) {
        throw std::runtime_error("connection refused");
    }
}

void RawClient::send(std::string_view bytes) {
    if (!trySend(bytes)) {
        throw std::runtime_error("connection broken while sending");
    }
}

bool RawClient::trySend(std::string_view bytes) {
    const Deadline deadline = soon();
    while (!bytes.empty()) {
        const RawSocket::Result result = sendSome(bytes.data(), bytes.size(), deadline);
        if (result.status == RawSocket::Status::TimedOut) {
            throw TimedOut("the server takes no bytes");
        }
        if (result.status != RawSocket::Status::Done) {
            return false;
        }
        bytes.remove_prefix(result.bytes);
    }
    return true;
}

RawSocket::Result RawClient::sendSome(const char* data, std::size_t size, Deadline deadline) {
    return socket_.send(data, size, deadline);
}

RawSocket::Result RawClient::receiveSome(char* data, std::size_t size, Deadline deadline) {
    return socket_.receive(data, size, deadline);
}

bool RawClient::fill() {
    std::array<char, 65536> bytes;
    const RawSocket::Result result = receiveSome(bytes.data(), bytes.size(), soon());
    switch (result.status) {
    case RawSocket::Status::Done:
        buffer_.append(bytes.data(), result.bytes);
        return true;
    case RawSocket::Status::End:
    case RawSocket::Status::Broken:
        return false;
    case RawSocket::Status::TimedOut:
        break;
    }
    throw TimedOut("the server sends no bytes; so far: " + buffer_.substr(0, 1000));
}

void RawClient::fillOrThrow() {
    if (!fill()) {
        throw std::runtime_error("the server closed the connection; so far: " + buffer_.substr(0, 1000));
    }
}

std::string RawClient::read(std::size_t size) {
    while (buffer_.size() < size) {
        fillOrThrow();
    }
    std::string bytes = buffer_.substr(0, size);
    buffer_.erase(0, size);
    return bytes;
}

std::string RawClient::readUntil(std::string_view end) {
    std::size_t found = buffer_.find(end);
    while (found == std::string::npos) {
        fillOrThrow();
        found = buffer_.find(end);
    }
    return read(found + end.size());
}

void RawClient::skip(std::uint64_t size) {
    while (size > 0) {
        if (buffer_.empty()) {
            fillOrThrow();
        }
        const std::uint64_t part = std::min<std::uint64_t>(size, buffer_.size());
        buffer_.erase(0, static_cast<std::size_t>(part));
        size -= part;
    }
}

std::string RawClient::readToEnd() {
    while (fill()) {
    }
    return std::exchange(buffer_, {});
}

RawResponse RawClient::readHead() {
    RawResponse response;
    response.head = readUntil(HeadEnd);
    response.head.resize(response.head.size() - HeadEnd.size());
    std::string_view rest = response.head;
    std::string_view line = rest.substr(0, rest.find(LineEnd));
    if (line.size() < 12 || line.substr(0, 7) != "HTTP/1.") {
        throw std::runtime_error("not a status line: " + std::string(line));
    }
    response.status = std::stoi(std::string(line.substr(9, 3)));
    while (line.size() < rest.size()) {
        rest.remove_prefix(line.size() + LineEnd.size());
        line = rest.substr(0, rest.find(LineEnd));
        const std::size_t colon = line.find(':');
        if (colon == std::string_view::npos) {
            throw std::runtime_error("not a header line: " + std::string(line));
        }
        response.headers.emplace_back(line.substr(0, colon), trimmed(line.substr(colon + 1)));
    }
    return response;
}

void RawClient::readBody(RawResponse& response) {
    if (response.value("Transfer-Encoding") == "chunked") {
        while (true) {
            const std::size_t size = std::stoul(readUntil(LineEnd), nullptr, 16);
            if (size == 0) {
                break;
            }
            response.chunks.push_back(size);
            response.body += read(size);
            if (read(LineEnd.size()) != LineEnd) {
                throw std::runtime_error("a chunk without an end");
            }
        }
        if (read(LineEnd.size()) != LineEnd) {
            throw std::runtime_error("a trailer nobody asked for");
        }
    } else if (response.has("Content-Length")) {
        response.body = read(std::stoul(response.value("Content-Length")));
    } else {
        response.body = readToEnd();
    }
}

RawResponse RawClient::readResponse() {
    RawResponse response = readHead();
    readBody(response);
    return response;
}

RawResponse RawClient::exchange(std::string_view request) {
    send(request);
    return readResponse();
}

std::string head(std::string_view method, std::string_view target, std::string_view headers) {
    std::string text(method);
    text.append(" ").append(target).append(" HTTP/1.1\r\nHost: localhost\r\n").append(headers).append(LineEnd);
    return text;
}

std::string get(std::string_view target, std::string_view headers) {
    return head("GET", target, headers);
}

std::string post(std::string_view target, std::string_view body, std::string_view headers) {
    std::string lines = "Content-Length: " + std::to_string(body.size()) + "\r\n";
    lines += headers;
    return head("POST", target, lines).append(body);
}

} // namespace vireotest
