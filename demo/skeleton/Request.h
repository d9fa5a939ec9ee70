#pragma once

#include "skeleton/RequestPool.h"
#include "skeleton/Response.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace skeleton {

/// A request with its response, and what it takes to read the one and write the other. An application derives from it
/// and says in serve() what becomes of the request.
class Request : public PooledRequest {
public:
    explicit Request(ql::http::HttpServerImpl& server) : server_(server) {}

    ql::HttpResponseInterface& getResponse() override { return response_; }
    ql::http::HttpServerImpl& getServerImpl() override { return server_; }

    Response& response() { return response_; }
    bool isHead() const { return getRequestType() == RequestType::Head; }

    /// The value of a header as it was sent, or nearly so: commas are followed by one space. Empty when it is missing.
    std::string header(const char* name) const;

    /// Fills `buffer` with the next bytes of the body, as many as it has room for, and waits for them.
    /// @return their number; fewer than there is room for only at the end of the whole body.
    /// @throws std::runtime_error when the body does not come, or breaks off: what was read of it is not all of it.
    std::size_t readBody(std::vector<char>& buffer);

    /// Gives the whole answer. The body goes out as one buffer.
    void answer(std::uint32_t status, const std::string& contentType, std::string_view body);

    /// Answers with 400 when the head was bad. @return true when it was.
    bool refusesBadHead();

    /// Begins an answer whose body is to be written piece by piece, and ended by finish().
    /// @param contentLength negative when it is unknown.
    /// @return false when no body is wanted: leave it at that.
    bool beginAnswer(const std::string& contentType, std::int64_t contentLength);

    /// Writes the next bytes of the body; waits while the client has not taken enough of the former.
    /// @return false when the client has gone: give up.
    bool write(std::string_view bytes);
    /// Sends what was written so far, however little it is.
    void flush() { editInternalResponseDevice().flush(); }
    void finish() { editInternalResponseDevice().endSending(); }

protected:
    void ended(const std::string& /*loss*/) override {}

private:
    ql::http::HttpServerImpl& server_;
    Response response_;
};

} // namespace skeleton
