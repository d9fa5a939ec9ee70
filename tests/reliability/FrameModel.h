#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace vireotest {

struct Message {
    std::string payload;
    bool isBinary = false;

    friend bool operator==(const Message&, const Message&) = default;
};

/// What the server makes of a client's bytes, once all of them are there.
struct ReadFrames {
    std::vector<Message> messages;
    /// A frame came that is not accepted: nothing behind it counts.
    bool failed = false;
};

/// Reads frames as the server does, over one string, written without a look at its code.
inline ReadFrames readClientFrames(std::string_view bytes) {
    const auto at = [&](std::size_t i) { return static_cast<unsigned char>(bytes[i]); };
    ReadFrames result;
    Message message;
    bool inMessage = false;
    while (bytes.size() >= 6) {
        const unsigned int opcode = at(0) & 3U;
        if (opcode == 3 || (opcode == 0 && !inMessage)) {
            result.failed = true;
            return result;
        }
        std::size_t lengthBytes = 0;
        std::uint64_t length = at(1) & 0x7FU;
        if (length >= 126) {
            lengthBytes = length == 126 ? 2 : 8;
            if (bytes.size() < 2 + lengthBytes) {
                break;
            }
            length = 0;
            for (std::size_t i = 0; i < lengthBytes; ++i) {
                length = length * 256 + at(2 + i);
            }
        }
        const std::size_t header = 2 + lengthBytes + 4;
        if (bytes.size() < header || bytes.size() - header < length) {
            break;
        }
        if (!inMessage) {
            message.isBinary = opcode == 2;
        }
        for (std::size_t i = 0; i < length; ++i) {
            message.payload += static_cast<char>(at(header + i) ^ at(header - 4 + i % 4));
        }
        // A message in progress without a payload so far counts as none.
        inMessage = !message.payload.empty();
        if ((at(0) & 0x80U) != 0) {
            result.messages.push_back(message);
            message = {};
            inMessage = false;
        }
        bytes.remove_prefix(header + static_cast<std::size_t>(length));
    }
    return result;
}

/// Appends the bytes in which the server sends a message.
inline void appendServerFrames(std::string& bytes, const Message& message) {
    constexpr std::size_t Fragment = 131000;
    std::size_t at = 0;
    do {
        const std::size_t size = message.payload.size() - at < Fragment ? message.payload.size() - at : Fragment;
        const bool isLast = at + size == message.payload.size();
        const unsigned int opcode = at > 0 ? 0 : message.isBinary ? 2 : 1;
        bytes += static_cast<char>(opcode + (isLast ? 0x80U : 0U));
        std::size_t lengthBytes = 0;
        if (size < 126) {
            bytes += static_cast<char>(size);
        } else {
            lengthBytes = size < 65536 ? 2 : 8;
            bytes += static_cast<char>(lengthBytes == 2 ? 126 : 127);
        }
        for (std::size_t i = lengthBytes; i > 0; --i) {
            bytes += static_cast<char>(static_cast<std::uint64_t>(size) >> (8 * (i - 1)) & 0xFFU);
        }
        bytes.append(message.payload, at, size);
        at += size;
    } while (at < message.payload.size());
}

/// The bytes in which the server sends a message.
inline std::string serverFrames(const Message& message) {
    std::string bytes;
    appendServerFrames(bytes, message);
    return bytes;
}

} // namespace vireotest
