#include "Mutators.h"

#include "reliability/Choices.h"

#include <algorithm>
#include <array>
#include <random>
#include <span>
#include <string>
#include <utility>
#include <vector>

/// The engine's own changes of some bytes.
extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t most);

namespace vireofuzz {

namespace {

using Records = std::vector<std::string>;

class Random {
public:
    explicit Random(unsigned int seed) : engine_(seed) {}

    /// @return less than `count`, which is not 0.
    std::size_t below(std::size_t count) { return engine_() % count; }

private:
    std::minstd_rand engine_;
};

void mutateBytes(std::string& bytes) {
    const std::size_t size = bytes.size();
    bytes.resize(size + 16);
    bytes.resize(LLVMFuzzerMutate(reinterpret_cast<std::uint8_t*>(bytes.data()), size, bytes.size()));
}

struct Grammar {
    /// Records that make up the text.
    Records (*split)(std::string_view text);
    /// Changes the inside of a record.
    void (*change)(std::string& record, Random& random);
    /// Records that a text may get.
    std::span<const std::string_view> samples;
};

/// An input taken apart.
struct Input {
    Input(std::string_view input, std::size_t headSize) : head(input.substr(0, headSize)) {
        vireotest::Choices choices(input.substr(head.size()));
        while (!choices.isUsedUp()) {
            const std::string_view piece = choices.takePiece();
            text += piece;
            sizes.push_back(piece.size());
        }
    }

    /// The last piece has what the others leave.
    std::string joined() const {
        std::string input(head);
        std::string_view rest = text;
        for (std::size_t i = 0; i < sizes.size() && !rest.empty(); ++i) {
            const std::size_t size = i + 1 < sizes.size() ? std::min(sizes[i], rest.size()) : rest.size();
            if (size < 255) {
                input += static_cast<char>(size);
            } else {
                input += {'\xFF', static_cast<char>(size >> 8U), static_cast<char>(size)};
            }
            input += rest.substr(0, size);
            rest.remove_prefix(size);
        }
        return input;
    }

    void cut(Random& random) {
        const std::size_t at = random.below(sizes.size());
        if (sizes.size() > 1 && random.below(2) == 0) {
            sizes.erase(sizes.begin() + static_cast<std::ptrdiff_t>(at));
        } else {
            const std::size_t size = random.below(sizes[at] + 1);
            sizes[at] -= size;
            sizes.insert(sizes.begin() + static_cast<std::ptrdiff_t>(at), size);
        }
    }

    std::string_view head;
    std::string text;
    std::vector<std::size_t> sizes;
};

void changeRecords(Records& records, const Grammar& grammar, Random& random) {
    const auto place = [&] { return records.begin() + static_cast<std::ptrdiff_t>(random.below(records.size())); };
    switch (records.empty() ? 0 : random.below(8)) {
    case 0:
    case 1: {
        const std::string sample(grammar.samples[random.below(grammar.samples.size())]);
        records.insert(records.empty() ? records.end() : place(), sample);
        break;
    }
    case 2: {
        const std::string copy = *place();
        records.insert(place(), copy);
        break;
    }
    case 3:
        records.erase(place());
        break;
    case 4:
        std::iter_swap(place(), place());
        break;
    default:
        grammar.change(*place(), random);
    }
}

std::size_t mutate(std::uint8_t* data, std::size_t size, std::size_t most, unsigned int seed, std::size_t head,
                   const Grammar& grammar) {
    Random random(seed);
    const std::string_view all(reinterpret_cast<const char*>(data), size);
    // What is before the pieces is a matter of the engine's.
    if (size < head || random.below(2) == 0) {
        return LLVMFuzzerMutate(data, size, most);
    }
    Input input(all, head);
    if (input.sizes.empty()) {
        input.sizes.push_back(0);
    }
    if (random.below(6) == 0) {
        input.cut(random);
    } else {
        Records records = grammar.split(input.text);
        changeRecords(records, grammar, random);
        input.text.clear();
        for (const std::string& record : records) {
            input.text += record;
        }
    }
    const std::string changed = input.joined();
    if (changed.empty() || changed.size() > most) {
        return LLVMFuzzerMutate(data, size, most);
    }
    std::copy(changed.begin(), changed.end(), data);
    return changed.size();
}

/// A frame with its payload unmasked.
struct Frame {
    /// @param bytes begin with a frame, whole or not. @return nothing when its header is not whole.
    static bool Read(std::string_view bytes, Frame& frame, std::size_t& size) {
        const auto at = [&](std::size_t i) { return static_cast<unsigned char>(bytes[i]); };
        if (bytes.size() < 6) {
            return false;
        }
        frame.first = bytes[0];
        const unsigned int code = at(1) & 0x7FU;
        const std::size_t lengthBytes = code == 127 ? 8 : code == 126 ? 2 : 0;
        if (bytes.size() < 6 + lengthBytes) {
            return false;
        }
        std::uint64_t length = lengthBytes == 0 ? code : 0;
        for (std::size_t i = 0; i < lengthBytes; ++i) {
            length = length << 8U | at(2 + i);
        }
        frame.key = bytes.substr(2 + lengthBytes, 4);
        const std::string_view rest = bytes.substr(6 + lengthBytes);
        frame.payload = rest.substr(0, static_cast<std::size_t>(std::min<std::uint64_t>(length, rest.size())));
        frame.mask();
        size = 6 + lengthBytes + frame.payload.size();
        return true;
    }

    std::string written() const {
        std::string bytes{first};
        const std::size_t size = payload.size();
        if (size < 126) {
            bytes += static_cast<char>(0x80U | size);
        } else {
            bytes += {'\xFE', static_cast<char>(size >> 8U), static_cast<char>(size)};
        }
        bytes += key;
        Frame masked = *this;
        masked.mask();
        return bytes + masked.payload;
    }

    void mask() {
        for (std::size_t i = 0; i < payload.size(); ++i) {
            payload[i] = static_cast<char>(payload[i] ^ key[i % 4]);
        }
    }

    char first = 0;
    std::string key;
    std::string payload;
};

Records splitFrames(std::string_view text) {
    Records records;
    Frame frame;
    std::size_t size = 0;
    while (Frame::Read(text, frame, size)) {
        records.emplace_back(text.substr(0, size));
        text.remove_prefix(size);
    }
    if (!text.empty()) {
        records.emplace_back(text);
    }
    return records;
}

void changeFrame(std::string& record, Random& random) {
    constexpr std::string_view FirstBytes("\x81\x82\x01\x02\x80\x00\x88\x89\x8A\xC1\xC2\x41\x42\x83", 14);
    Frame frame;
    std::size_t size = 0;
    if (!Frame::Read(record, frame, size)) {
        mutateBytes(record);
        return;
    }
    switch (random.below(4)) {
    case 0:
        frame.first = FirstBytes[random.below(FirstBytes.size())];
        record = frame.written();
        break;
    case 1: { // in two
        Frame last{static_cast<char>(frame.first & 0x80), frame.key, {}};
        const std::size_t at = random.below(frame.payload.size() + 1);
        last.payload = frame.payload.substr(at);
        frame.payload.resize(at);
        frame.first = static_cast<char>(frame.first & 0x7F);
        record = frame.written() + last.written();
        break;
    }
    default:
        mutateBytes(frame.payload);
        record = frame.written();
    }
}

Records splitLines(std::string_view text) {
    Records records;
    while (!text.empty()) {
        const std::size_t size = std::min(text.find('\n'), text.size() - 1) + 1;
        records.emplace_back(text.substr(0, size));
        text.remove_prefix(size);
    }
    return records;
}

/// All but its end.
void changeLine(std::string& record, Random& /*random*/) {
    const std::size_t end = record.find_last_not_of("\r\n") + 1; // 0 when there is nothing else
    const std::string last = record.substr(end);
    record.resize(end);
    mutateBytes(record);
    record += last;
}

using namespace std::string_view_literals;

constexpr std::array FrameSamples{
    "\x81\x80\0\0\0\0"sv,           "\x81\x83\0\0\0\0abc"sv,        "\x01\x81\0\0\0\0a"sv,
    "\x80\x81\0\0\0\0b"sv,          "\x82\x83\0\0\0\0\0\xFF\x01"sv, "\x89\x80\0\0\0\0"sv,
    "\x8A\x81\0\0\0\0x"sv,          "\x88\x80\0\0\0\0"sv,           "\x88\x82\0\0\0\0\x03\xE8"sv,
    "\xC1\x83\0\0\0\0\x4A\x04\0"sv, "\x41\x83\0\0\0\0\x4A\x04\0"sv};

constexpr std::array LineSamples{
    "GET / HTTP/1.1\r\n"sv,
    "POST /?a=b HTTP/1.1\r\n"sv,
    "HEAD /%C3%A4 HTTP/1.0\r\n"sv,
    "\r\n"sv,
    "GET / HTTP/1.1\r\nHost: x\r\n\r\n"sv,
    "POST / HTTP/1.1\r\nHost: x\r\nContent-Length: 3\r\n\r\nabc"sv,
    "POST / HTTP/1.1\r\nHost: x\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nabc\r\n0\r\n\r\n"sv,
    "Host: x\r\n"sv,
    "Content-Length: 3\r\n"sv,
    "Transfer-Encoding: chunked\r\n"sv,
    "3\r\nabc\r\n"sv,
    "0\r\n\r\n"sv,
    "Expect: 100-continue\r\n"sv,
    "Connection: close\r\n"sv,
    "Connection: Upgrade\r\nUpgrade: websocket\r\n"sv,
    "Sec-WebSocket-Version: 13\r\nSec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n"sv,
    "Cookie: a=b; c=\"d\"\r\n"sv,
    "X-A: b, \"c\"\r\n"sv,
    " folded\r\n"sv};

} // namespace

std::size_t mutateFrames(std::uint8_t* data, std::size_t size, std::size_t most, unsigned int seed, std::size_t head) {
    return mutate(data, size, most, seed, head, {splitFrames, changeFrame, FrameSamples});
}

std::size_t mutateLines(std::uint8_t* data, std::size_t size, std::size_t most, unsigned int seed, std::size_t head) {
    return mutate(data, size, most, seed, head, {splitLines, changeLine, LineSamples});
}

} // namespace vireofuzz
