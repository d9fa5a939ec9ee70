#include "vireo/WebSocketAcceptor.h"

#include "session/Opening.h"
#include "vireo/HttpBaseRequest.h"

namespace ql::http {

WebSocketOpening::WebSocketOpening(const impl::Opening& opening) : opening_(opening) {}
WebSocketOpening::~WebSocketOpening() = default;

const std::string& WebSocketOpening::getPath() const {
    return getRequest().getParsedUrl().getDecodedPath();
}

const HttpBaseRequest& WebSocketOpening::getRequest() const {
    return opening_.request();
}

const std::string& WebSocketOpening::getOrigin() const {
    return opening_.origin();
}

bool WebSocketOpening::isSameOrigin() const {
    return opening_.isSameOrigin();
}

const std::vector<std::string>& WebSocketOpening::getSubprotocols() const {
    return opening_.subprotocols();
}

WebSocketAcceptor::WebSocketAcceptor() = default;
WebSocketAcceptor::~WebSocketAcceptor() = default;

bool WebSocketAcceptor::isOriginAllowed(const WebSocketOpening& opening) {
    return opening.isSameOrigin();
}

void WebSocketAcceptor::reserved1() {}
void WebSocketAcceptor::reserved2() {}
void WebSocketAcceptor::reserved3() {}
void WebSocketAcceptor::reserved4() {}

} // namespace ql::http
