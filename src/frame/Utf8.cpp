#include "frame/Utf8.h"

#include <cstdint>
#include <cstring>

namespace ql::impl {

namespace {

/// Where the ASCII characters from `at` on end.
std::size_t skipAscii(std::span<const unsigned char> bytes, std::size_t at) {
    constexpr std::uint64_t HighBits = 0x8080808080808080;
    std::uint64_t word = 0;
    for (; bytes.size() - at >= sizeof word; at += sizeof word) {
        std::memcpy(&word, bytes.data() + at, sizeof word);
        if ((word & HighBits) != 0) {
            break;
        }
    }
    while (at < bytes.size() && bytes[at] < 0x80) {
        ++at;
    }
    return at;
}

} // namespace

std::size_t Utf8Validator::findInvalid(std::span<const unsigned char> bytes) {
    for (std::size_t at = 0; at < bytes.size(); ++at) {
        if (missing_ == 0) {
            at = skipAscii(bytes, at);
            if (at == bytes.size()) {
                break;
            }
        }
        if (!(missing_ == 0 ? begin(bytes[at]) : goOn(bytes[at]))) {
            return at;
        }
    }
    return std::string_view::npos;
}

/// The first continuation byte has a range of its own where the full range would allow over-long forms, surrogates or
/// code points above U+10FFFF.
bool Utf8Validator::begin(unsigned char lead) {
    if (lead < 0xC2 || lead > 0xF4) {
        return false;
    }
    missing_ = lead < 0xE0 ? 1 : lead < 0xF0 ? 2 : 3;
    low_ = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
    high_ = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
    taken_ = 1;
    return true;
}

bool Utf8Validator::goOn(unsigned char continuation) {
    if (continuation < low_ || continuation > high_) {
        return false;
    }
    low_ = 0x80;
    high_ = 0xBF;
    --missing_;
    taken_ = missing_ == 0 ? 0 : static_cast<unsigned char>(taken_ + 1);
    return true;
}

std::size_t findInvalidUtf8(std::string_view text) {
    Utf8Validator validator;
    const std::size_t invalid =
        validator.findInvalid({reinterpret_cast<const unsigned char*>(text.data()), text.size()});
    if (invalid == std::string_view::npos && validator.isComplete()) {
        return invalid;
    }
    return (invalid == std::string_view::npos ? text.size() : invalid) - validator.taken_;
}

std::string withoutControls(std::string_view text) {
    const auto byteAt = [text](std::size_t at) {
        return at < text.size() ? static_cast<unsigned char>(text[at]) : static_cast<unsigned char>(0);
    };
    std::string plain;
    plain.reserve(text.size());
    for (std::size_t at = 0; at < text.size(); ++at) {
        const unsigned char byte = byteAt(at);
        const unsigned char next = byteAt(at + 1);
        const bool isLong = byte == 0xC2 && next >= 0x80 && next < 0xA0;
        plain += isLong || byte < 0x20 || byte == 0x7F ? ' ' : text[at];
        at += isLong ? 1 : 0;
    }
    return plain;
}

} // namespace ql::impl
