#include "vireo/ServerOptions.h"

#include "frame/HttpSyntax.h"
#include "server/ServerSettings.h"

#include <stdexcept>
#include <utility>

namespace ql::http {

namespace {

constexpr std::size_t PollingMemoryBytes = 262144;
constexpr std::size_t EventMemoryBytes = 65536;

/// @return `ms`, which is in range.
std::uint32_t checkedDeadline(std::uint32_t ms) {
    if (ms != 0 && (ms < ServerOptions::MinDeadlineMs || ms > ServerOptions::MaxDeadlineMs)) {
        throw std::invalid_argument("deadline out of range");
    }
    return ms;
}

} // namespace

ServerOptions::ServerOptions() : settings_(std::make_unique<impl::ServerSettings>()) {}
ServerOptions::ServerOptions(const ServerOptions& other)
    : settings_(std::make_unique<impl::ServerSettings>(*other.settings_)) {}
ServerOptions::ServerOptions(ServerOptions&& other) noexcept = default;
ServerOptions& ServerOptions::operator=(ServerOptions&& other) noexcept = default;
ServerOptions::~ServerOptions() = default;

ServerOptions& ServerOptions::operator=(const ServerOptions& other) {
    return *this = ServerOptions(other);
}

void ServerOptions::addListener(const ListenEndpoint& endpoint) {
    settings_->listeners.push_back(endpoint);
}

const std::vector<ListenEndpoint>& ServerOptions::getListeners() const {
    return settings_->listeners;
}

ServerOptions ServerOptions::ForThroughput() {
    constexpr std::size_t ConnectionMemoryBytes = 32768;
    ServerOptions options;
    options.setWaiting(Waiting::Event);
    options.setConnectionMemoryBytes(ConnectionMemoryBytes);
    options.setTurbo(true);
    options.setFiling(Filing::OnDemand);
    return options;
}

void ServerOptions::setConnectionMemoryBytes(std::size_t bytes) {
    if (bytes < MinConnectionMemoryBytes || bytes > MaxConnectionMemoryBytes) {
        throw std::invalid_argument("connection memory out of range");
    }
    settings_->connectionMemoryBytes = bytes;
}

std::size_t ServerOptions::getConnectionMemoryBytes() const {
    const bool isEvent = settings_->waiting == Waiting::Event;
    return settings_->connectionMemoryBytes.value_or(isEvent ? EventMemoryBytes : PollingMemoryBytes);
}

void ServerOptions::setTurbo(bool on) {
    settings_->turbo = on;
}

bool ServerOptions::isTurbo() const {
    return settings_->turbo;
}

void ServerOptions::setWaiting(Waiting waiting) {
    settings_->waiting = waiting;
}

ServerOptions::Waiting ServerOptions::getWaiting() const {
    return settings_->waiting;
}

void ServerOptions::setUploadWindowBytes(std::uint64_t bytes) {
    if (bytes < MinUploadWindowBytes) {
        throw std::invalid_argument("upload window out of range");
    }
    settings_->uploadWindowBytes = bytes;
}

std::uint64_t ServerOptions::getUploadWindowBytes() const {
    return settings_->uploadWindowBytes;
}

void ServerOptions::setMaxBodyBytes(std::uint64_t bytes) {
    settings_->maxBodyBytes = bytes;
}

std::uint64_t ServerOptions::getMaxBodyBytes() const {
    return settings_->maxBodyBytes;
}

void ServerOptions::setMaxHeadBytes(std::uint64_t bytes) {
    settings_->maxHeadBytes = bytes;
}

std::uint64_t ServerOptions::getMaxHeadBytes() const {
    return settings_->maxHeadBytes;
}

void ServerOptions::setMaxRequestsPerConnection(std::uint32_t count) {
    settings_->maxRequestsPerConnection = count;
}

std::uint32_t ServerOptions::getMaxRequestsPerConnection() const {
    return settings_->maxRequestsPerConnection;
}

void ServerOptions::addExchangeObserver(std::shared_ptr<ExchangeObserver> observer) {
    if (!observer) {
        throw std::invalid_argument("no observer");
    }
    settings_->observers.push_back(std::move(observer));
}

const std::vector<std::shared_ptr<ExchangeObserver>>& ServerOptions::getExchangeObservers() const {
    return settings_->observers;
}

void ServerOptions::setRequestOwner(std::shared_ptr<RequestOwner> owner) {
    settings_->owner = std::move(owner);
}

const std::shared_ptr<RequestOwner>& ServerOptions::getRequestOwner() const {
    return settings_->owner;
}

void ServerOptions::setEndOnClientClose(bool on) {
    settings_->endsOnClientClose = on;
}

bool ServerOptions::endsOnClientClose() const {
    return settings_->endsOnClientClose;
}

void ServerOptions::setMaxConnections(std::size_t count) {
    settings_->maxConnections = count;
}

std::size_t ServerOptions::getMaxConnections() const {
    return settings_->maxConnections;
}

void ServerOptions::setMaxConnectionsPerAddress(std::size_t count) {
    settings_->maxConnectionsPerAddress = count;
}

std::size_t ServerOptions::getMaxConnectionsPerAddress() const {
    return settings_->maxConnectionsPerAddress;
}

void ServerOptions::setDrainGraceMs(std::uint32_t ms) {
    settings_->drainGraceMs = ms;
}

std::uint32_t ServerOptions::getDrainGraceMs() const {
    return settings_->drainGraceMs;
}

void ServerOptions::setDrainAnswer(DrainAnswer answer) {
    settings_->drainAnswer = answer;
}

ServerOptions::DrainAnswer ServerOptions::getDrainAnswer() const {
    return settings_->drainAnswer;
}

void ServerOptions::setHeadTimeoutMs(std::uint32_t ms) {
    settings_->headTimeoutMs = checkedDeadline(ms);
}

std::uint32_t ServerOptions::getHeadTimeoutMs() const {
    return settings_->headTimeoutMs;
}

void ServerOptions::setBodyProgress(std::uint64_t bytes, std::uint32_t ms) {
    if (bytes == 0 || bytes > MaxBodyProgressBytes) {
        throw std::invalid_argument("body progress out of range");
    }
    settings_->bodyProgressMs = checkedDeadline(ms);
    settings_->bodyProgressBytes = bytes;
}

std::uint64_t ServerOptions::getBodyProgressBytes() const {
    return settings_->bodyProgressBytes;
}

std::uint32_t ServerOptions::getBodyProgressMs() const {
    return settings_->bodyProgressMs;
}

void ServerOptions::setAnswerTimeoutMs(std::uint32_t ms) {
    settings_->answerTimeoutMs = checkedDeadline(ms);
}

std::uint32_t ServerOptions::getAnswerTimeoutMs() const {
    return settings_->answerTimeoutMs;
}

void ServerOptions::setWriteTimeoutMs(std::uint32_t ms) {
    settings_->writeTimeoutMs = checkedDeadline(ms);
}

std::uint32_t ServerOptions::getWriteTimeoutMs() const {
    return settings_->writeTimeoutMs;
}

void ServerOptions::setStrictHttp(bool on) {
    settings_->strictHttp = on;
}

bool ServerOptions::isStrictHttp() const {
    return settings_->strictHttp;
}

void ServerOptions::addMethod(std::string token) {
    if (!impl::isToken(token)) {
        throw std::invalid_argument("no token");
    }
    settings_->methods.push_back(std::move(token));
}

const std::vector<std::string>& ServerOptions::getMethods() const {
    return settings_->methods;
}

void ServerOptions::setFiling(Filing filing) {
    settings_->filing = filing;
}

ServerOptions::Filing ServerOptions::getFiling() const {
    return settings_->filing;
}

void ServerOptions::setWebSockets(std::shared_ptr<WebSocketAcceptor> acceptor, const WebSocketOptions& options) {
    settings_->webSocketOptions = options;
    settings_->webSocketAcceptor = std::move(acceptor);
}

const std::shared_ptr<WebSocketAcceptor>& ServerOptions::getWebSocketAcceptor() const {
    return settings_->webSocketAcceptor;
}

const WebSocketOptions& ServerOptions::getWebSocketOptions() const {
    return settings_->webSocketOptions;
}

} // namespace ql::http
