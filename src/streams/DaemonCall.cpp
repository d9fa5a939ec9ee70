#include "streams/DaemonCall.h"

#include <utility>

namespace ql::impl {

namespace {

thread_local bool isInCall = false;

} // namespace

DaemonCall::DaemonCall() : mark_(isInCall), isNested_(std::exchange(mark_, true)) {}

DaemonCall::~DaemonCall() {
    mark_ = isNested_;
}

bool DaemonCall::isUnderWay() {
    return isInCall;
}

} // namespace ql::impl
