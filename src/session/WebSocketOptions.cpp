#include "vireo/WebSocketOptions.h"

#include "session/SessionSettings.h"
#include "session/WebOrigin.h"

#include <stdexcept>
#include <utility>

namespace ql::http {

namespace {

/// @return `bytes`, which may be a limit.
std::uint64_t checkedLimit(std::uint64_t bytes) {
    if (bytes == 0) {
        throw std::invalid_argument("limit out of range");
    }
    return bytes;
}

/// @return `ms`, which is in range.
std::uint32_t checkedTime(std::uint32_t ms) {
    if (ms < WebSocketOptions::MinTimeMs || ms > WebSocketOptions::MaxTimeMs) {
        throw std::invalid_argument("time out of range");
    }
    return ms;
}

std::uint32_t checkedTimeOrNone(std::uint32_t ms) {
    return ms == 0 ? 0 : checkedTime(ms);
}

} // namespace

WebSocketOptions::WebSocketOptions() : settings_(std::make_unique<impl::SessionSettings>()) {}
WebSocketOptions::WebSocketOptions(const WebSocketOptions& other)
    : settings_(std::make_unique<impl::SessionSettings>(*other.settings_)) {}
WebSocketOptions::WebSocketOptions(WebSocketOptions&& other) noexcept = default;
WebSocketOptions& WebSocketOptions::operator=(WebSocketOptions&& other) noexcept = default;
WebSocketOptions::~WebSocketOptions() = default;

WebSocketOptions& WebSocketOptions::operator=(const WebSocketOptions& other) {
    return *this = WebSocketOptions(other);
}

void WebSocketOptions::setMaxMessageBytes(std::uint64_t bytes) {
    settings_->maxMessageBytes = checkedLimit(bytes);
}

std::uint64_t WebSocketOptions::getMaxMessageBytes() const {
    return settings_->maxMessageBytes;
}

void WebSocketOptions::setMaxQueuedBytes(std::uint64_t bytes) {
    settings_->maxQueuedBytes = checkedLimit(bytes);
}

std::uint64_t WebSocketOptions::getMaxQueuedBytes() const {
    return settings_->maxQueuedBytes;
}

void WebSocketOptions::setQueuePolicy(QueuePolicy policy) {
    settings_->queuePolicy = policy;
}

WebSocketOptions::QueuePolicy WebSocketOptions::getQueuePolicy() const {
    return settings_->queuePolicy;
}

void WebSocketOptions::addAllowedOrigin(const std::string& origin) {
    const std::optional<impl::WebOrigin> parsed = impl::WebOrigin::parse(origin);
    if (!parsed) {
        throw std::invalid_argument("no origin");
    }
    settings_->allowedOrigins.push_back(*parsed);
    settings_->allowedOriginTexts.push_back(origin);
}

const std::vector<std::string>& WebSocketOptions::getAllowedOrigins() const {
    return settings_->allowedOriginTexts;
}

void WebSocketOptions::setPingIntervalMs(std::uint32_t ms) {
    settings_->pingIntervalMs = checkedTimeOrNone(ms);
}

std::uint32_t WebSocketOptions::getPingIntervalMs() const {
    return settings_->pingIntervalMs;
}

void WebSocketOptions::setPongTimeoutMs(std::uint32_t ms) {
    settings_->pongTimeoutMs = checkedTimeOrNone(ms);
}

std::uint32_t WebSocketOptions::getPongTimeoutMs() const {
    return settings_->pongTimeoutMs;
}

void WebSocketOptions::setIdleTimeoutMs(std::uint32_t ms) {
    settings_->idleTimeoutMs = checkedTimeOrNone(ms);
}

std::uint32_t WebSocketOptions::getIdleTimeoutMs() const {
    return settings_->idleTimeoutMs;
}

void WebSocketOptions::setCloseTimeoutMs(std::uint32_t ms) {
    settings_->closeTimeoutMs = checkedTime(ms);
}

std::uint32_t WebSocketOptions::getCloseTimeoutMs() const {
    return settings_->closeTimeoutMs;
}

void WebSocketOptions::setCompression(const WebSocketCompression& compression) {
    settings_->compression = compression;
}

const std::optional<WebSocketCompression>& WebSocketOptions::getCompression() const {
    return settings_->compression;
}

void WebSocketOptions::setPieces(bool on) {
    settings_->inPieces = on;
}

bool WebSocketOptions::hasPieces() const {
    return settings_->inPieces;
}

void WebSocketOptions::setThreads(std::uint32_t count) {
    if (count == 0 || count > MaxThreads) {
        throw std::invalid_argument("number of threads out of range");
    }
    settings_->threads = count;
}

std::uint32_t WebSocketOptions::getThreads() const {
    return settings_->threads;
}

void WebSocketOptions::setPool(std::shared_ptr<WebSocketPool> pool) {
    settings_->pool = std::move(pool);
}

const std::shared_ptr<WebSocketPool>& WebSocketOptions::getPool() const {
    return settings_->pool;
}

} // namespace ql::http
