#pragma once

#include "events/EventBoard.h"
#include "vireo/BenchServer.h"
#include "vireo/HttpServer.h"

#include <atomic>
#include <cstdint>
#include <memory>

namespace bench {

/// What the server of the benchmark serves, event streams, uploads that are read slowly or not at all, and its health.
class EventServer : public BenchServer {
public:
    /// @param workers threads that answer requests, and threads of the WebSocket pool.
    explicit EventServer(unsigned int workers) : BenchServer(workers, 0, false, true) {}

    void handleRequest(ql::HttpBaseRequest* request) override;

    EventBoard& board() { return board_; }
    /// Whose health is asked for.
    void setServer(const ql::http::HttpServer& server) { server_ = &server; }
    /// How many requests have come, but for those.
    std::uint64_t requestCount() const { return requestCount_; }

protected:
    std::unique_ptr<BenchRequest> makeRequest() override;

private:
    EventBoard board_;
    std::atomic<const ql::http::HttpServer*> server_{nullptr};
    std::atomic<std::uint64_t> requestCount_{0};
};

} // namespace bench
