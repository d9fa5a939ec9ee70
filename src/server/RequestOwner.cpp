#include "vireo/RequestOwner.h"

namespace ql::http {

RequestOwner::RequestOwner() = default;
RequestOwner::~RequestOwner() = default;

void RequestOwner::onBodyReady(HttpBaseRequest& /*request*/, bool /*isWhole*/) {}

void RequestOwner::reserved1() {}
void RequestOwner::reserved2() {}
void RequestOwner::reserved3() {}
void RequestOwner::reserved4() {}

} // namespace ql::http
