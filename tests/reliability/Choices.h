#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace vireotest {

/// The bytes of one run, taken from their front: a fuzzer's, or a test's random ones. They make every choice of the
/// run: sizes, split points, operations. When they are used up, every number is 0 and every text is empty.
class Choices {
public:
    Choices(const std::uint8_t* data, std::size_t size)
        : rest_(reinterpret_cast<const char*>(data), data == nullptr ? 0 : size) {}

    /// @param bytes must outlive this object.
    explicit Choices(std::string_view bytes) : rest_(bytes) {}

    bool isUsedUp() const { return rest_.empty(); }

    unsigned int takeByte() {
        if (rest_.empty()) {
            return 0;
        }
        const auto byte = static_cast<unsigned char>(rest_.front());
        rest_.remove_prefix(1);
        return byte;
    }

    bool takeBool() { return (takeByte() & 1U) != 0; }

    /// Of one, two or four bytes, as many as `greatest` needs; from 0 to `greatest`.
    std::uint32_t takeNumber(std::uint32_t greatest) {
        std::uint64_t number = takeByte();
        if (greatest > 0xFF) {
            number = number << 8U | takeByte();
        }
        if (greatest > 0xFFFF) {
            number = number << 16U | takeByte() << 8U | takeByte();
        }
        return static_cast<std::uint32_t>(number % (std::uint64_t{greatest} + 1));
    }

    /// Of four bytes, from 0 to `greatest`: most are small, for what is large takes time and has little more to show.
    /// Only a number whose first byte is below 8 may be any.
    std::uint32_t takeSize(std::uint32_t greatest) {
        constexpr std::uint32_t MostOfSmall = 0xFF;
        constexpr unsigned int FirstOfSmall = 0x08000000;
        const std::uint32_t number = takeNumber(0xFFFFFFFF);
        return number % ((number < FirstOfSmall ? greatest : std::min(MostOfSmall, greatest)) + 1);
    }

    /// @return what lies in the run's bytes.
    std::string_view takeView(std::size_t size) {
        const std::string_view taken = rest_.substr(0, size);
        rest_.remove_prefix(taken.size());
        return taken;
    }

    std::string takeText(std::size_t size) { return std::string(takeView(size)); }

    /// A text whose length comes first, of up to 255 bytes; without NUL, as C strings are.
    std::string takeCText() {
        std::string text = takeText(takeByte());
        return text.substr(0, text.find('\0'));
    }

    std::string takeRest() { return takeText(rest_.size()); }

    /// A piece with its length before it. A length of 255 stands for a longer one.
    std::string_view takePiece() {
        const unsigned int size = takeByte();
        return takeView(size < 255 ? size : takeNumber(0xFFFF));
    }

    /// The rest in pieces, each in memory of its own, so that a look behind it shows.
    std::vector<std::string> takePieces() {
        std::vector<std::string> pieces;
        while (!rest_.empty()) {
            pieces.emplace_back(takePiece());
        }
        return pieces;
    }

private:
    std::string_view rest_;
};

} // namespace vireotest
