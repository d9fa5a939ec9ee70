#include "session/WebOrigin.h"

#include "vireo/support/HttpUrl.h"

namespace ql::impl {

namespace {

constexpr std::uint16_t HttpPort = 80;
constexpr std::uint16_t HttpsPort = 443;

} // namespace

std::optional<WebOrigin> WebOrigin::parse(const std::string& text) {
    http::HttpUrl url;
    // Nothing may follow the authority.
    if (!url.fromEncodedUtf8String(text, nullptr, true, 0)) {
        return std::nullopt;
    }
    const std::uint16_t portOfScheme = url.getScheme() == "https" ? HttpsPort : HttpPort;
    return WebOrigin{url.getScheme(), url.getHost(), url.getPort() == 0 ? portOfScheme : url.getPort()};
}

std::optional<WebOrigin> WebOrigin::ofHost(const std::string& scheme, std::string_view host) {
    return parse(std::string(scheme).append("://").append(host));
}

} // namespace ql::impl
