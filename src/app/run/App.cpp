// SPDX-License-Identifier: MIT
#include "vireo/app/App.h"

#include "app/kernel/ExceptionText.h"
#include "app/kernel/HandlerMark.h"
#include "app/kernel/Scope.h"
#include "app/kernel/Throw.h"
#include "app/run/Abandoned.h"
#include "app/run/CurrentService.h"
#include "app/run/RunPlan.h"
#include "app/run/Runner.h"
#include "app/run/ServiceManager.h"
#include "app/run/Signals.h"
#include "vireo/Vireo.h"
#include "vireo/app/RunSettings.h"
#include "vireo/support/qlLog.h"

#include <atomic>
#include <utility>

namespace vireo {

namespace {

using impl::AppState;
using impl::HandlerMark;
using impl::Runner;

constexpr int ForEver = qlThread::NoTimeLimit;

std::unique_ptr<AppState> makeState() {
    if (!HandlerMark::isSet()) {
        impl::Abandoned::Join();
    }
    ql::initializeVireo();
    auto state = std::make_unique<AppState>();
    state->registration->current = std::make_shared<impl::CurrentService>();
    return state;
}

void refuseHandlers(const AppState& state, const char* what) {
    if (HandlerMark::isSet(*state.registration)) {
        impl::throwLogicError(std::string("App::") + what + " in a function that the App calls would wait for itself");
    }
}

std::shared_ptr<Runner> runnerOf(AppState& state) {
    const qlMutexLocker locker(state.mutex);
    return state.runner;
}

/// Drops a run that is over, unless there is another already.
void forget(AppState& state, const std::shared_ptr<Runner>& ended) {
    const qlMutexLocker locker(state.mutex);
    if (state.runner == ended) {
        state.runner = nullptr;
    }
}

/// A new run, once one that is ending has ended.
/// @throws std::logic_error where one goes on.
std::shared_ptr<Runner> makeRunner(AppState& state, const std::function<void()>& onChange) {
    while (true) {
        const std::shared_ptr<Runner> former = runnerOf(state);
        if (former != nullptr && former->isEnding()) {
            former->waitForEnd(ForEver);
            forget(state, former);
        }
        const qlMutexLocker locker(state.mutex);
        if (state.runner == nullptr) {
            state.runner = std::make_shared<Runner>(state.registration, state.registration->current, onChange);
            return state.runner;
        }
        if (state.runner == former) {
            impl::throwLogicError("the App runs already");
        }
    }
}

void startRunner(AppState& state, const std::shared_ptr<Runner>& runner, const impl::RunPlan& plan,
                 std::vector<ql::http::ListenEndpoint> activated) {
    try {
        runner->start(state, plan, std::move(activated));
    } catch (...) {
        forget(state, runner);
        throw;
    }
}

/// What a service manager has given to this process: to the first who asks.
std::vector<ql::http::ListenEndpoint> takeActivated() {
    static std::atomic<bool> isTaken{false};
    return isTaken.exchange(true) ? std::vector<ql::http::ListenEndpoint>()
                                  : ql::http::ListenEndpoint::FromEnvironment();
}

void reloadNow(Runner& runner) {
    impl::tellServiceManager(impl::reloadingState());
    runner.reload();
    impl::tellServiceManager("READY=1");
}

/// Does what signals ask for, until the run has ended.
void attend(Runner& runner, impl::Signals& signals) {
    bool isEndTold = false;
    while (!runner.hasEnded()) {
        const impl::Signals::Wishes wishes = signals.wait();
        if (wishes.reload) {
            reloadNow(runner);
        }
        if (wishes.stopAtOnce) {
            runner.requestStopAtOnce();
        } else if (wishes.stop) {
            runner.requestStop();
        }
        if (!isEndTold && runner.isEnding()) {
            impl::tellServiceManager("STOPPING=1");
            isEndTold = true;
        }
    }
}

} // namespace

App::App() : App(makeState()) {}

App::App(std::unique_ptr<impl::AppState>&& state) : Group(state->root), state_(std::move(state)) {}

App::~App() {
    if (const std::shared_ptr<Runner> runner = runnerOf(*state_)) {
        if (HandlerMark::isSet(*state_->registration)) {
            runner->requestStopAtOnce();
            impl::Abandoned::Add(runner);
        } else {
            stop();
        }
    }
    state_->registration->isGone = true;
    state_->root->clear();
    state_->registration->reloads.clear();
    state_->registration->observers.clear();
    ql::terminateVireo();
}

int App::runWith(const RunSettings& settings) {
    refuseHandlers(*state_, "run()");
    const impl::RunPlan& plan = settings.plan();
    impl::Signals signals(plan.signals);
    const std::shared_ptr<Runner> runner = makeRunner(*state_, [&signals] { signals.wake(); });
    try {
        startRunner(*state_, runner, plan, plan.activation ? takeActivated() : std::vector<ql::http::ListenEndpoint>());
    } catch (...) {
        qlLogObject(qlLogType::Failure, "app") << "the App cannot start : " << impl::currentExceptionText();
        return 1;
    }
    impl::tellServiceManager("READY=1");
    attend(*runner, signals);
    // Until then its thread may wake the signals.
    runner->waitForEnd(ForEver);
    forget(*state_, runner);
    return 0;
}

void App::startWith(const RunSettings& settings) {
    refuseHandlers(*state_, "start()");
    startRunner(*state_, makeRunner(*state_, [] {}), settings.plan(), {});
}

void App::stop() {
    const std::shared_ptr<Runner> runner = runnerOf(*state_);
    if (runner == nullptr) {
        return;
    }
    runner->requestStop();
    if (!HandlerMark::isSet(*state_->registration)) {
        runner->waitForEnd(ForEver);
        forget(*state_, runner);
    }
}

void App::wait() {
    refuseHandlers(*state_, "wait()");
    if (const std::shared_ptr<Runner> runner = runnerOf(*state_)) {
        runner->waitForEnd(ForEver);
        forget(*state_, runner);
    }
}

bool App::isRunning() const {
    const std::shared_ptr<Runner> runner = runnerOf(*state_);
    return runner != nullptr && runner->isServing();
}

void App::reload() {
    if (const std::shared_ptr<Runner> runner = runnerOf(*state_)) {
        runner->reload();
    }
}

std::uint16_t App::port() const {
    const std::shared_ptr<Runner> runner = runnerOf(*state_);
    return runner == nullptr ? std::uint16_t{0} : runner->port();
}

std::vector<std::string> App::urls() const {
    const std::shared_ptr<Runner> runner = runnerOf(*state_);
    return runner == nullptr ? std::vector<std::string>() : runner->urls();
}

} // namespace vireo
