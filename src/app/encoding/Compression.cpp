#include "vireo/app/Compression.h"

#include "app/encoding/Brotli.h"
#include "app/encoding/CompressionRules.h"
#include "app/kernel/Answer.h"
#include "vireo/app/Request.h"
#include "vireo/app/Response.h"

namespace vireo {

namespace {

/// What the client likes best; empty or "identity": nothing.
std::string chooseCoding(const Request& request) {
    if (request.header("Accept-Encoding").empty()) {
        return {};
    }
    return impl::hasBrotli() ? request.acceptsEncoding({"br", "gzip", "identity"})
                             : request.acceptsEncoding({"gzip", "identity"});
}

} // namespace

Middleware compression(const CompressionOptions& options) {
    const auto rules = std::make_shared<const impl::CompressionRules>(impl::CompressionRules::of(options));
    return [rules](Request& request, Response& response, Next& next) {
        response.beforeSend([rules, coding = chooseCoding(request)](Response& sent) {
            impl::offerEncoding(*rules, coding, impl::ResponseAccess::state(sent).answer);
        });
        next();
    };
}

} // namespace vireo
