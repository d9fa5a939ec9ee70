#pragma once

#include "engine/ListenEndpointData.h"
#include "engine/Listener.h"

#include <memory>
#include <stdexcept>

namespace vireotest {

/// Listens there; by default at any free port of the loopback interface.
inline std::unique_ptr<ql::impl::Listener>
openListener(const ql::http::ListenEndpoint& endpoint = ql::http::ListenEndpoint::Tcp("127.0.0.1", 0)) {
    constexpr std::uint32_t Backlog = 512;
    ql::impl::StartFailure failure;
    auto listener = ql::impl::Listener::Open(ql::impl::ListenEndpointData::of(endpoint), Backlog, failure);
    if (!listener) {
        throw std::runtime_error(failure.text);
    }
    return listener;
}

} // namespace vireotest
