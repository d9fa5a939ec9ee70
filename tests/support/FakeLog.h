#pragma once

#include "vireo/support/qlLog.h"

#include <mutex>
#include <optional>
#include <ostream>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace vireotest {

/// Collects the log lines of the process while it lives, tags that are null and disabled types included.
class FakeLog : public qlLog {
public:
    struct Line {
        qlLogType type;
        std::optional<std::string> tag;
        std::string text;

        friend bool operator==(const Line&, const Line&) = default;
        friend std::ostream& operator<<(std::ostream& out, const Line& line) {
            return out << "[" << static_cast<unsigned int>(line.type) << " " << line.tag.value_or("null") << "] "
                       << line.text;
        }
    };

    explicit FakeLog(bool verbose = false, std::set<qlLogType> disabled = {})
        : verbose_(verbose), disabled_(std::move(disabled)), former_(msInstance.exchange(this)) {}
    ~FakeLog() override { msInstance = former_; }

    std::vector<Line> lines() const {
        const std::lock_guard lock(mutex_);
        return lines_;
    }

    std::vector<Line> linesOf(qlLogType type) const {
        std::vector<Line> found;
        for (const Line& line : lines()) {
            if (line.type == type) {
                found.push_back(line);
            }
        }
        return found;
    }

    bool isLogTypeEnabled(qlLogType type) const override { return disabled_.count(type) == 0; }

    bool isVerbose() const override { return verbose_; }

    void writeLine(qlLogType type, const char* tag, const std::string& line) override {
        const std::lock_guard lock(mutex_);
        lines_.push_back({type, tag == nullptr ? std::nullopt : std::optional<std::string>(tag), line});
    }

private:
    const bool verbose_;
    const std::set<qlLogType> disabled_;
    qlLog* const former_;
    mutable std::mutex mutex_;
    std::vector<Line> lines_;
};

} // namespace vireotest
