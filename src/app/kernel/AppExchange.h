// SPDX-License-Identifier: MIT
#pragma once

#include "app/kernel/Answer.h"
#include "app/kernel/AnswerState.h"
#include "app/kernel/ClientWaits.h"
#include "app/kernel/EndListener.h"
#include "app/kernel/Endpoint.h"
#include "app/kernel/Work.h"
#include "app/request/RequestData.h"
#include "vireo/HttpBaseRequest.h"
#include "vireo/HttpResponseInterface.h"
#include "vireo/support/ThreadAnnotations.h"
#include "vireo/support/qlMutex.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace ql::http {
class FormDecoder;
}

namespace vireo::impl {

class LaterState;

/// A request and its answer. Holds itself until the core has done with it; then it lives as long as its handler runs
/// or somebody has a Later of it.
///
/// What belongs to the run, the Work, lies here while it is Waiting or Deferred, and belongs to whoever wins the way
/// out of that: see AnswerState.
///
/// It stays below 1 KiB, with larger parts beside it: so much the usual allocators give again at once, for more they
/// search.
class AppExchange final : public ql::HttpBaseRequest,
                          public RequestSource,
                          public std::enable_shared_from_this<AppExchange> {
public:
    using Stage = AnswerState<>::Stage;

    /// It belongs to itself.
    static AppExchange& Make(std::shared_ptr<Service> service, ql::http::HttpServerImpl& server);

    AppExchange(std::shared_ptr<Service> service, ql::http::HttpServerImpl& server);
    ~AppExchange() override;

    // ---- Daemon thread ----

    /// The head is there.
    void handle();
    /// The body is there, or as much as is kept of it.
    void handleBody(bool isWhole);
    /// It is over; may delete it.
    void end() noexcept;

    // ---- Any thread ----

    AnswerState<>& state() { return state_; }
    /// Made in handle(); not before.
    RequestData& request() { return *request_; }

    /// Leaves the answer, as far as it is set, to a Later. The chain's thread.
    /// @return null when it was claimed, or is over.
    std::shared_ptr<LaterState> defer(Answer& answer, const Work& work);
    /// What defer() left: once, for who has claimed it from there.
    ///@{
    Work takeWork() { return std::move(work_); }
    std::unique_ptr<Answer> takeDeferred() { return std::move(deferred_); }
    ///@}

    /// Answers in place of those who should have: claims it wherever it is. No hooks run.
    /// @return false when somebody has claimed it, or it is over.
    bool answerInstead(Answer&& answer);

    // ---- Whoever has claimed it, one thread at a time ----

    // What goes wrong with these is logged, and breaks the connection off where the client gets no 500.

    /// Sends an answer, or its head and has it go on from there.
    void deliver(Answer&& answer, Service& service) noexcept;
    /// Sends an answer that is whole.
    void send(Answer&& answer) noexcept;

    /// Sends the head.
    /// @param length of the body, if it is known.
    void beginStream(Answer&& answer, std::optional<std::uint64_t> length);
    /// Waits while more than 256 KiB are not taken. @return false when nobody takes it.
    bool write(std::string_view bytes, ClientWaits* waits);
    /// Hands over what was written; waits as write() does.
    void flush(ClientWaits* waits);
    void endStream();
    /// The answer cannot be whole: a 500 where its head has not gone, else the connection is broken.
    void breakOff(const char* why) noexcept;
    /// The same for the exception that is being handled, which is logged.
    /// @param what has thrown.
    void giveUp(const char* what) noexcept;

    /// Bytes that nobody has taken yet.
    std::uint64_t queuedBytes();
    /// Has the listener told of the end. @return false when it is over: it is not told.
    bool listenEnd(std::weak_ptr<EndListener> listener) QL_EXCLUDES(mutex_);

    using HttpBaseRequest::editFeedDevice;

    // ---- RequestSource ----

    RequestBody& body() override;
    bool isGone() const override;
    const HttpBaseRequest& core() const override { return *this; }

    // ---- HttpBaseRequest ----

    ql::HttpResponseInterface& getResponse() override { return description_; }
    /// While the server runs.
    ql::http::HttpServerImpl& getServerImpl() override { return server_; }

private:
    /// What the core is told of the answer.
    class Description final : public ql::HttpResponseInterface {
    public:
        const Cookies& getCookies() const override;
        const Headers& getHeaders() const override { return headers.asMap(); }
        std::uint32_t getStatusCode() const override { return static_cast<std::uint32_t>(status); }
        std::int64_t getContentLength() const override { return length; }
        std::string getReasonPhrase() const override;

        int status = 200;
        AnswerHeaders headers;
        std::int64_t length = -1;
    };

    /// Has the chain answer that the body is too long.
    void refuseBody();
    /// Has the chain run, here or on a worker.
    void run();
    /// Runs the chain, and sends what came of it.
    void perform(const Work& work);
    /// Whatever it throws ends the exchange: else its client would wait for ever.
    void performOnWorker(const Work& work) noexcept;
    void describe(Answer& answer, std::int64_t length);
    void sendWhole(Answer& answer);
    /// A plain answer of the kernel's: no chain runs.
    void refuse(int status, std::string text);
    bool isHead() const;

    ql::http::HttpServerImpl& server_;
    AnswerState<> state_;
    std::shared_ptr<AppExchange> self_;
    Work work_;
    std::unique_ptr<Answer> deferred_;
    std::unique_ptr<RequestData> request_;
    std::unique_ptr<ql::http::FormDecoder> form_;
    std::unique_ptr<RequestBody> body_;
    /// Who is told of waits for the body; constant once the chain runs.
    ClientWaits* bodyWaits_ = nullptr;
    std::uint64_t maxBody_ = DefaultMaxBody;
    bool hasWholeBody_ = false;
    Description description_;

    qlMutex mutex_;
    std::weak_ptr<EndListener> endListener_ QL_GUARDED_BY(mutex_);
    bool hasEnded_ QL_GUARDED_BY(mutex_) = false;
};

} // namespace vireo::impl
