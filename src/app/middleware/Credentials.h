// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace vireo::impl {

/// Whether both are the same, looking at each of them to the end whatever it finds. Only a difference of lengths ends
/// it early.
template <class Byte>
bool isSameSecret(std::span<const Byte> left, std::span<const Byte> right) {
    if (left.size() != right.size()) {
        return false;
    }
    unsigned int difference = 0;
    for (std::size_t i = 0; i < left.size(); ++i) {
        difference |= static_cast<unsigned int>(left[i] ^ right[i]);
    }
    return difference == 0;
}

/// A name and a password, as RFC 7617 has them.
struct BasicCredentials {
    std::string user;
    std::string password;
};

/// @param authorization the header; none for anything but "Basic" with base64 of a name, a colon and a password.
std::optional<BasicCredentials> parseBasic(std::string_view authorization);

/// @param authorization the header; none for anything but "Bearer" with a token.
std::optional<std::string_view> parseBearer(std::string_view authorization);

/// A text in quotes, for a challenge.
/// @throws std::invalid_argument for control characters.
std::string quoted(std::string_view text);

} // namespace vireo::impl
