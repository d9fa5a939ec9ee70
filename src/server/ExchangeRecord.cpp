#include "vireo/ExchangeRecord.h"

#include "server/ExchangeRecordData.h"

#include <algorithm>
#include <cstddef>
#include <utility>

namespace ql::http {

const char* ExchangeRecord::toText(Ending ending) {
    switch (ending) {
    case Ending::Completed:
        return "completed";
    case Ending::Upgraded:
        return "upgraded";
    case Ending::Refused:
        return "refused";
    case Ending::ClientLeft:
        return "client_left";
    case Ending::ReadError:
        return "read_error";
    case Ending::WriteError:
        return "write_error";
    case Ending::IdleTimeout:
        return "idle_timeout";
    case Ending::HeadTimeout:
        return "head_timeout";
    case Ending::BodyTimeout:
        return "body_timeout";
    case Ending::AnswerTimeout:
        return "answer_timeout";
    case Ending::WriteTimeout:
        return "write_timeout";
    case Ending::ServerStopped:
        return "server_stopped";
    case Ending::Failed:
        return "failed";
    }
    return "";
}

const char* ExchangeRecord::toText(Phase phase) {
    switch (phase) {
    case Phase::Head:
        return "head";
    case Phase::Body:
        return "body";
    case Phase::Wait:
        return "wait";
    case Phase::Send:
        return "send";
    }
    return "";
}

ExchangeRecord::ExchangeRecord(std::shared_ptr<const impl::ExchangeRecordData> data) : data_(std::move(data)) {}
ExchangeRecord::ExchangeRecord(const ExchangeRecord& other) = default;
ExchangeRecord& ExchangeRecord::operator=(const ExchangeRecord& other) = default;
ExchangeRecord::~ExchangeRecord() = default;

const std::string& ExchangeRecord::getMethod() const {
    return data_->method;
}

const std::string& ExchangeRecord::getTarget() const {
    return data_->target;
}

const std::string& ExchangeRecord::getVersion() const {
    return data_->version;
}

const std::string& ExchangeRecord::getReferer() const {
    return data_->referer;
}

const std::string& ExchangeRecord::getUserAgent() const {
    return data_->userAgent;
}

int ExchangeRecord::getStatus() const {
    return data_->status;
}

std::uint64_t ExchangeRecord::getReceivedHeadBytes() const {
    return data_->receivedHeadBytes;
}

std::uint64_t ExchangeRecord::getReceivedBodyBytes() const {
    return data_->receivedBodyBytes;
}

std::uint64_t ExchangeRecord::getSentHeadBytes() const {
    return data_->sentHeadBytes;
}

std::uint64_t ExchangeRecord::getSentBodyBytes() const {
    return data_->sentBodyBytes;
}

std::int64_t ExchangeRecord::getDurationMs(Phase phase) const {
    return data_->durationsMs[static_cast<std::size_t>(phase)];
}

std::int64_t ExchangeRecord::getTotalDurationMs() const {
    std::int64_t total = 0;
    for (const std::int64_t durationMs : data_->durationsMs) {
        total += std::max<std::int64_t>(durationMs, 0);
    }
    return total;
}

std::chrono::system_clock::time_point ExchangeRecord::getStartTime() const {
    return data_->startTime;
}

const IpAddress& ExchangeRecord::getClientAddress() const {
    return data_->clientAddress;
}

std::uint16_t ExchangeRecord::getClientPort() const {
    return data_->clientPort;
}

const IpAddress& ExchangeRecord::getLocalAddress() const {
    return data_->localAddress;
}

std::uint16_t ExchangeRecord::getLocalPort() const {
    return data_->localPort;
}

std::string ExchangeRecord::getClientText() const {
    return data_->isUnixClient ? "unix:" : data_->clientAddress.toString();
}

const std::string& ExchangeRecord::getConnectionId() const {
    return data_->connectionId;
}

std::uint32_t ExchangeRecord::getOrdinal() const {
    return data_->ordinal;
}

const IpAddress& ExchangeRecord::getForwardedClient() const {
    return data_->notes.forwardedClient;
}

const std::string& ExchangeRecord::getRequestId() const {
    return data_->notes.requestId;
}

ExchangeRecord::Ending ExchangeRecord::getEnding() const {
    return data_->ending;
}

const std::string& ExchangeRecord::getReason() const {
    return data_->reason;
}

} // namespace ql::http
