// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/export.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace ql::impl {
struct ListenEndpointData;
}

namespace ql::http {

class TlsContext;

/// A place where a server listens, for ServerOptions::addListener(). Making one checks nothing and opens nothing: what
/// is wrong with it shows when the server starts, as its StartError.
///
/// A value. One that was moved from may only be assigned to or destroyed.
class VIREO_API ListenEndpoint {
public:
    /// An IPv4 or IPv6 address of this machine, without a name service: "127.0.0.1", "0.0.0.0" for every IPv4 address,
    /// "::1", "::" for every IPv6 address and none of IPv4, "fe80::1%eth0" on one link.
    /// @param port 0 for one that the system finds.
    static ListenEndpoint Tcp(const std::string& address, std::uint16_t port);

    /// Every address of both kinds by one socket; on a machine without IPv6 the start fails. Clients over IPv4 are seen
    /// with their IPv4 address.
    /// @param port as for Tcp().
    static ListenEndpoint DualStack(std::uint16_t port);

    /// A Unix socket: a file by which processes of this machine connect. A file that a server has left there is removed
    /// when nobody answers on it, in turn with other servers that start; whatever else stands there makes the start
    /// fail with AddressInUse. The file is removed at the stop, unless another has taken its place. Its clients have no
    /// address. Take a directory of the server's own: it must be readable, and whoever else may read it can lock it and
    /// so keep the server from starting. There are none on Windows.
    /// @param path at most 107 bytes on Linux.
    /// @param mode the permissions of the file; who may write to it may connect.
    static ListenEndpoint Unix(const std::string& path, unsigned int mode = 0600);

    /// A socket that listens already, of TCP or a Unix socket: inherited from whoever started the process. The server
    /// listens on a duplicate, so the original stays open, and with it who waits there, for the caller to use again or
    /// to close. It is made non-blocking for everyone who shares it. Not on Windows.
    /// @param socket the descriptor's number.
    static ListenEndpoint Inherited(std::uint64_t socket);

    /// The sockets that a service manager gives with the environment variables LISTEN_FDS and LISTEN_PID; none when
    /// they are missing or meant for another process. They are not passed on to processes that this one starts.
    static std::vector<ListenEndpoint> FromEnvironment();

    /// Understands "127.0.0.1:8080", "[::1]:8080", "*:8080" (dual stack) and "unix:/run/my.sock".
    /// @return none for a text of another form.
    static std::optional<ListenEndpoint> Parse(const std::string& text);

    /// Has the connections of this listener speak TLS. Null, which TlsContext::Create() returns for what is broken,
    /// makes the start fail with TlsUnavailable: nobody is served without by mistake.
    /// @return this.
    ListenEndpoint& setTls(std::shared_ptr<TlsContext> tls);
    /// What was set, or null.
    const std::shared_ptr<TlsContext>& getTls() const;

    /// As errors and the log name it: in the forms of Parse(), or "fd:3" for an inherited socket.
    const std::string& toString() const;

private:
    friend struct impl::ListenEndpointData;

    explicit ListenEndpoint(const impl::ListenEndpointData& data);

    std::shared_ptr<const impl::ListenEndpointData> data_;
};

} // namespace ql::http
