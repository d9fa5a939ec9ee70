// SPDX-License-Identifier: MIT
#pragma once

#include "app/body/RequestBody.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vireo::impl {

struct BodyFate;

/// Takes the body of a request out of the core, within its limit. One thread at a time.
class BodyReader {
public:
    /// @param waits null for nobody.
    BodyReader(ql::HttpReceiveDevice& feed, const RequestBody::Limits& limits, ClientWaits* waits);
    ~BodyReader();

    // What Body promises.

    std::optional<std::string_view> read();
    const std::string& text();
    std::optional<std::uint64_t> announced() const { return limits_.announced; }

    /// Whoever reads on gets std::logic_error.
    void freeze() { isFrozen_ = true; }
    /// Whether some of it was taken in pieces.
    bool hasBegun() const { return hasBegun_; }
    /// Whether the client has gone before the end.
    bool isCutShort() const;
    const std::shared_ptr<BodyFate>& fate() const { return fate_; }
    std::uint64_t maxBytes() const { return limits_.maxBody; }

private:
    /// The next bytes as they come; none at the end.
    std::optional<std::string_view> receive();

    ql::HttpReceiveDevice& feed_;
    const RequestBody::Limits limits_;
    ClientWaits* const waits_;
    const std::shared_ptr<BodyFate> fate_;
    std::vector<char> buffer_;
    std::uint64_t receivedBytes_ = 0;
    bool hasBegun_ = false;
    /// Set by the chain's thread; read by whoever reads the body, be it by mistake another thread.
    std::atomic<bool> isFrozen_{false};
    /// Kept by text(), and how much of it read() has given.
    ///@{
    std::optional<std::string> text_;
    std::size_t textOffset_ = 0;
    ///@}
};

} // namespace vireo::impl
