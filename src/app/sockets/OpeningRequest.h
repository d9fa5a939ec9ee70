// SPDX-License-Identifier: MIT
#pragma once

#include "app/request/RequestData.h"
#include "vireo/HttpBaseRequest.h"

#include <atomic>
#include <memory>

namespace vireo::impl {

/// The request of an opening, which its session has for as long as it lives: the head is a copy.
class OpeningRequest final : public RequestSource {
public:
    /// @param core lives until leaveCore() is called.
    OpeningRequest(const ql::HttpBaseRequest& core, std::shared_ptr<const ProxyRules> proxies);
    ~OpeningRequest() override;

    RequestData& data() { return data_; }
    const RequestData& data() const { return data_; }

    /// The opening is decided.
    void leaveCore();
    /// The connection has ended.
    void setGone() { isGone_ = true; }

    /// @throws std::logic_error always: there is none.
    RequestBody& body() override;
    bool isGone() const override { return isGone_; }
    /// @throws std::logic_error once the opening is decided.
    const ql::HttpBaseRequest& core() const override;

private:
    const ql::HttpBaseRequest* core_;
    std::atomic<bool> isGone_{false};
    OwnedHead head_;
    RequestData data_;
};

} // namespace vireo::impl
