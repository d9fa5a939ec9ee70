#include "vireo/HttpBaseRequest.h"
#include "vireo/HttpServerImpl.h"
#include "vireo/support/qlThread.h"

#include <utility>

namespace ql {

void HttpBaseRequest::setIdleCallback(std::function<void()> callback, unsigned int periodMs,
                                      std::unique_ptr<IdleCallbackHolder>* holder, bool callNow) {
    idleCallback_ = std::move(callback);
    if (!idleCallback_ || holder == nullptr) {
        idleTimer_.clearTime();
        idlePeriodMs_ = 0;
        return;
    }
    idlePeriodMs_ = periodMs;
    idleTimer_.restart();
    if (callNow) {
        idleCallback_();
    }
    const auto former = std::exchange(*holder, std::make_unique<IdleCallbackHolder>(IdleCallbackHolder{this}));
    if (former && former->request != nullptr) {
        former->request->removeIdleCallback();
    }
}

void HttpBaseRequest::removeIdleCallback() noexcept {
    setIdleCallback({}, 0, nullptr, false);
}

void HttpBaseRequest::updateIdleCallback() {
    if (qlThread::CurrentThreadId() != currentWorkerThreadId_) {
        return;
    }
    if (idleCallback_ && idleTimer_.isElapsedMs(idlePeriodMs_)) {
        idleCallback_();
        idleTimer_.restart();
    }
    getServerImpl().notifyScheduler();
}

void HttpBaseRequest::resetIdleCallbackTimer() {
    if (idleCallback_) {
        idleTimer_.restart();
    }
}

} // namespace ql
