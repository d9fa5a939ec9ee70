// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/export.h"

#include <cstddef>
#include <memory>

namespace ql::impl {
struct ServerSettings;
}

namespace ql::http {

/// What a server can be given beside HttpServer::Parameters. Fresh options leave everything as it is without them, so
/// set only what is to differ.
///
/// A value: a server copies the options that it is made with. One that was moved from may only be assigned to or
/// destroyed.
class VIREO_API ServerOptions {
public:
    /// Bounds of setConnectionMemoryBytes().
    ///@{
    static constexpr std::size_t MinConnectionMemoryBytes = 8192;
    static constexpr std::size_t MaxConnectionMemoryBytes = 1073741824;
    ///@}

    /// All with their defaults.
    ServerOptions();
    /// Copies, or takes over.
    ///@{
    ServerOptions(const ServerOptions& other);
    ServerOptions(ServerOptions&& other) noexcept;
    ServerOptions& operator=(const ServerOptions& other);
    ServerOptions& operator=(ServerOptions&& other) noexcept;
    ///@}
    ~ServerOptions();

    /// How much memory each connection takes, in bytes; 262144 by default. It holds the head of a request with all
    /// that the engine makes of it, then pieces of the body, and the head of the answer: a request whose head does not
    /// fit is answered 431 by the engine. Taken whole as long as the connection lives, so what is spared here is
    /// spared for each idle client; a large head, or a body in large pieces, wants it.
    ///
    /// Throws std::invalid_argument for less than MinConnectionMemoryBytes, in which the requests of browsers no
    /// longer fit, and for more than MaxConnectionMemoryBytes.
    void setConnectionMemoryBytes(std::size_t bytes);
    /// What was set, or the default.
    std::size_t getConnectionMemoryBytes() const;

    /// Whether the engine tries to read and to write before it knows that a socket is ready; false by default. It
    /// saves system calls while requests come one upon the other, and costs a vain one whenever a client is slower
    /// than that.
    void setTurbo(bool on);
    /// What was set, or the default.
    bool isTurbo() const;

private:
    std::unique_ptr<impl::ServerSettings> settings_;
};

} // namespace ql::http
