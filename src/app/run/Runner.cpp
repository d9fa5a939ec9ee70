// SPDX-License-Identifier: MIT
#include "app/run/Runner.h"

#include "app/kernel/HandlerMark.h"
#include "app/run/Urls.h"
#include "vireo/Vireo.h"
#include "vireo/support/qlLog.h"

#include <utility>

namespace vireo::impl {

namespace {

void logStart(const std::vector<std::string>& urls, std::size_t routes, unsigned int workers) {
    qlLogObject line(qlLogType::Server, "app");
    for (const std::string& url : urls) {
        line << url << " ";
    }
    line << "(" << routes << (routes == 1 ? " route, " : " routes, ") << workers
         << (workers == 1 ? " worker)" : " workers)");
}

} // namespace

Runner::Runner(std::shared_ptr<Registration> registration, std::shared_ptr<CurrentService> current,
               std::function<void()> onChange)
    : registration_(std::move(registration)), current_(std::move(current)), onChange_(std::move(onChange)) {
    ql::initializeVireo();
    registration_->isRunning = true;
}

Runner::~Runner() {
    waitThread(NoTimeLimit);
    ql::terminateVireo();
}

void Runner::start(const AppState& app, const RunPlan& plan, std::vector<ql::http::ListenEndpoint> activated) {
    std::shared_ptr<Service> service;
    try {
        startThread("app runner");
        ServicePlan servicePlan = app.plan();
        RunSetup setup = setUp(plan, std::move(activated));
        service = Service::Start(std::move(servicePlan), setup.options, setup.parameters, setup.limits);
        begin(service, std::move(setup), plan.quiet);
    } catch (...) {
        if (service != nullptr) {
            service->close(std::chrono::milliseconds(0));
        }
        end();
        throw;
    }
}

RunSetup Runner::setUp(const RunPlan& plan, std::vector<ql::http::ListenEndpoint> activated) const {
    // RunOptions::server must not wait for the start that it is a part of.
    const HandlerMark mark(*registration_);
    return RunSetup::Of(plan, std::move(activated));
}

void Runner::requestStop() {
    const qlMutexLocker locker(mutex_);
    isStopWanted_ = true;
    changed_.wakeAll();
}

void Runner::requestStopAtOnce() {
    qlMutexLocker locker(mutex_);
    isStopWanted_ = true;
    isAtOnce_ = true;
    changed_.wakeAll();
    // Not in a function of the app's: the server's mutex is held until the daemon threads have ended, and this may be
    // one of them.
    const bool mayAskServer = stage_ == Stage::Ending && !HandlerMark::isSet(*registration_);
    const std::shared_ptr<Service> ending = mayAskServer ? service_ : nullptr;
    locker.unlock();
    if (ending != nullptr) {
        ending->requestStop();
    }
}

bool Runner::waitForEnd(int ms) {
    {
        // Another thread may be starting it: the thread to wait for is not there as yet.
        const qlMutexLocker locker(mutex_);
        while (stage_ == Stage::Starting) {
            changed_.wait(&mutex_, qlWaitCondition::NoTimeLimit);
        }
    }
    return waitThread(ms);
}

void Runner::reload() {
    qlMutexLocker locker(mutex_);
    const std::shared_ptr<const RunSetup> setup = setup_;
    const std::shared_ptr<Service> service = service_;
    locker.unlock();
    if (service != nullptr) {
        setup->reload();
        service->reload();
    }
}

bool Runner::isServing() const {
    const qlMutexLocker locker(mutex_);
    return stage_ == Stage::Serving || stage_ == Stage::Ending;
}

bool Runner::isEnding() const {
    const qlMutexLocker locker(mutex_);
    return stage_ == Stage::Ending || stage_ == Stage::Ended;
}

bool Runner::hasEnded() const {
    const qlMutexLocker locker(mutex_);
    return stage_ == Stage::Ended;
}

std::uint16_t Runner::port() const {
    const qlMutexLocker locker(mutex_);
    return ports_.empty() ? std::uint16_t{0} : ports_.front();
}

std::vector<std::string> Runner::urls() const {
    const qlMutexLocker locker(mutex_);
    return urls_;
}

void Runner::run() {
    std::shared_ptr<Service> service;
    std::chrono::milliseconds patience{};
    {
        const qlMutexLocker locker(mutex_);
        while (stage_ == Stage::Starting || (stage_ == Stage::Serving && !isStopWanted_)) {
            changed_.wait(&mutex_, qlWaitCondition::NoTimeLimit);
        }
        if (stage_ == Stage::Ended) {
            return;
        }
        stage_ = Stage::Ending;
        service = service_;
        patience = isAtOnce_ ? std::chrono::milliseconds(0) : setup_->patience;
    }
    onChange_();
    service->close(patience);
    end();
    onChange_();
}

void Runner::begin(std::shared_ptr<Service> service, RunSetup&& setup, bool isQuiet) {
    current_->set(service);
    const std::vector<std::uint16_t> ports = service->ports();
    const std::vector<std::string> urls = urlsOf(setup.options.getListeners(), ports);
    if (!isQuiet) {
        logStart(urls, service->plan().routes, setup.limits.workers);
    }
    const qlMutexLocker locker(mutex_);
    stage_ = Stage::Serving;
    service_ = std::move(service);
    setup_ = std::make_shared<const RunSetup>(std::move(setup));
    ports_ = ports;
    urls_ = urls;
    changed_.wakeAll();
}

void Runner::end() {
    current_->set(nullptr);
    registration_->isRunning = false;
    const qlMutexLocker locker(mutex_);
    stage_ = Stage::Ended;
    service_ = nullptr;
    setup_ = nullptr;
    ports_.clear();
    urls_.clear();
    changed_.wakeAll();
}

} // namespace vireo::impl
