// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/app/export.h"

#include <cstdint>
#include <memory>
#include <string>

namespace vireo {

namespace impl {
struct RouteState;
}

/// A handle of what Group::get() and the like have added, to say more about it before the application starts. Its
/// members throw std::logic_error while the application runs and once it is gone.
class VIREO_APP_API Route {
public:
    /// For the library.
    explicit Route(std::shared_ptr<const impl::RouteState> state);
    /// Copies are handles of the same route.
    ///@{
    Route(const Route& other);
    Route(Route&& other) noexcept;
    Route& operator=(const Route& other);
    Route& operator=(Route&& other) noexcept;
    ///@}
    ~Route();

    /// Has the handler and its middlewares called on the daemon thread that received the request, not on a worker: the
    /// fastest for what computes little. It must not wait for anything, since every connection of that thread waits
    /// meanwhile; a line of the log names the route, once, when it took over 100 ms. A body is there as a whole before
    /// the call, so it may have 1 MiB at most, or what ServerOptions::setUploadWindowBytes() says if that is less, and
    /// streams are not for it. That a body is longer is answered on a worker where there are middlewares or an error
    /// handler, which may read what there is of it.
    ///
    /// Throws std::logic_error for a route that lets larger bodies in by maxBody(), and for a directory of files that
    /// is shown as a list.
    Route& quick();
    /// The longest body that a request may have here, in bytes, in place of the scope's: see Group::maxBody(). With 0
    /// a request with a body is refused.
    ///
    /// Throws std::invalid_argument for more than 1 MiB where it is quick().
    Route& maxBody(std::uint64_t bytes);
    /// Names it in the log, in place of its pattern.
    Route& named(std::string name);

private:
    std::shared_ptr<const impl::RouteState> state_;
};

} // namespace vireo
