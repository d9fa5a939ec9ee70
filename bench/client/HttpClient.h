#pragma once

#include "client/HttpResponseReader.h"
#include "client/Measures.h"
#include "client/Sockets.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace bench {

/// One request and its response, after another, on one connection.
class HttpConnection {
public:
    explicit HttpConnection(std::uint16_t port) : socket_(connectTo(port)) {}

    int socket() const { return socket_.get(); }

    void startGet(const std::string& path, bool expectPattern);
    /// @param chunked without a declared length.
    void startUpload(const std::string& path, std::uint64_t bytes, bool chunked);

    /// Sends what is left of the request. @return whether all of it is sent.
    bool sendRest();

    /// Takes what has come. @return whether the response is complete.
    bool receive(std::vector<char>& scratch);

    const HttpResponseReader& response() const { return response_; }
    Clock::time_point startTime() const { return startTime_; }

private:
    void start(std::string head, bool expectPattern);
    /// Makes the next piece of the upload ready in front_, body_ and back_.
    bool nextPiece();

    Descriptor socket_;
    HttpResponseReader response_;
    Clock::time_point startTime_;
    // What is sent next, in this order; each shrinks from its start.
    std::string front_;
    const char* body_ = nullptr;
    std::size_t bodyBytes_ = 0;
    std::string back_;
    std::size_t sent_ = 0; ///< of these
    // The rest of an upload.
    std::uint64_t position_ = 0;
    std::uint64_t uploadBytes_ = 0;
    bool chunked_ = false;
    bool lastChunkSent_ = true;
};

/// What a client is asked to transfer.
struct Transfer {
    std::string path = "/upload";
    std::uint64_t uploadBytes = 0; ///< when it is an upload
    bool chunked = false;          ///< an upload without a declared length
    std::uint64_t expectedBytes = 0;
    unsigned int connections = 1;
    unsigned int each = 1;   ///< transfers in sequence on each connection
    int silenceSeconds = 20; ///< for which a transfer may stand still
};

/// Transfers on many connections at once, on one thread, each verified. @return the seconds.
double runTransfers(std::uint16_t port, const Transfer& transfer);

/// Slow requests, and how instant ones fare beside them.
struct SlowResult {
    double seconds = 0;
    Latencies slow;
    Latencies instant;
};
SlowResult runSlow(std::uint16_t port, unsigned int slowRequests, unsigned int instantConnections,
                   Clock::duration instantPeriod);

/// Connections that each had one answer and stay open.
std::vector<HttpConnection> openIdle(std::uint16_t firstPort, unsigned int ports, unsigned int count);

} // namespace bench
