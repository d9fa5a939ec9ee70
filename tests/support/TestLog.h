#pragma once

#include "support/RawSocket.h"
#include "vireo/support/qlLog.h"

#include <algorithm>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <optional>
#include <ostream>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace vireotest {

/// The process's log while it lives: keeps every line it is given.
class TestLog : public qlLog {
public:
    struct Line {
        qlLogType type;
        /// None when it was null.
        std::optional<std::string> tag;
        std::string text;

        friend bool operator==(const Line&, const Line&) = default;
        friend std::ostream& operator<<(std::ostream& out, const Line& line) {
            return out << "[" << static_cast<unsigned int>(line.type) << " " << line.tag.value_or("null") << "] "
                       << line.text;
        }
    };

    explicit TestLog(bool verbose = false, std::set<qlLogType> disabled = {})
        : verbose_(verbose), disabled_(std::move(disabled)), former_(msInstance.exchange(this)) {}
    ~TestLog() override { msInstance = former_; }

    bool isLogTypeEnabled(qlLogType type) const override { return disabled_.count(type) == 0; }
    bool isVerbose() const override { return verbose_; }
    void writeLine(qlLogType type, const char* tag, const std::string& line) override {
        const std::lock_guard lock(mutex_);
        lines_.push_back({type, tag == nullptr ? std::nullopt : std::optional<std::string>(tag), line});
        changed_.notify_all();
    }

    std::vector<Line> lines() const {
        const std::lock_guard lock(mutex_);
        return lines_;
    }

    std::vector<Line> linesOf(qlLogType type) const {
        std::vector<Line> found = lines();
        found.erase(std::remove_if(found.begin(), found.end(), [&](const Line& line) { return line.type != type; }),
                    found.end());
        return found;
    }

    /// The texts of all lines of a type that contain `part`.
    std::vector<std::string> texts(qlLogType type, const std::string& part = {}) const {
        std::vector<std::string> found;
        for (const Line& line : lines()) {
            if (isSought(line, type, part)) {
                found.push_back(line.text);
            }
        }
        return found;
    }

    /// Waits until there is a line of a type that contains `part`. @return false when it does not come.
    [[nodiscard]] bool waitFor(qlLogType type, const std::string& part) const {
        std::unique_lock lock(mutex_);
        return changed_.wait_until(lock, soon(), [&] {
            return std::any_of(lines_.begin(), lines_.end(),
                               [&](const Line& line) { return isSought(line, type, part); });
        });
    }

private:
    static bool isSought(const Line& line, qlLogType type, const std::string& part) {
        return line.type == type && line.text.find(part) != std::string::npos;
    }

    const bool verbose_;
    const std::set<qlLogType> disabled_;
    qlLog* const former_;
    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    std::vector<Line> lines_;
};

} // namespace vireotest
