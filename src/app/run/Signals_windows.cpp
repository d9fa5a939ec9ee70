// SPDX-License-Identifier: MIT
#include "app/kernel/Throw.h"
#include "app/run/Signals.h"
#include "frame/NeverDestroyed.h"
#include "vireo/support/ThreadAnnotations.h"
#include "vireo/support/qlMutex.h"
#include "vireo/support/qlWaitCondition.h"

#include <winsock2.h>

#include <windows.h>

namespace vireo::impl {

struct Signals::Native {
    qlMutex mutex;
    qlWaitCondition changed;
    /// How many events have asked for the end, and how many of them wait() has told.
    ///@{
    unsigned int stops QL_GUARDED_BY(mutex) = 0;
    unsigned int toldStops QL_GUARDED_BY(mutex) = 0;
    ///@}
    bool isWoken QL_GUARDED_BY(mutex) = false;
    bool hasTaken = false;
};

namespace {

/// Who has taken the console's events. The system tells of them on threads of its own.
struct Taker {
    qlMutex mutex;
    void* native QL_GUARDED_BY(mutex) = nullptr;
    /// One more event for the taker. @return false when there is none, or it has had enough.
    bool (*onStop)(void* native) QL_GUARDED_BY(mutex) = nullptr;
};

Taker& taker() {
    static ql::impl::NeverDestroyed<Taker> object;
    return *object;
}

BOOL WINAPI onConsoleEvent(DWORD event) {
    if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT) {
        return FALSE;
    }
    Taker& who = taker();
    const qlMutexLocker locker(who.mutex);
    return who.native != nullptr && who.onStop(who.native) ? TRUE : FALSE;
}

} // namespace

Signals::Signals(bool areTaken) : native_(std::make_unique<Native>()) {
    if (!areTaken) {
        return;
    }
    Taker& who = taker();
    const qlMutexLocker locker(who.mutex);
    if (who.native != nullptr) {
        throwLogicError("another App::run() of this process has the signals: give this one {.signals = false}");
    }
    who.native = native_.get();
    who.onStop = [](void* object) {
        auto& native = *static_cast<Native*>(object);
        const qlMutexLocker nativeLocker(native.mutex);
        ++native.stops;
        native.isWoken = true;
        native.changed.wakeAll();
        return native.stops <= 2;
    };
    native_->hasTaken = true;
    ::SetConsoleCtrlHandler(onConsoleEvent, TRUE);
}

Signals::~Signals() {
    if (native_->hasTaken) {
        ::SetConsoleCtrlHandler(onConsoleEvent, FALSE);
        Taker& who = taker();
        const qlMutexLocker locker(who.mutex);
        who.native = nullptr;
    }
}

Signals::Wishes Signals::wait() {
    const qlMutexLocker locker(native_->mutex);
    while (!native_->isWoken) {
        native_->changed.wait(&native_->mutex, qlWaitCondition::NoTimeLimit);
    }
    native_->isWoken = false;
    Wishes wishes;
    wishes.stop = native_->toldStops == 0 && native_->stops > 0;
    wishes.stopAtOnce = native_->toldStops < 2 && native_->stops > 1;
    native_->toldStops = native_->stops;
    return wishes;
}

void Signals::wake() {
    const qlMutexLocker locker(native_->mutex);
    native_->isWoken = true;
    native_->changed.wakeAll();
}

} // namespace vireo::impl
