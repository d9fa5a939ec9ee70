#include "app/kernel/HandlerMark.h"

namespace vireo::impl {

namespace {

thread_local const HandlerMark* innermost = nullptr;

} // namespace

HandlerMark::HandlerMark(const Registration& app) : app_(app), outer_(innermost) {
    innermost = this;
}

HandlerMark::~HandlerMark() {
    innermost = outer_;
}

bool HandlerMark::isSet(const Registration& app) {
    const HandlerMark* mark = innermost;
    while (mark != nullptr && &mark->app_ != &app) {
        mark = mark->outer_;
    }
    return mark != nullptr;
}

bool HandlerMark::isSet() {
    return innermost != nullptr;
}

} // namespace vireo::impl
