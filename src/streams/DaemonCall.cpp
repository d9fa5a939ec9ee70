#include "streams/DaemonCall.h"

#include <utility>

namespace ql::impl {

namespace {

thread_local bool isInCall = false;

} // namespace

DaemonCall::DaemonCall() : isNested_(std::exchange(isInCall, true)) {}

DaemonCall::~DaemonCall() {
    isInCall = isNested_;
}

bool DaemonCall::isUnderWay() {
    return isInCall;
}

} // namespace ql::impl
