#include "session/NaiveDecoder.h"

#include <algorithm>
#include <array>
#include <stdexcept>

#define ZLIB_CONST
#include <zlib.h>

namespace sessiontest {

namespace {

unsigned int byteAt(std::string_view bytes, std::size_t at) {
    return static_cast<unsigned char>(bytes[at]);
}

std::uint64_t numberAt(std::string_view bytes, std::size_t at, std::size_t count) {
    std::uint64_t number = 0;
    for (std::size_t i = 0; i < count; ++i) {
        number = number * 256 + byteAt(bytes, at + i);
    }
    return number;
}

struct Inflated {
    std::string text;
    bool isValid = true;
    /// Nothing is half decompressed.
    bool isComplete = true;
};

/// @param history what was decompressed before, for context takeover.
Inflated inflateAll(std::string_view data, const std::string& history, int windowBits, std::uint64_t most) {
    Inflated result;
    for (bool goesOn = true; goesOn;) {
        // A stream of its own for each block that calls itself the last, with what came before it as dictionary.
        z_stream zlib{};
        if (inflateInit2(&zlib, -windowBits) != Z_OK) {
            throw std::runtime_error("zlib");
        }
        const std::string past = history + result.text;
        const std::size_t window = std::min<std::size_t>(past.size(), std::size_t{1} << windowBits);
        inflateSetDictionary(&zlib, reinterpret_cast<const Bytef*>(past.data() + past.size() - window),
                             static_cast<uInt>(window));
        zlib.next_in = reinterpret_cast<const Bytef*>(data.data());
        zlib.avail_in = static_cast<uInt>(data.size());
        int status = Z_OK;
        std::array<char, 1000> room{};
        do {
            zlib.next_out = reinterpret_cast<Bytef*>(room.data());
            zlib.avail_out = static_cast<uInt>(room.size());
            status = inflate(&zlib, Z_SYNC_FLUSH);
            result.text.append(room.data(), room.size() - zlib.avail_out);
        } while (status == Z_OK && zlib.avail_out == 0 && result.text.size() <= most);
        data.remove_prefix(data.size() - zlib.avail_in);
        result.isValid = status == Z_OK || status == Z_BUF_ERROR || status == Z_STREAM_END;
        result.isComplete = status == Z_STREAM_END || (zlib.data_type & 128) != 0;
        goesOn = status == Z_STREAM_END && !data.empty() && result.text.size() <= most;
        inflateEnd(&zlib);
    }
    return result;
}

struct Message {
    bool isOpen = false;
    bool isText = false;
    bool isCompressed = false;
    /// Unmasked, of all fragments so far.
    std::string data;
};

class Reader {
public:
    Reader(std::string_view bytes, const NaiveRules& rules) : rest_(bytes), rules_(rules) {}

    NaiveOutcome run() {
        while (!isOver_ && readFrame()) {
        }
        return outcome_;
    }

private:
    /// @return false when no whole frame is left.
    bool readFrame() {
        if (rest_.empty()) {
            return false;
        }
        const unsigned int first = byteAt(rest_, 0);
        const unsigned int opcode = first & 15U;
        const bool isFinal = (first & 128U) != 0;
        const bool isCompressed = (first & 64U) != 0;
        const bool isControl = opcode >= 8;
        const bool isFirst = opcode == 1 || opcode == 2;
        if ((first & 48U) != 0 || (opcode > 2 && opcode < 8) || opcode > 10) {
            return fail(1002);
        }
        if (isCompressed && (rules_.windowBits == 0 || !isFirst)) {
            return fail(1002);
        }
        if ((isControl && !isFinal) || (opcode == 0 && !message_.isOpen) || (isFirst && message_.isOpen)) {
            return fail(1002);
        }
        if (rest_.size() < 2) {
            return false;
        }
        std::uint64_t length = byteAt(rest_, 1) & 127U;
        if (byteAt(rest_, 1) < 128 || (isControl && length > 125)) {
            return fail(1002);
        }
        std::size_t header = 2;
        if (length > 125) {
            const std::size_t count = length == 126 ? 2 : 8;
            if (rest_.size() < header + count) {
                return false;
            }
            length = numberAt(rest_, header, count);
            header += count;
            if (length < (count == 2 ? 126U : 65536U) || length > 0x7FFFFFFFFFFFFFFF) {
                return fail(1002);
            }
        }
        if (isFirst) {
            message_ = {true, opcode == 1, isCompressed, {}};
        }
        if (!isControl && length > mostPayload() - message_.data.size()) {
            return fail(1009);
        }
        if (rest_.size() < header + 4) {
            return false;
        }
        const std::string_view key = rest_.substr(header, 4);
        std::string payload(rest_.substr(header + 4, static_cast<std::size_t>(length)));
        for (std::size_t i = 0; i < payload.size(); ++i) {
            payload[i] = static_cast<char>(byteAt(payload, i) ^ byteAt(key, i % 4));
        }
        const bool isWhole = payload.size() == length;
        rest_.remove_prefix(header + 4 + payload.size());
        if (isControl) {
            return isWhole && takeControl(opcode, payload);
        }
        message_.data += payload;
        return judge(isWhole && isFinal) && isWhole;
    }

    bool takeControl(unsigned int opcode, const std::string& payload) {
        if (opcode != 8) {
            outcome_.events.push_back({opcode == 9 ? Event::Kind::Ping : Event::Kind::Pong, payload, 0});
            return true;
        }
        Event close{Event::Kind::Close, "", 1005};
        if (payload.size() == 1) {
            return fail(1002);
        }
        if (payload.size() > 1) {
            close.code = static_cast<unsigned int>(numberAt(payload, 0, 2));
            close.payload = payload.substr(2);
            const bool isRegistered = close.code >= 1000 && close.code <= 1014 && close.code != 1004 &&
                                      close.code != 1005 && close.code != 1006;
            if (!isRegistered && (close.code < 3000 || close.code > 4999)) {
                return fail(1002);
            }
            if (judgeUtf8(close.payload) != Utf8::Complete) {
                return fail(1007);
            }
        }
        outcome_.events.push_back(close);
        isOver_ = true;
        return true;
    }

    /// Of the message's frames together.
    std::uint64_t mostPayload() const {
        constexpr std::uint64_t Slack = 65536;
        const std::uint64_t most = rules_.maxMessageBytes;
        const std::uint64_t ofCompressed = most >= std::uint64_t{1} << 62 ? ~std::uint64_t{0} : most + most + Slack;
        return message_.isCompressed ? ofCompressed : most;
    }

    /// What has come of the message so far. @return false when it breaks a rule.
    bool judge(bool isComplete) {
        Inflated content{message_.data};
        if (message_.isCompressed) {
            const std::string tail = isComplete ? std::string("\0\0\xFF\xFF", 4) : std::string();
            content = inflateAll(message_.data + tail, history_, rules_.windowBits, rules_.maxMessageBytes);
        }
        const bool isTooBig = content.text.size() > rules_.maxMessageBytes;
        // Of two faults the one that came first in the text counts.
        const std::string_view seen =
            std::string_view(content.text).substr(0, static_cast<std::size_t>(rules_.maxMessageBytes) + 1);
        if (message_.isText && judgeUtf8(seen) == Utf8::Invalid) {
            return fail(1007);
        }
        if (isTooBig) {
            return fail(1009);
        }
        if (!content.isValid) {
            return fail(1007);
        }
        if (!isComplete) {
            return true;
        }
        if (!content.isComplete || (message_.isText && judgeUtf8(content.text) != Utf8::Complete)) {
            return fail(1007);
        }
        if (message_.isCompressed && rules_.takesOver) {
            history_ += content.text;
        }
        outcome_.events.push_back({message_.isText ? Event::Kind::Text : Event::Kind::Binary, content.text, 0});
        message_ = {};
        return true;
    }

    bool fail(unsigned int code) {
        outcome_.failure = code;
        isOver_ = true;
        return false;
    }

    std::string_view rest_;
    const NaiveRules rules_;
    Message message_;
    /// What compressed messages were.
    std::string history_;
    NaiveOutcome outcome_;
    bool isOver_ = false;
};

} // namespace

/// By the numbers that a sequence can still become.
Utf8 judgeUtf8(std::string_view text) {
    while (!text.empty()) {
        const unsigned int lead = byteAt(text, 0);
        const std::size_t length = lead < 0x80   ? 1
                                   : lead < 0xC0 ? 0
                                   : lead < 0xE0 ? 2
                                   : lead < 0xF0 ? 3
                                   : lead < 0xF8 ? 4
                                                 : 0;
        if (length == 0) {
            return Utf8::Invalid;
        }
        unsigned long least = length == 1 ? lead : lead & (0xFFU >> (length + 1));
        std::size_t taken = 1;
        for (; taken < length && taken < text.size(); ++taken) {
            if ((byteAt(text, taken) & 0xC0U) != 0x80) {
                return Utf8::Invalid;
            }
            least = least * 64 + (byteAt(text, taken) & 0x3FU);
        }
        unsigned long greatest = least;
        for (std::size_t i = taken; i < length; ++i) {
            least *= 64;
            greatest = greatest * 64 + 63;
        }
        constexpr std::array<unsigned long, 5> Smallest = {0, 0, 0x80, 0x800, 0x10000};
        const bool isSurrogate = least >= 0xD800 && greatest <= 0xDFFF;
        if (greatest < Smallest[length] || least > 0x10FFFF || isSurrogate) {
            return Utf8::Invalid;
        }
        if (taken < length) {
            return Utf8::Begun;
        }
        text.remove_prefix(length);
    }
    return Utf8::Complete;
}

std::ostream& operator<<(std::ostream& out, const Event& event) {
    static constexpr std::array<const char*, 5> Names = {"text", "binary", "ping", "pong", "close"};
    out << Names[static_cast<std::size_t>(event.kind)] << " of " << event.payload.size() << " bytes";
    if (event.payload.size() <= 200) {
        out << ": " << event.payload;
    }
    return event.kind == Event::Kind::Close ? out << ", code " << event.code : out;
}

NaiveOutcome decodeNaively(std::string_view bytes, const NaiveRules& rules) {
    return Reader(bytes, rules).run();
}

} // namespace sessiontest
