#include "session/pool/PollReadiness.h"

namespace ql::impl {

std::unique_ptr<Readiness> makeReadiness() {
    return std::make_unique<PollReadiness>();
}

} // namespace ql::impl
