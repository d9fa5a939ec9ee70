#include "app/middleware/SessionState.h"

#include "app/kernel/Throw.h"
#include "app/request/RequestData.h"

#include <utility>

namespace vireo::impl {

namespace {

constexpr std::size_t TimeBytes = 8;
constexpr std::size_t LengthBytes = 2;

void put(std::string& bytes, std::uint64_t number, std::size_t size) {
    for (std::size_t i = size; i > 0; --i) {
        bytes += static_cast<char>(number >> 8U * (i - 1) & 0xFFU);
    }
}

void putText(std::string& bytes, std::string_view text) {
    put(bytes, text.size(), LengthBytes);
    bytes += text;
}

/// @return none when there are not so many bytes.
std::optional<std::uint64_t> take(std::string_view& bytes, std::size_t size) {
    if (bytes.size() < size) {
        return std::nullopt;
    }
    std::uint64_t number = 0;
    for (const char byte : bytes.substr(0, size)) {
        number = number << 8U | static_cast<unsigned char>(byte);
    }
    bytes.remove_prefix(size);
    return number;
}

std::optional<std::string_view> takeText(std::string_view& bytes) {
    const std::optional<std::uint64_t> size = take(bytes, LengthBytes);
    if (!size || *size > bytes.size()) {
        return std::nullopt;
    }
    const std::string_view text = bytes.substr(0, static_cast<std::size_t>(*size));
    bytes.remove_prefix(text.size());
    return text;
}

} // namespace

std::string SessionText::encode() const {
    std::string bytes;
    put(bytes, static_cast<std::uint64_t>(begun), TimeBytes);
    put(bytes, static_cast<std::uint64_t>(issued), TimeBytes);
    for (const auto& [name, value] : fields) {
        putText(bytes, name);
        putText(bytes, value);
    }
    return bytes;
}

std::optional<SessionText> SessionText::decode(std::string_view bytes) {
    SessionText text;
    const std::optional<std::uint64_t> begun = take(bytes, TimeBytes);
    const std::optional<std::uint64_t> issued = take(bytes, TimeBytes);
    if (!begun || !issued) {
        return std::nullopt;
    }
    text.begun = static_cast<std::int64_t>(*begun);
    text.issued = static_cast<std::int64_t>(*issued);
    while (!bytes.empty()) {
        const std::optional<std::string_view> name = takeText(bytes);
        const std::optional<std::string_view> value = name ? takeText(bytes) : std::nullopt;
        if (!value) {
            return std::nullopt;
        }
        text.fields.emplace(*name, *value);
    }
    return text;
}

SessionState::SessionState(std::shared_ptr<const SessionMaker> maker, const RequestData& request,
                           const std::vector<Cookie>& cookies, bool isOverTls, std::int64_t now)
    : maker_(std::move(maker)), request_(request), isOverTls_(isOverTls), now_(now), session_(*this) {
    text_.begun = now;
    for (const Cookie& cookie : cookies) {
        if (cookie.name != maker_->rules.cookie || cookie.value.empty()) {
            continue;
        }
        hadCookie_ = true;
        if (std::optional<SessionText> text = read(cookie.value)) {
            text_ = std::move(*text);
            return;
        }
    }
}

std::optional<SessionText> SessionState::read(std::string_view cookie) const {
    const SessionRules& rules = maker_->rules;
    const std::optional<std::string> bytes = maker_->signedText.verify(cookie, maker_->purpose);
    std::optional<SessionText> text = bytes ? SessionText::decode(*bytes) : std::nullopt;
    // Clocks are put back, and those of two hosts differ: one given out a little later than now is as good. One of the
    // far future would last that much longer.
    const bool lasts =
        text && text->issued <= now_ + rules.maxAge.count() && rules.endOf(text->begun, text->issued) > now_;
    return lasts ? std::move(text) : std::nullopt;
}

const std::string& SessionState::get(std::string_view name) const {
    const auto found = text_.fields.find(name);
    return found == text_.fields.end() ? empty_ : found->second;
}

void SessionState::set(std::string_view name, std::string_view value) {
    requireOpen();
    SessionText changed = text_;
    changed.fields.insert_or_assign(std::string(name), std::string(value));
    const bool fits = name.size() <= MaxCookieBytes && value.size() <= MaxCookieBytes &&
                      maker_->signedText.sign(changed.encode(), maker_->purpose).size() <= MaxCookieBytes;
    if (!fits) {
        throwLengthError("a session has " + std::to_string(MaxCookieBytes) +
                         " bytes at most: keep in it who the client is, and the rest with you");
    }
    text_ = std::move(changed);
    isChanged_ = true;
}

void SessionState::erase(std::string_view name) {
    requireOpen();
    const auto found = text_.fields.find(name);
    if (found != text_.fields.end()) {
        text_.fields.erase(found);
        isChanged_ = true;
    }
}

void SessionState::clear() {
    requireOpen();
    text_.fields.clear();
    text_.begun = now_;
    isChanged_ = true;
}

std::optional<SetCookie> SessionState::close(std::int64_t now) {
    isClosed_ = true;
    const SessionRules& rules = maker_->rules;
    const bool isEnding = isEmpty() && isChanged_ && hadCookie_;
    const std::int64_t end = rules.endOf(text_.begun, now);
    const std::int64_t endSoFar = rules.endOf(text_.begun, text_.issued);
    const bool isHalfOver = endSoFar - now < rules.maxAge.count() / 2;
    const bool isDue = !isEmpty() && (isChanged_ || (isHalfOver && endSoFar < end));
    if (!isEnding && !isDue) {
        return std::nullopt;
    }
    text_.issued = now;
    SetCookie cookie(rules.cookie, isEnding ? std::string() : maker_->signedText.sign(text_.encode(), maker_->purpose));
    cookie.setPath("/").setHttpOnly().setMaxAge(isEnding ? 0 : (std::max)(std::int64_t{0}, end - now));
    if (rules.isSecure || isOverTls_) {
        cookie.setSecure();
    }
    cookie.setSameSite(rules.sameSite);
    return cookie;
}

void SessionState::requireOpen() const {
    if (request_.isDeferred) {
        throwLogicError("the answer was left to a Later: change the session before");
    }
    if (isClosed_) {
        throwLogicError("the head of the answer has gone: change the session before");
    }
}

} // namespace vireo::impl
