#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

/// What a client sends, read in the simplest way: all bytes at once, by a second reading of the RFCs, without a look at
/// the library's decoder.
namespace sessiontest {

/// How far text is UTF-8.
enum class Utf8 { Complete, Begun, Invalid };
Utf8 judgeUtf8(std::string_view text);

struct Event {
    enum class Kind { Text, Binary, Ping, Pong, Close };

    Kind kind = Kind::Text;
    /// Of a close: the reason.
    std::string payload;
    /// Of a close.
    unsigned int code = 0;

    friend bool operator==(const Event&, const Event&) = default;
    friend std::ostream& operator<<(std::ostream& out, const Event& event);
};

struct NaiveRules {
    std::uint64_t maxMessageBytes = 1 << 20;
    /// Of the client's compressor; 0 without compression.
    int windowBits = 0;
    bool takesOver = true;
};

struct NaiveOutcome {
    std::vector<Event> events;
    /// The close code that the client's fault has.
    std::optional<unsigned int> failure;
};

NaiveOutcome decodeNaively(std::string_view bytes, const NaiveRules& rules);

} // namespace sessiontest
