// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace vireo::impl {

/// Encodes the body of one answer: whole, or in pieces. One thread at a time.
class BodyEncoder {
public:
    BodyEncoder() = default;
    virtual ~BodyEncoder() = default;
    BodyEncoder(const BodyEncoder&) = delete;
    BodyEncoder& operator=(const BodyEncoder&) = delete;

    /// The content coding's name, "gzip".
    virtual std::string_view coding() const = 0;

    /// The encoded body; none where that does not pay.
    virtual std::optional<std::string> whole(std::string_view body) = 0;
    /// Appends to `out` what is there of the encoded body behind this piece; all of it with `flush`.
    virtual void piece(std::string_view bytes, bool flush, std::string& out) = 0;
    /// Appends the rest.
    virtual void end(std::string& out) = 0;
};

} // namespace vireo::impl
