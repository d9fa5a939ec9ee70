#include "server/UncompletedRequests.h"

#include "engine/LossReason.h"
#include "frame/NeverDestroyed.h"
#include "server/RequestCompletion.h"
#include "server/RequestContext.h"
#include "streams/DaemonCall.h"
#include "vireo/support/qlMutex.h"
#include "websocket/SocketPort.h"

#include <array>
#include <cstddef>
#include <memory>
#include <utility>

namespace ql::impl {

namespace {

/// A table without memory of its own: the requests in one place of it are linked to each other.
struct Requests {
    static constexpr std::size_t PlaceCount = 4093;
    static constexpr std::size_t MutexCount = 61;

    std::array<RequestContext*, PlaceCount> places{};
    /// Each for some of the places.
    std::array<qlMutex, MutexCount> mutexes;
};

Requests& requests() {
    static NeverDestroyed<Requests> requests;
    return *requests;
}

/// Takes the first one that is wanted out of a place. @return null for none.
template <typename Predicate>
RequestContext* takeFrom(std::size_t place, Predicate isWanted) noexcept {
    Requests& all = requests();
    const qlMutexLocker locker(all.mutexes[place % Requests::MutexCount]);
    RequestContext** link = &all.places[place];
    while (*link != nullptr && !isWanted(**link)) {
        link = &(*link)->nextUncompleted;
    }
    RequestContext* const taken = *link;
    if (taken != nullptr) {
        *link = std::exchange(taken->nextUncompleted, nullptr);
        taken->socket = InvalidSocket;
    }
    return taken;
}

std::size_t placeOf(std::uint64_t socket) {
    return static_cast<std::size_t>(socket % Requests::PlaceCount);
}

void end(RequestContext& context, MHD_RequestTerminationCode code) noexcept {
    if (context.request != nullptr) {
        const DaemonCall call;
        completeRequest(*context.server, *context.request, lossReason(code));
    }
}

} // namespace

void noteUncompleted(std::uint64_t socket, RequestContext& context) noexcept {
    if (socket == InvalidSocket) {
        return;
    }
    Requests& all = requests();
    const std::size_t place = placeOf(socket);
    const qlMutexLocker locker(all.mutexes[place % Requests::MutexCount]);
    context.socket = socket;
    context.nextUncompleted = std::exchange(all.places[place], &context);
}

void noteCompleted(RequestContext& context) noexcept {
    if (context.socket != InvalidSocket) {
        takeFrom(placeOf(context.socket), [&context](const RequestContext& other) { return &other == &context; });
    }
}

void endUncompleted(std::uint64_t socket) noexcept {
    const std::unique_ptr<RequestContext> context(
        takeFrom(placeOf(socket), [socket](const RequestContext& other) { return other.socket == socket; }));
    if (context != nullptr) {
        end(*context, MHD_REQUEST_TERMINATED_WITH_ERROR);
    }
}

void endUncompleted(http::HttpServer& server) noexcept {
    for (std::size_t place = 0; place < Requests::PlaceCount; ++place) {
        const auto takeNext = [place, &server] {
            return takeFrom(place, [&server](const RequestContext& other) { return other.server == &server; });
        };
        for (std::unique_ptr<RequestContext> context(takeNext()); context != nullptr; context.reset(takeNext())) {
            end(*context, MHD_REQUEST_TERMINATED_DAEMON_SHUTDOWN);
        }
    }
}

} // namespace ql::impl
