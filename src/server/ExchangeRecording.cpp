#include "server/ExchangeRecording.h"

#include "frame/ExceptionLog.h"
#include "server/ClientConnection.h"
#include "server/ExchangeRecordData.h"
#include "vireo/support/qlSystemUtils.h"

#include <chrono>
#include <cstddef>
#include <utility>

namespace ql::impl {

namespace {

/// What the engine adds to the headers of an answer, about: status line, date, length, the empty line.
constexpr std::uint64_t EngineHeaderBytes = 80;

constexpr int ServiceUnavailable = 503;

bool hasBody(const std::string& method, std::uint32_t status) {
    return method != "HEAD" && status >= 200 && status != 204 && status != 304;
}

} // namespace

ExchangeRecording::ExchangeRecording(const ClientConnection& client, const std::string& target)
    : data_(std::make_shared<ExchangeRecordData>()) {
    const std::int64_t nowMs = qlSystemUtils::GetTimeBaseMs();
    phaseStartMs_ = client.requestCount == 0 ? client.startTime : nowMs;
    data_->startTime = std::chrono::system_clock::now() - std::chrono::milliseconds(nowMs - phaseStartMs_);
    data_->target = target;
    data_->clientAddress = client.clientAddress();
    data_->clientPort = client.ends.clientPort;
    data_->localAddress = client.ends.localAddress;
    data_->localPort = client.ends.localPort;
    data_->isUnixClient = client.ends.isUnix;
    data_->connectionId = client.connectionId;
    data_->ordinal = client.requestCount + 1;
}

void ExchangeRecording::noteHead(EngineConnection connection, const char* method, const char* version) {
    reach(Phase::Body, qlSystemUtils::GetTimeBaseMs());
    data_->method = method;
    data_->version = version;
    data_->referer = connection.header("Referer");
    data_->userAgent = connection.header("User-Agent");
    data_->receivedHeadBytes = connection.headBytes();
}

void ExchangeRecording::reach(Phase phase, std::int64_t nowMs) noexcept {
    while (phase_ < phase) {
        endPhase(nowMs);
        phase_ = static_cast<Phase>(static_cast<std::uint8_t>(phase_) + 1);
    }
}

void ExchangeRecording::endPhase(std::int64_t nowMs) noexcept {
    data_->durationsMs[static_cast<std::size_t>(phase_)] = nowMs - std::exchange(phaseStartMs_, nowMs);
}

void ExchangeRecording::noteAnswer(std::uint32_t status, std::uint64_t headerBytes, std::uint64_t bodyBytes) noexcept {
    reach(Phase::Send, qlSystemUtils::GetTimeBaseMs());
    data_->status = static_cast<int>(status);
    data_->sentHeadBytes = headerBytes + EngineHeaderBytes;
    data_->sentBodyBytes = hasBody(data_->method, status) ? bodyBytes : 0;
}

void ExchangeRecording::noteBodies(std::uint64_t received, std::uint64_t sent) noexcept {
    data_->receivedBodyBytes = received;
    data_->sentBodyBytes += sent;
}

void ExchangeRecording::note(RecordNotes&& notes) noexcept {
    data_->notes = std::move(notes);
}

void ExchangeRecording::noteCut(CutReason reason) noexcept {
    switch (reason) {
    case CutReason::None:
        return;
    case CutReason::ClientLeft:
        return noteEnding(Ending::ClientLeft, {});
    case CutReason::HeadTimeout:
        return noteEnding(Ending::HeadTimeout, {});
    case CutReason::BodyTimeout:
        return noteEnding(Ending::BodyTimeout, {});
    case CutReason::AnswerTimeout:
        return noteEnding(Ending::AnswerTimeout, {});
    case CutReason::WriteTimeout:
        return noteEnding(Ending::WriteTimeout, {});
    case CutReason::BodyTooLarge:
        return noteEnding(Ending::Refused, "the body is too large");
    }
}

void ExchangeRecording::noteEnding(Ending ending, std::string_view reason) noexcept {
    if (std::exchange(hasEnding_, true)) {
        return;
    }
    data_->ending = ending;
    try {
        data_->reason = reason;
    } catch (...) {
        logCurrentException("the record of an exchange", "httpserver");
    }
}

void ExchangeRecording::finish(const ExchangeObservers& observers, Ending ending, std::uint32_t engineStatus) noexcept {
    const std::int64_t nowMs = qlSystemUtils::GetTimeBaseMs();
    if (data_->status == 0 && engineStatus != 0) {
        // Neither the application's answer nor the library's.
        noteEnding(Ending::Refused, "the engine refused it");
        data_->status = static_cast<int>(engineStatus);
        reach(Phase::Send, nowMs);
    }
    if (ending == Ending::WriteError && phase_ < Phase::Send) {
        // The engine's word for all that goes wrong; nothing was written yet.
        ending = Ending::ReadError;
    }
    noteEnding(ending, {});
    endPhase(nowMs);
    tellObservers(observers, std::move(data_));
}

void tellOfRefusedConnection(const ExchangeObservers& observers, const IpAddress& client,
                             const ConnectionEnds& ends) noexcept {
    try {
        auto data = std::make_shared<ExchangeRecordData>();
        data->status = ServiceUnavailable;
        data->startTime = std::chrono::system_clock::now();
        data->clientAddress = client;
        data->clientPort = ends.clientPort;
        data->localAddress = ends.localAddress;
        data->localPort = ends.localPort;
        data->isUnixClient = ends.isUnix;
        data->ending = http::ExchangeRecord::Ending::Refused;
        data->reason = "too many connections";
        tellObservers(observers, std::move(data));
    } catch (...) {
        logCurrentException("the record of a connection", "httpserver");
    }
}

} // namespace ql::impl
