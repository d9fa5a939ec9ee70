#pragma once

#include "vireo/support/qlLog.h"

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

namespace vireotest {

/// The process's log for the life of a test: keeps every line.
class TestLog : public qlLog {
public:
    struct Line {
        qlLogType type;
        std::string tag;
        std::string text;
    };

    explicit TestLog(bool verbose);
    ~TestLog() override;

    bool isLogTypeEnabled(qlLogType type) const override;
    bool isVerbose() const override { return verbose_; }
    void writeLine(qlLogType type, const char* tag, const std::string& line) override;

    std::vector<Line> lines() const;
    /// The texts of all lines of a type that contain `part`.
    std::vector<std::string> texts(qlLogType type, const std::string& part = {}) const;
    /// Waits until there are `count` lines of a type that contain `part`. @return false when they don't come.
    [[nodiscard]] bool waitFor(qlLogType type, const std::string& part, std::size_t count = 1) const;

private:
    std::size_t count(qlLogType type, const std::string& part) const;

    const bool verbose_;
    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    std::vector<Line> lines_;
};

} // namespace vireotest
