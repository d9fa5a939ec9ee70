#include "vireo/app/Authentication.h"

#include "app/middleware/Credentials.h"
#include "frame/InvalidArgument.h"
#include "vireo/app/HttpError.h"
#include "vireo/app/Request.h"
#include "vireo/support/IpAddress.h"
#include "vireo/support/qlLog.h"

#include <atomic>
#include <memory>
#include <utility>

namespace vireo {

namespace {

constexpr int Unauthorized = 401;

const RequestKey<std::string> User;

/// Without a check nobody would come through.
template <class Check>
void requireCheck(const Check& check) {
    if (!check) {
        ql::impl::throwInvalidArgument("authentication takes a check");
    }
}

[[noreturn]] void challenge(const std::string& text) {
    throw HttpError(HttpError(Unauthorized).header("WWW-Authenticate", text));
}

} // namespace

Middleware basicAuth(std::string_view realm,
                     std::function<bool(std::string_view user, std::string_view password)> check) {
    requireCheck(check);
    struct Rules {
        std::string challenge;
        std::function<bool(std::string_view, std::string_view)> check;
        std::atomic<bool> hasWarned{false};
    };
    const auto rules = std::make_shared<Rules>();
    rules->challenge = "Basic realm=" + impl::quoted(realm) + ", charset=\"UTF-8\"";
    rules->check = std::move(check);
    return [rules](Request& request, Response&, Next& next) {
        const auto credentials = impl::parseBasic(request.header("Authorization"));
        if (!credentials) {
            challenge(rules->challenge);
        }
        const ql::IpAddress& client = request.clientAddress();
        if (!request.isSecure() && !client.isEmpty() && !client.isLoopback() && !rules->hasWarned.exchange(true)) {
            qlLogObject(qlLogType::Failure, "app")
                << "passwords come without TLS from " << request.client() << " : anybody on the way can read them";
        }
        if (!rules->check(credentials->user, credentials->password)) {
            challenge(rules->challenge);
        }
        userOf(request) = credentials->user;
        next();
    };
}

Middleware bearerAuth(std::string_view realm, std::function<bool(Request& request, std::string_view token)> check) {
    requireCheck(check);
    return [challengeText = "Bearer realm=" + impl::quoted(realm),
            ownCheck = std::make_shared<const decltype(check)>(std::move(check))](Request& request, Response&,
                                                                                  Next& next) {
        const std::string_view authorization = request.header("Authorization");
        if (authorization.empty()) {
            challenge(challengeText);
        }
        const std::optional<std::string_view> token = impl::parseBearer(authorization);
        if (!token || !(*ownCheck)(request, *token)) {
            challenge(challengeText + ", error=\"invalid_token\"");
        }
        next();
    };
}

std::string& userOf(Request& request) {
    return request[User];
}

bool isSameText(std::string_view left, std::string_view right) {
    return impl::isSameSecret<char>(left, right);
}

} // namespace vireo
