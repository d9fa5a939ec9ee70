#include "vireo/WebSocketAnswer.h"

#include "frame/HttpSyntax.h"
#include "session/AnswerData.h"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace ql::http {

namespace {

constexpr std::array<std::string_view, 4> HeadersOfLibrary = {"Connection", "Upgrade", "Content-Length",
                                                              "Transfer-Encoding"};
constexpr std::string_view HandshakePrefix = "Sec-WebSocket-";

bool isOfLibrary(std::string_view name) {
    return impl::isSameWord(name.substr(0, HandshakePrefix.size()), HandshakePrefix) ||
           std::ranges::any_of(HeadersOfLibrary,
                               [name](std::string_view header) { return impl::isSameWord(name, header); });
}

} // namespace

WebSocketAnswer::WebSocketAnswer(impl::AnswerData&& data)
    : data_(std::make_unique<impl::AnswerData>(std::move(data))) {}

WebSocketAnswer::WebSocketAnswer(WebSocketAnswer&& other) noexcept = default;
WebSocketAnswer& WebSocketAnswer::operator=(WebSocketAnswer&& other) noexcept = default;
WebSocketAnswer::~WebSocketAnswer() = default;

WebSocketAnswer WebSocketAnswer::Accept(std::unique_ptr<WebSocketSession> session) {
    if (!session) {
        throw std::invalid_argument("no session");
    }
    impl::AnswerData data;
    data.kind = impl::AnswerData::Kind::Accept;
    data.session = std::move(session);
    return WebSocketAnswer(std::move(data));
}

WebSocketAnswer WebSocketAnswer::Refuse(std::uint32_t status, std::string body) {
    if (status < MinRefusal || status > MaxRefusal) {
        throw std::invalid_argument("status out of range");
    }
    impl::AnswerData data;
    data.kind = impl::AnswerData::Kind::Refuse;
    data.status = status;
    data.body = std::move(body);
    return WebSocketAnswer(std::move(data));
}

WebSocketAnswer WebSocketAnswer::Pass() {
    return WebSocketAnswer(impl::AnswerData());
}

void WebSocketAnswer::setSubprotocol(std::string name) {
    data_->subprotocol = std::move(name);
}

void WebSocketAnswer::setOptions(const WebSocketOptions& options) {
    data_->settings = impl::SessionSettings::forSessions(options);
}

void WebSocketAnswer::setRecordClient(const IpAddress& client) {
    data_->notes.forwardedClient = client;
}

void WebSocketAnswer::setRecordId(std::string id) {
    data_->notes.requestId = std::move(id);
}

void WebSocketAnswer::addHeader(const std::string& name, const std::string& value) {
    if (!impl::isToken(name) || !impl::isFieldValue(value)) {
        throw std::invalid_argument("no header");
    }
    if (isOfLibrary(name)) {
        throw std::invalid_argument("the library sets this header");
    }
    data_->headers.emplace_back(name, value);
}

} // namespace ql::http
