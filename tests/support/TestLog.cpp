#include "support/TestLog.h"

#include "support/RawSocket.h"

#include <algorithm>

namespace vireotest {

TestLog::TestLog(bool verbose) : verbose_(verbose) {
    msInstance = this;
}

TestLog::~TestLog() {
    msInstance = nullptr;
}

bool TestLog::isLogTypeEnabled(qlLogType /*type*/) const {
    return true;
}

void TestLog::writeLine(qlLogType type, const char* tag, const std::string& line) {
    const std::lock_guard lock(mutex_);
    lines_.push_back({type, tag == nullptr ? "" : tag, line});
    changed_.notify_all();
}

std::vector<TestLog::Line> TestLog::lines() const {
    const std::lock_guard lock(mutex_);
    return lines_;
}

std::vector<std::string> TestLog::texts(qlLogType type, const std::string& part) const {
    std::vector<std::string> found;
    for (const Line& line : lines()) {
        if (line.type == type && line.text.find(part) != std::string::npos) {
            found.push_back(line.text);
        }
    }
    return found;
}

bool TestLog::waitFor(qlLogType type, const std::string& part, std::size_t wanted) const {
    std::unique_lock lock(mutex_);
    return changed_.wait_until(lock, soon(), [&] { return count(type, part) >= wanted; });
}

std::size_t TestLog::count(qlLogType type, const std::string& part) const {
    return static_cast<std::size_t>(std::count_if(lines_.begin(), lines_.end(), [&](const Line& line) {
        return line.type == type && line.text.find(part) != std::string::npos;
    }));
}

} // namespace vireotest
