// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/support/qlMutex.h"

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <string_view>

namespace ql::impl {

/// Where the lines of an access log go. Any thread.
class AccessLogTarget {
public:
    AccessLogTarget() = default;
    virtual ~AccessLogTarget() = default;
    AccessLogTarget(const AccessLogTarget&) = delete;
    AccessLogTarget& operator=(const AccessLogTarget&) = delete;

    /// @param line without a line end.
    virtual void write(std::string line) = 0;
    virtual void reopen() = 0;
    virtual std::uint64_t getLostLineCount() const = 0;
};

class AccessLogSink : public AccessLogTarget {
public:
    /// That of http::AccessLog. Not by its name: where the exported class is seen, the compiler for Windows exports the
    /// type information of these here, too.
    using Sink = std::function<void(std::string_view line)>;

    explicit AccessLogSink(Sink sink);

    void write(std::string line) override;
    void reopen() override {}
    std::uint64_t getLostLineCount() const override { return 0; }

private:
    qlMutex mutex_;
    const Sink sink_ QL_GUARDED_BY(mutex_);
};

class AccessLogFile : public AccessLogTarget {
public:
    explicit AccessLogFile(const std::filesystem::path& path);

    void write(std::string line) override;
    void reopen() override;
    std::uint64_t getLostLineCount() const override;

private:
    const std::filesystem::path path_;
    mutable qlMutex mutex_;
    std::ofstream file_ QL_GUARDED_BY(mutex_);
    std::uint64_t lostLines_ QL_GUARDED_BY(mutex_) = 0;
    /// The last line is lost, perhaps but for its beginning.
    bool failed_ QL_GUARDED_BY(mutex_) = false;
};

} // namespace ql::impl
