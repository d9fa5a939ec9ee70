#include "vireo/app/AllowedHosts.h"

#include "app/request/Authority.h"
#include "frame/HttpSyntax.h"
#include "frame/InvalidArgument.h"
#include "vireo/app/HttpError.h"
#include "vireo/app/Request.h"

#include <algorithm>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>

namespace vireo {

namespace impl {

namespace {

struct AllowedHost {
    explicit AllowedHost(std::string_view text) {
        isWildcard = text.starts_with("*.");
        const std::optional<Authority> authority = Authority::Parse(text.substr(isWildcard ? 1 : 0));
        if (!authority || authority->host == ".") {
            ql::impl::throwInvalidArgument("no host, such as example.org: " + std::string(text));
        }
        host = authority->host;
        port = authority->port;
    }

    bool isOf(const Authority& asked, std::string_view scheme) const {
        if (!port.empty() && port != asked.portOf(scheme)) {
            return false;
        }
        if (!isWildcard) {
            return ql::impl::isSameWord(asked.host, host);
        }
        return asked.host.size() > host.size() &&
               ql::impl::isSameWord(asked.host.substr(asked.host.size() - host.size()), host);
    }

    /// Whether the host, which begins with a dot then, stands for all names that end so.
    bool isWildcard = false;
    std::string host;
    /// Empty: any.
    std::string port;
};

} // namespace

} // namespace impl

Middleware allowedHosts(const std::vector<std::string>& hosts) {
    if (hosts.empty()) {
        ql::impl::throwInvalidArgument("allowedHosts() takes a host at least");
    }
    const auto allowed = std::make_shared<const std::vector<impl::AllowedHost>>(hosts.begin(), hosts.end());
    return [allowed](Request& request, Response&, Next& next) {
        constexpr int MisdirectedRequest = 421;
        const std::optional<impl::Authority> asked = impl::Authority::Parse(request.host());
        const bool isAllowed = asked && std::ranges::any_of(*allowed, [&](const impl::AllowedHost& host) {
                                   return host.isOf(*asked, request.scheme());
                               });
        if (!isAllowed) {
            throw HttpError(MisdirectedRequest);
        }
        next();
    };
}

} // namespace vireo
