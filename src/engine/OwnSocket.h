// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

namespace ql::impl {

/// A descriptor that is closed at the end.
class OwnSocket {
public:
    /// None.
    OwnSocket() = default;
    /// Takes it over. @param socket InvalidSocket for none.
    explicit OwnSocket(std::uint64_t socket) : socket_(socket) {}
    /// Another descriptor of a connection; none when the system has none to give.
    static OwnSocket DuplicateOf(std::uint64_t socket) noexcept;
    ~OwnSocket();
    OwnSocket(OwnSocket&& other) noexcept;
    OwnSocket& operator=(OwnSocket&& other) noexcept;

    bool isOpen() const;
    std::uint64_t socket() const { return socket_; }

private:
    std::uint64_t socket_ = ~std::uint64_t{0};
};

/// Another descriptor of the same connection, which never blocks; InvalidSocket when the system has none to give.
std::uint64_t duplicateSocket(std::uint64_t socket) noexcept;

} // namespace ql::impl
