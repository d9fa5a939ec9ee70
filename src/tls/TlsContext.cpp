#include "vireo/TlsContext.h"

#include "tls/TlsContextState.h"
#include "tls/TlsCredentials.h"

#include <utility>

namespace ql::http {

namespace {

bool load(impl::TlsContextState& state, const impl::TlsSettings* settings, std::string* error) {
    std::string reason;
    const bool isLoaded = state.load(settings, reason);
    if (error != nullptr) {
        *error = std::move(reason);
    }
    return isLoaded;
}

} // namespace

std::shared_ptr<TlsContext> TlsContext::Create(const TlsOptions& options, std::string* error) {
    auto state = std::make_unique<impl::TlsContextState>();
    if (!load(*state, options.settings_.get(), error)) {
        return nullptr;
    }
    return std::shared_ptr<TlsContext>(new TlsContext(std::move(state)));
}

TlsContext::TlsContext(std::unique_ptr<impl::TlsContextState>&& state) : state_(std::move(state)) {}
TlsContext::~TlsContext() = default;

bool TlsContext::reload(std::string* error) {
    return load(*state_, nullptr, error);
}

bool TlsContext::reload(const TlsOptions& options, std::string* error) {
    return load(*state_, options.settings_.get(), error);
}

std::shared_ptr<const impl::TlsCredentials> TlsContext::credentials() const {
    return state_->credentials();
}

} // namespace ql::http
