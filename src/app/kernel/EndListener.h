// SPDX-License-Identifier: MIT
#pragma once

namespace vireo::impl {

/// Is told that an exchange has ended: on the daemon thread, once, with no lock held.
class EndListener {
public:
    virtual ~EndListener() = default;
    virtual void onEnd() noexcept = 0;
};

} // namespace vireo::impl
