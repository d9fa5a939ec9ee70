// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/export.h"

#include <atomic>
#include <cstdint>
#include <ios>
#include <memory>
#include <ostream>
#include <string>
#include <type_traits>

/// The types of log lines. The number is what an application filters by; the names say what the library uses it for.
enum class qlLogType : std::uint32_t {
    Connection = 1, ///< a TCP connection started or closed (tag "tcp")
    Server = 2,     ///< a server starts (tag "httpserver"), a connection was not reused (tag "tcp")
    Engine = 4,     ///< the HTTP engine's own messages, a request refused, a response header lost
    Failure = 5,    ///< a server or pool that cannot go on, an exception that left the application's code, a misuse
                    ///< that makes a request hang or lose its body
};

/// Where log lines go. An application that wants them derives from this class and puts its object into msInstance
/// before it initialises the library; without one, lines go to standard error, with blanks for control characters.
class VIREO_API qlLog {
public:
    /// The process's log, or null. Not owned. Set it before a server or pool starts, and keep the object until every
    /// one of them has ended.
    static std::atomic<qlLog*> msInstance;

    qlLog();
    virtual ~qlLog();
    qlLog(const qlLog&) = delete;
    qlLog& operator=(const qlLog&) = delete;

    /// Whether lines of `type` are wanted. Any thread, several at once; must not log.
    virtual bool isLogTypeEnabled(qlLogType type) const = 0;

    /// Whether servers announce their start and track their connections. Any thread, several at once; must not log.
    virtual bool isVerbose() const = 0;

    /// Takes one line, without a line end of its own; control characters that were streamed in are passed on: none that
    /// a client has sent, but for what the engine says of it. Any thread, but never two calls at once in the process:
    /// lines do not interleave. Must not log; what it throws is dropped with the line.
    /// @param tag the category, or null; lives as long as the call.
    virtual void writeLine(qlLogType type, const char* tag, const std::string& line) = 0;
};

/// Builds one log line; the destructor emits it. For one thread.
///
/// `qlLogObject(qlLogType::Server, "httpserver") << "listening on " << port;`
class VIREO_API qlLogObject {
public:
    /// @param tag the category, or null.
    /// @param log where the line goes; null for standard error.
    /// @param extra text put in front of the line, or null.
    /// @param force emit the line even if `log` has its type disabled.
    explicit qlLogObject(qlLogType type, const char* tag = nullptr, qlLog* log = qlLog::msInstance.load(),
                         const char* extra = nullptr, bool force = false);

    /// Emits the line. Never throws: a line that cannot be written is lost.
    ~qlLogObject();

    qlLogObject(const qlLogObject&) = delete;
    qlLogObject& operator=(const qlLogObject&) = delete;

    /// A null text counts as empty.
    qlLogObject& operator<<(const char* text);

    /// Whatever a standard stream takes: numbers, strings, ... A null pointer to characters of any kind counts as an
    /// empty text.
    template <typename Value>
    qlLogObject& operator<<(const Value& value) {
        if constexpr (IsText<Value>) {
            return *this << reinterpret_cast<const char*>(value);
        } else if (stream_) {
            *stream_ << value;
        }
        return *this;
    }

    /// std::hex, std::dec, ...
    qlLogObject& operator<<(std::ios_base& (*manipulator)(std::ios_base&));

private:
    template <typename Value>
    static constexpr bool IsText = std::is_pointer_v<Value> && (std::is_convertible_v<Value, const char*> ||
                                                                std::is_convertible_v<Value, const signed char*> ||
                                                                std::is_convertible_v<Value, const unsigned char*>);

    qlLogType type_;
    const char* tag_;
    qlLog* log_;
    /// Null when the line is disabled: what is streamed in then costs nothing.
    std::unique_ptr<std::ostream> stream_;
};
