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
    settings_->deflate.level = checked(level, MinLevel, MaxLevel, "level out of range");
}

int WebSocketCompression::getLevel() const {
    return settings_->deflate.level;
}

void WebSocketCompression::setMinBytes(std::size_t bytes) {
    settings_->deflate.minBytes = bytes;
}

std::size_t WebSocketCompression::getMinBytes() const {
    return settings_->deflate.minBytes;
}

void WebSocketCompression::setServerMaxWindowBits(int bits) {
    settings_->deflate.serverMaxWindowBits = checkedBits(bits);
}

int WebSocketCompression::getServerMaxWindowBits() const {
    return settings_->deflate.serverMaxWindowBits;
}

void WebSocketCompression::setClientMaxWindowBits(int bits) {
    settings_->deflate.clientMaxWindowBits = checkedBits(bits);
}

int WebSocketCompression::getClientMaxWindowBits() const {
    return settings_->deflate.clientMaxWindowBits;
}

void WebSocketCompression::setServerNoContextTakeover(bool on) {
    settings_->deflate.serverNoContextTakeover = on;
}

bool WebSocketCompression::hasServerNoContextTakeover() const {
    return settings_->deflate.serverNoContextTakeover;
}

void WebSocketCompression::setClientNoContextTakeover(bool on) {
    settings_->deflate.clientNoContextTakeover = on;
}

bool WebSocketCompression::hasClientNoContextTakeover() const {
    return settings_->deflate.clientNoContextTakeover;
}

} // namespace ql::http
