// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/ListenEndpoint.h"

#include <cstdint>
#include <memory>
#include <string>

namespace ql::impl {

/// What ql::http::ListenEndpoint holds.
struct ListenEndpointData {
    enum class Kind { Tcp, DualStack, Unix, Inherited };

    static const ListenEndpointData& of(const http::ListenEndpoint& endpoint) { return *endpoint.data_; }

    Kind kind = Kind::Tcp;
    /// Names it in errors.
    std::string name;
    /// Of Tcp: numbers; of Unix: the path.
    std::string address{};
    std::uint16_t port = 0;
    /// Of the file of a Unix socket.
    unsigned int mode = 0;
    /// The one that is inherited.
    std::uint64_t socket = 0;
    bool isTls = false;
    /// Of who speaks TLS; null where it could not be made.
    std::shared_ptr<http::TlsContext> tls{};
};

} // namespace ql::impl
