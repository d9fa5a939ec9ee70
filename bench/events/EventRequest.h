#pragma once

#include "vireo/BenchRequest.h"

#include <string>

namespace bench {

class EventBoard;

/// GET /events: a stream of events, which begins with a comment. POST /events: its body is sent to all of them.
/// PUT /paced: an upload that is read at PacedBytesPerSecond. PUT /refused and /private: 413 and 401, without reading.
class EventRequest : public BenchRequest {
public:
    EventRequest(ql::http::HttpServerImpl& server, EventBoard& board) : BenchRequest(server), board_(board) {}

    /// 200 or 503. In handleRequest().
    void answerHealth(bool isWell);

    // Of a stream. The calling thread is its worker meanwhile.

    void send(const std::string& event);
    void end();
    /// Nobody will send to it any more.
    void leave() { setAnswered(); }

protected:
    bool answerOther() override;
    void goOn() override;

private:
    void answerEmpty(std::uint32_t statusCode);
    void publish();
    void takePacedUpload();

    EventBoard& board_;
};

} // namespace bench
