#pragma once

#include "DemoRequest.h"

namespace demo {

/// Who answers a request, and where.
struct Route {
    enum class Place {
        Worker,       ///< on a worker thread, which may take its time
        DaemonThread, ///< on the daemon thread, inside handleRequest(): must take no time
    };

    const char* path;
    /// Takes one turn at a request.
    DemoRequest::Pause (*handler)(DemoRequest& request);
    /// As bits of RequestType.
    int methods;
    Place place;
};

/// The route of a request. There is always one: errors have routes, too. Of a wrong method, it also puts the right ones
/// into the response.
const Route& findRoute(DemoRequest& request);

} // namespace demo
