// SPDX-License-Identifier: MIT
#pragma once

namespace vireo::impl {

/// Is told of threads that wait for a client, so that others can take their place meanwhile.
class ClientWaits {
public:
    virtual ~ClientWaits() = default;

    virtual void begin() noexcept = 0;
    virtual void end() noexcept = 0;
};

/// A wait of the calling thread for a client.
class WaitForClient {
public:
    /// @param waits null where nobody is to be told.
    explicit WaitForClient(ClientWaits* waits) : waits_(waits) {
        if (waits_ != nullptr) {
            waits_->begin();
        }
    }
    ~WaitForClient() {
        if (waits_ != nullptr) {
            waits_->end();
        }
    }
    WaitForClient(const WaitForClient&) = delete;
    WaitForClient& operator=(const WaitForClient&) = delete;

private:
    ClientWaits* const waits_;
};

} // namespace vireo::impl
