// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/WebSocketAcceptor.h"

#include <memory>

namespace vireo::impl {

class Service;

/// Decides about openings by the routes of WebSockets, and the middlewares around them.
class AppAcceptor final : public ql::http::WebSocketAcceptor {
public:
    explicit AppAcceptor(std::shared_ptr<Service> service);
    ~AppAcceptor() override;

    /// By what a trusted proxy says of scheme and host, which the core does not know.
    bool isOriginAllowed(const ql::http::WebSocketOpening& opening) override;
    ql::http::WebSocketAnswer decide(const ql::http::WebSocketOpening& opening) override;

private:
    const std::shared_ptr<Service> service_;
};

} // namespace vireo::impl
