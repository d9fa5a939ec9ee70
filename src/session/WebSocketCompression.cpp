#include "vireo/WebSocketCompression.h"

#include "session/SessionSettings.h"

#include <stdexcept>

namespace ql::http {

namespace {

/// @return `value`, which is in range.
int checked(int value, int least, int most, const char* fault) {
    if (value < least || value > most) {
        throw std::invalid_argument(fault);
    }
    return value;
}

int checkedLevel(int level) {
    return checked(level, WebSocketCompression::MinLevel, WebSocketCompression::MaxLevel, "level out of range");
}

int checkedBits(int bits) {
    return checked(bits, WebSocketCompression::MinWindowBits, WebSocketCompression::MaxWindowBits,
                   "window bits out of range");
}

} // namespace

WebSocketCompression::WebSocketCompression() : settings_(std::make_unique<impl::CompressionSettings>()) {}
WebSocketCompression::WebSocketCompression(const WebSocketCompression& other)
    : settings_(std::make_unique<impl::CompressionSettings>(*other.settings_)) {}
WebSocketCompression::WebSocketCompression(WebSocketCompression&& other) noexcept = default;
WebSocketCompression& WebSocketCompression::operator=(WebSocketCompression&& other) noexcept = default;
WebSocketCompression::~WebSocketCompression() = default;

WebSocketCompression& WebSocketCompression::operator=(const WebSocketCompression& other) {
    return *this = WebSocketCompression(other);
}

void WebSocketCompression::setLevel(int level) {
    settings_->level = checkedLevel(level);
}

int WebSocketCompression::getLevel() const {
    return settings_->level;
}

void WebSocketCompression::setMinBytes(std::uint64_t bytes) {
    settings_->minBytes = bytes;
}

std::uint64_t WebSocketCompression::getMinBytes() const {
    return settings_->minBytes;
}

void WebSocketCompression::setServerMaxWindowBits(int bits) {
    settings_->serverMaxWindowBits = checkedBits(bits);
}

int WebSocketCompression::getServerMaxWindowBits() const {
    return settings_->serverMaxWindowBits;
}

void WebSocketCompression::setClientMaxWindowBits(int bits) {
    settings_->clientMaxWindowBits = checkedBits(bits);
}

int WebSocketCompression::getClientMaxWindowBits() const {
    return settings_->clientMaxWindowBits;
}

void WebSocketCompression::setServerNoContextTakeover(bool on) {
    settings_->serverNoContextTakeover = on;
}

bool WebSocketCompression::hasServerNoContextTakeover() const {
    return settings_->serverNoContextTakeover;
}

void WebSocketCompression::setClientNoContextTakeover(bool on) {
    settings_->clientNoContextTakeover = on;
}

bool WebSocketCompression::hasClientNoContextTakeover() const {
    return settings_->clientNoContextTakeover;
}

void WebSocketCompression::setMemoryLevel(int level) {
    settings_->memoryLevel = checkedLevel(level);
}

int WebSocketCompression::getMemoryLevel() const {
    return settings_->memoryLevel;
}

} // namespace ql::http
