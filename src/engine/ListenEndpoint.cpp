#include "vireo/ListenEndpoint.h"

#include "engine/InheritedSockets.h"
#include "engine/ListenEndpointData.h"

#include <charconv>
#include <string_view>
#include <utility>

namespace ql::http {

namespace {

using Data = impl::ListenEndpointData;

constexpr std::string_view UnixPrefix = "unix:";
constexpr std::string_view AnyAddress = "*";

std::optional<std::uint16_t> portIn(std::string_view text) {
    std::uint16_t port = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
    if (error != std::errc() || end != text.data() + text.size()) {
        return std::nullopt;
    }
    return port;
}

std::string withPort(const std::string& host, std::uint16_t port) {
    return host + ":" + std::to_string(port);
}

bool isBracketed(std::string_view host) {
    return host.size() > 2 && host.front() == '[' && host.back() == ']';
}

} // namespace

ListenEndpoint::ListenEndpoint(const impl::ListenEndpointData& data) : data_(std::make_shared<const Data>(data)) {}

ListenEndpoint ListenEndpoint::Tcp(const std::string& address, std::uint16_t port) {
    const bool isIPv6 = address.find(':') != std::string::npos;
    const std::string host = isIPv6 ? "[" + address + "]" : address;
    return ListenEndpoint(
        Data{.kind = Data::Kind::Tcp, .name = withPort(host, port), .address = address, .port = port});
}

ListenEndpoint ListenEndpoint::DualStack(std::uint16_t port) {
    return ListenEndpoint(
        Data{.kind = Data::Kind::DualStack, .name = withPort(std::string(AnyAddress), port), .port = port});
}

ListenEndpoint ListenEndpoint::Unix(const std::string& path, unsigned int mode) {
    return ListenEndpoint(
        Data{.kind = Data::Kind::Unix, .name = std::string(UnixPrefix) + path, .address = path, .mode = mode});
}

ListenEndpoint ListenEndpoint::Inherited(std::uint64_t socket) {
    return ListenEndpoint(
        Data{.kind = Data::Kind::Inherited, .name = "fd:" + std::to_string(socket), .socket = socket});
}

std::vector<ListenEndpoint> ListenEndpoint::FromEnvironment() {
    std::vector<ListenEndpoint> endpoints;
    for (const std::uint64_t socket : impl::inheritedSockets()) {
        endpoints.push_back(Inherited(socket));
    }
    return endpoints;
}

std::optional<ListenEndpoint> ListenEndpoint::Parse(const std::string& text) {
    if (text.starts_with(UnixPrefix)) {
        const std::string path = text.substr(UnixPrefix.size());
        return path.empty() ? std::nullopt : std::optional(Unix(path));
    }
    const std::size_t colon = text.rfind(':');
    if (colon == std::string::npos) {
        return std::nullopt;
    }
    const std::string host = text.substr(0, colon);
    const std::optional<std::uint16_t> port = portIn(std::string_view(text).substr(colon + 1));
    if (!port || host.empty()) {
        return std::nullopt;
    }
    if (host == AnyAddress) {
        return DualStack(*port);
    }
    if (isBracketed(host)) {
        return Tcp(host.substr(1, host.size() - 2), *port);
    }
    // Without brackets nobody knows which colon is the port's.
    return host.find_first_of("[]:") == std::string::npos ? std::optional(Tcp(host, *port)) : std::nullopt;
}

ListenEndpoint& ListenEndpoint::setTls(std::shared_ptr<TlsContext> tls) {
    Data data = *data_;
    data.isTls = true;
    data.tls = std::move(tls);
    data_ = std::make_shared<const Data>(std::move(data));
    return *this;
}

const std::shared_ptr<TlsContext>& ListenEndpoint::getTls() const {
    return data_->tls;
}

const std::string& ListenEndpoint::toString() const {
    return data_->name;
}

} // namespace ql::http
