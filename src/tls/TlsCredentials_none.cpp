#include "tls/TlsCredentials.h"

namespace ql::impl {

void* certificateOfNobody() {
    return nullptr;
}

std::shared_ptr<const TlsCredentials> TlsCredentials::Create(const TlsSettings& /*settings*/, std::string& error) {
    error = "Vireo was built without TLS";
    return nullptr;
}

} // namespace ql::impl
