#pragma once

#include "engine/EchoLoop.h"
#include "support/DelayLine.h"
#include "support/Program.h"
#include "support/WorkerPool.h"

#include <cstdint>
#include <memory>
#include <vector>

#include <microhttpd.h>

namespace bench {

struct Exchange;

/// The engine alone, with the options that the library gives it, doing the benchmark's work in the least code.
class EngineServer {
public:
    /// How a plain request is answered.
    enum class Answer {
        Inline,
        Maps,    ///< inline, with headers, cookies and arguments put into maps first
        HandOver ///< by a worker, for which the access handler polls
    };

    explicit EngineServer(const ServerOptions& options);
    ~EngineServer();
    EngineServer(const EngineServer&) = delete;
    EngineServer& operator=(const EngineServer&) = delete;

    /// The access handler's part: one of the calls of one request.
    MHD_Result handleCall(MHD_Connection* connection, const char* url, const char* data, std::size_t& dataSize,
                          void*& slot);
    void acceptWebSocket(MHD_socket socket, MHD_UpgradeResponseHandle* handle) { echo_.add(socket, handle); }

private:
    void startDaemon(const ServerOptions& options, std::uint16_t port);
    MHD_Result takeHead(MHD_Connection* connection, const char* url, void*& slot);
    MHD_Result answerWhenReady(MHD_Connection* connection, Exchange& exchange);
    MHD_Result upgrade(MHD_Connection* connection);
    static void answerOnWorker(Exchange* exchange);

    const Answer answer_;
    EchoLoop echo_;
    WorkerPool<Exchange*> workers_;
    DelayLine<Exchange*> late_;
    std::vector<MHD_Daemon*> daemons_;
};

} // namespace bench
