// SPDX-License-Identifier: MIT
#pragma once

#include "app/kernel/BodyEncoder.h"

#include <cstdint>
#include <memory>

namespace vireo::impl {

class GzipStream;

/// The content coding "gzip". What it works with is its own; that of encoders that have gone is kept for later
/// ones.
class GzipEncoder final : public BodyEncoder {
public:
    /// @param level 1 to 9.
    explicit GzipEncoder(int level);
    ~GzipEncoder() override;

    std::string_view coding() const override { return "gzip"; }
    std::optional<std::string> whole(std::string_view body) override;
    void piece(std::string_view bytes, bool flush, std::string& out) override;
    void end(std::string& out) override;

private:
    std::unique_ptr<GzipStream> stream_;
};

} // namespace vireo::impl
