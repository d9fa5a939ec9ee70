// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/ExchangeObserver.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace ql::impl {
class AccessLogTarget;
}

namespace ql::http {

/// Writes one line for each exchange. A line holds printable ASCII only, whatever a client sends: nothing of a request
/// can end a line, begin another, or reach a terminal as a command.
///
/// Any thread may call everything. Lines never interleave; they come in the order in which exchanges ended.
class VIREO_API AccessLog : public ExchangeObserver {
public:
    /// What a line looks like.
    enum class Format : std::uint8_t {
        /// The "combined" format of web servers:
        /// `192.0.2.1 - - [21/Nov/2026:17:48:49 +0000] "GET / HTTP/1.1" 200 2326 "REFERER" "USER-AGENT"`
        ///
        /// The client is the forwarded one (ExchangeRecord::getForwardedClient()) where there is one. The time is the
        /// exchange's start in UTC, the number after the status counts the bytes of the answer's body.
        /// `-` stands for what is not known. In texts of the client, a quote, a backslash and every byte that is not
        /// printable ASCII is written as `\xHH`.
        Combined,
        /// A JSON object (RFC 8259) with all that ExchangeRecord tells, always with the same members in the same
        /// order; null stands for what is not known. "forwardedClient" and "requestId" alone are there only where the
        /// application has said something. What is not ASCII is escaped, and a byte that is not UTF-8 becomes
        /// U+FFFD.
        Json,
    };

    /// Takes a line without a line end. Never called twice at once. It must not call the log; what it throws leaves
    /// onExchange().
    using Sink = std::function<void(std::string_view line)>;

    /// Writes to `sink`. Throws std::invalid_argument for an empty one.
    AccessLog(Format format, Sink sink);

    /// Appends to a file, which is made when it isn't there: on Linux with the mode 0640 less the process's mask, so
    /// that others don't read what clients ask for. One that is there keeps its mode. Each line is handed to the system
    /// at once, whole: several processes may append to one file. Throws std::system_error when the file cannot be
    /// opened.
    ///
    /// When a line cannot be written, exchanges go on without: it is lost, and a failure is logged for the first such
    /// line in a row.
    AccessLog(Format format, const std::filesystem::path& file);

    ~AccessLog() override;

    /// Opens the file of that name anew, for log rotation: call it when the old one has been renamed. Nothing is lost
    /// meanwhile. Does nothing with a sink. Not for a signal handler.
    ///
    /// Throws std::system_error when the file cannot be opened; the old one is then written to as before.
    void reopen();

    /// How many lines could not be written to the file.
    std::uint64_t getLostLineCount() const;

    void onExchange(const ExchangeRecord& record) override;

    /// The line for a record, without a line end.
    static std::string formatLine(Format format, const ExchangeRecord& record);

private:
    const Format format_;
    const std::unique_ptr<impl::AccessLogTarget> target_;
};

} // namespace ql::http
