// SPDX-License-Identifier: MIT
#include "app/run/Urls.h"

#include <cstddef>

namespace vireo::impl {

namespace {

/// What stands in front of the port; a socket that was inherited, and one for every address, are reached here.
std::string hostOf(const std::string& listener) {
    const std::string host = listener.substr(0, listener.rfind(':'));
    return host == "*" || host == "fd" || host == "0.0.0.0" || host == "[::]" ? "localhost" : host;
}

std::string urlOf(const ql::http::ListenEndpoint& listener, std::uint16_t port) {
    if (port == 0) {
        return listener.toString();
    }
    const std::string scheme = listener.getTls() == nullptr ? "http" : "https";
    return scheme + "://" + hostOf(listener.toString()) + ":" + std::to_string(port) + "/";
}

} // namespace

std::vector<std::string> urlsOf(const std::vector<ql::http::ListenEndpoint>& listeners,
                                const std::vector<std::uint16_t>& ports) {
    std::vector<std::string> urls;
    for (std::size_t i = 0; i < listeners.size() && i < ports.size(); ++i) {
        urls.push_back(urlOf(listeners[i], ports[i]));
    }
    return urls;
}

} // namespace vireo::impl
