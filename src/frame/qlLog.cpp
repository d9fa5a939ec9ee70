#include "vireo/support/qlLog.h"

#include "frame/NeverDestroyed.h"
#include "frame/Utf8.h"
#include "vireo/support/qlMutex.h"

#include <cstdio>
#include <locale>
#include <sstream>

namespace {

/// One line at a time for the whole process, whichever way it goes.
qlMutex& lineMutex() {
    static ql::impl::NeverDestroyed<qlMutex> mutex;
    return *mutex;
}

/// "[type tag] text". One line stays one line, and tells a terminal nothing but text.
void writeToStandardError(qlLogType type, const char* tag, const std::string& text) {
    std::string line = "[";
    line.append(std::to_string(static_cast<std::uint32_t>(type)));
    if (tag != nullptr) {
        line.append(" ").append(tag);
    }
    line.append("] ").append(ql::impl::withoutControls(text)).append("\n");
    std::fwrite(line.data(), 1, line.size(), stderr);
    // Not every system leaves this stream without a buffer.
    std::fflush(stderr);
}

} // namespace

std::atomic<qlLog*> qlLog::msInstance{nullptr};

qlLog::qlLog() = default;

qlLog::~qlLog() = default;

qlLogObject::qlLogObject(qlLogType type, const char* tag, qlLog* log, const char* extra, bool force)
    : type_(type), tag_(tag), log_(log) {
    if (!force && log != nullptr && !log->isLogTypeEnabled(type)) {
        return;
    }
    stream_ = std::make_unique<std::ostringstream>();
    // The application's locale would group digits: a port must not become "8,181".
    stream_->imbue(std::locale::classic());
    *this << extra;
}

qlLogObject::~qlLogObject() {
    if (!stream_) {
        return;
    }
    try {
        const std::string text = static_cast<const std::ostringstream&>(*stream_).str();
        const qlMutexLocker locker(lineMutex());
        if (log_ != nullptr) {
            log_->writeLine(type_, tag_, text);
        } else {
            writeToStandardError(type_, tag_, text);
        }
    } catch (...) {
        // Nobody is left to tell.
        return;
    }
}

qlLogObject& qlLogObject::operator<<(const char* text) {
    if (stream_ && text != nullptr) {
        *stream_ << text;
    }
    return *this;
}

qlLogObject& qlLogObject::operator<<(std::ios_base& (*manipulator)(std::ios_base&)) {
    if (stream_) {
        *stream_ << manipulator;
    }
    return *this;
}
