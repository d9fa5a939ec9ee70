#pragma once

#include "support/RawSocket.h"

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace vireotest {

/// A response as it came over the wire.
struct RawResponse {
    int status = 0;
    /// Status line and header lines, without the empty line.
    std::string head;
    /// In order; names as they were sent.
    std::vector<std::pair<std::string, std::string>> headers;
    std::string body;
    /// Sizes of the chunks of a chunked body, without the last one.
    std::vector<std::size_t> chunks;

    /// The values of a header whose name is spelled exactly so.
    std::vector<std::string> values(std::string_view name) const;
    /// The only value of a header; empty when there is not exactly one.
    std::string value(std::string_view name) const;
    bool has(std::string_view name) const { return !values(name).empty(); }
};

/// Something that must happen did not happen in time.
class TimedOut : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// A client that sends exactly the bytes it is given. What does not happen in time is thrown as TimedOut, a connection
/// that breaks or what is not HTTP as std::runtime_error; both so fail the test. For one thread.
class RawClient {
public:
    /// @param receiveBufferBytes a small one makes the server feel soon that nobody reads; 0 for the system's.
    explicit RawClient(std::uint16_t port, const std::string& host = "127.0.0.1", int receiveBufferBytes = 0);

    virtual ~RawClient() = default;
    RawClient(RawClient&&) = default;
    RawClient& operator=(RawClient&&) = default;

    /// Sends everything.
    void send(std::string_view bytes);
    /// Sends until the connection breaks. @return true when everything was sent.
    bool trySend(std::string_view bytes);

    /// Receives exactly so many bytes.
    std::string read(std::size_t size);
    /// Receives up to and with `end`.
    std::string readUntil(std::string_view end);
    /// Receives so many bytes and drops them.
    void skip(std::uint64_t size);
    /// Receives what comes until the server closes or resets the connection.
    std::string readToEnd();

    /// Receives status line and headers.
    RawResponse readHead();
    /// Receives the body of a chunked response, of one with a length, or of one that ends with the connection.
    void readBody(RawResponse& response);
    /// Receives a whole response.
    RawResponse readResponse();
    /// Sends a request and receives its response.
    RawResponse exchange(std::string_view request);

    void endSending() { socket_.endSending(); }
    void reset() { socket_.reset(); }
    void close() { socket_.close(); }

protected:
    /// What goes over the connection, for clients that put something between.
    ///@{
    virtual RawSocket::Result sendSome(const char* data, std::size_t size, Deadline deadline);
    virtual RawSocket::Result receiveSome(char* data, std::size_t size, Deadline deadline);
    ///@}

private:
    /// Receives more. @return false at the end of the connection.
    bool fill();
    void fillOrThrow();

    RawSocket socket_;
    /// Received and not read yet.
    std::string buffer_;
};

/// A request head with a Host header and an empty line at the end.
/// @param headers further header lines, each with its line end.
std::string head(std::string_view method, std::string_view target, std::string_view headers = {});

/// A GET request.
std::string get(std::string_view target, std::string_view headers = {});

/// A POST request with a Content-Length.
std::string post(std::string_view target, std::string_view body, std::string_view headers = {});

} // namespace vireotest
