// SPDX-License-Identifier: MIT
#pragma once

#include "app/kernel/Scope.h"
#include "app/run/CurrentService.h"
#include "app/run/RunSetup.h"
#include "vireo/support/ThreadAnnotations.h"
#include "vireo/support/qlMutex.h"
#include "vireo/support/qlThread.h"
#include "vireo/support/qlWaitCondition.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace vireo::impl {

/// One run of an App, with a thread that ends it, so that whoever asks for the end need not wait for it. It owns all
/// that it needs: the App may be gone before it has ended.
///
///     Starting ──▶ Serving ──▶ Ending ──▶ Ended
///         └──────────────────────────────────▲     the start failed
class Runner final : private qlThread {
public:
    /// @param registration is told that the App runs, until it has ended.
    /// @param onChange is called when the run begins to end, and when it has ended. The runner's thread.
    Runner(std::shared_ptr<Registration> registration, std::shared_ptr<CurrentService> current,
           std::function<void()> onChange);
    ~Runner() override;

    /// Serves when it returns. Once.
    /// @throws what Service::Start() does; then it has ended.
    void start(const AppState& app, const RunPlan& plan, std::vector<ql::http::ListenEndpoint> activated)
        QL_EXCLUDES(mutex_);

    /// Asks for the end. Any thread.
    void requestStop() QL_EXCLUDES(mutex_);
    /// Asks for the end without a patience, and takes it from one that is under way. Any thread.
    void requestStopAtOnce() QL_EXCLUDES(mutex_);
    /// Waits for the end, which somebody asks for. @return false when it has not come in time.
    bool waitForEnd(int ms) QL_EXCLUDES(mutex_);

    /// Reads files anew. Any thread.
    void reload() QL_EXCLUDES(mutex_);

    /// From the end of the start on.
    bool isServing() const QL_EXCLUDES(mutex_);
    bool isEnding() const QL_EXCLUDES(mutex_);
    bool hasEnded() const QL_EXCLUDES(mutex_);
    /// What stands for the App whose run it is.
    const Registration& app() const { return *registration_; }
    /// While it serves; otherwise 0 and none.
    ///@{
    std::uint16_t port() const QL_EXCLUDES(mutex_);
    std::vector<std::string> urls() const QL_EXCLUDES(mutex_);
    ///@}

private:
    enum class Stage { Starting, Serving, Ending, Ended };

    void run() override;
    RunSetup setUp(const RunPlan& plan, std::vector<ql::http::ListenEndpoint> activated) const;
    void begin(std::shared_ptr<Service> service, RunSetup&& setup, bool isQuiet) QL_EXCLUDES(mutex_);
    void end() QL_EXCLUDES(mutex_);

    const std::shared_ptr<Registration> registration_;
    const std::shared_ptr<CurrentService> current_;
    const std::function<void()> onChange_;

    mutable qlMutex mutex_;
    qlWaitCondition changed_;
    Stage stage_ QL_GUARDED_BY(mutex_) = Stage::Starting;
    bool isStopWanted_ QL_GUARDED_BY(mutex_) = false;
    bool isAtOnce_ QL_GUARDED_BY(mutex_) = false;
    std::shared_ptr<Service> service_ QL_GUARDED_BY(mutex_);
    std::shared_ptr<const RunSetup> setup_ QL_GUARDED_BY(mutex_);
    std::vector<std::uint16_t> ports_ QL_GUARDED_BY(mutex_);
    std::vector<std::string> urls_ QL_GUARDED_BY(mutex_);
};

} // namespace vireo::impl
