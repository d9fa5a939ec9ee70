#pragma once

#include "DemoResponse.h"
#include "skeleton/RequestPool.h"

#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace demo {

class DemoServer;
struct Route;

/// What a handler throws to have the request answered with 400 and this text.
class BadRequest : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// A request to the demo, and what a handler needs to answer it.
class DemoRequest final : public skeleton::PooledRequest {
public:
    explicit DemoRequest(DemoServer& server);

    // ---- What the library asks ----

    ql::HttpResponseInterface& getResponse() override { return response_; }
    ql::http::HttpServerImpl& getServerImpl() override;

    // ---- For handlers ----

    DemoServer& server() { return server_; }
    bool isHead() const { return getRequestType() == RequestType::Head; }
    /// Turns that were taken before this one.
    unsigned int pastTurns() const { return pastTurns_; }
    std::int64_t elapsedMs() const { return applicationTimer_.getElapsedMs(); }

    /// The argument `name` of the query; `otherwise` when it is missing.
    /// @throws BadRequest when it is not one number from 0 to `max`.
    std::uint64_t number(const std::string& name, std::uint64_t otherwise, std::uint64_t max) const;

    /// The value of a header as it was sent, or nearly so: commas are followed by one space.
    std::string header(const char* name) const;

    /// Fills `buffer` with the next bytes of the body, as many as it has room for, and waits for them.
    /// @return their number; fewer than there is room for only at the end of the body.
    /// @throws std::runtime_error when the body does not come.
    std::size_t readBody(std::vector<char>& buffer);

    /// Gives the whole answer. The body goes out as one buffer.
    void answer(std::uint32_t status, const std::string& contentType, std::string_view body);

    /// Begins an answer whose body is to be written piece by piece, and ended by finish().
    /// @param contentLength negative when it is unknown.
    /// @return false when no body is wanted: leave it at that.
    bool beginAnswer(const std::string& contentType, std::int64_t contentLength);

    /// Writes the next bytes of the body; waits while the client has not taken enough of the former.
    /// @return false when the client has gone: give up.
    bool write(const char* data, std::size_t size);
    /// Sends what was written so far, however little it is.
    void flush() { editInternalResponseDevice().flush(); }
    void finish() { editInternalResponseDevice().endSending(); }

    DemoResponse& response() { return response_; }

    /// Which handler serves the request; to be set before its first turn.
    void setRoute(const Route& route) { route_ = &route; }

private:
    Pause serve() override;
    void ended(const std::string& loss) override;

    DemoServer& server_;
    const Route* route_ = nullptr;
    DemoResponse response_;
    unsigned int pastTurns_ = 0;
};

} // namespace demo
