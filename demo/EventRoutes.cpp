#include "EventRoutes.h"

#include "DemoServer.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>

#include <nlohmann/json.hpp>

namespace demo {

namespace {

constexpr std::size_t MaxEventBytes = 8192;
/// What may wait to be taken by the client of a stream: with more, a worker would wait, too.
constexpr std::uint64_t MaxUntakenBytes = 262144;
/// When there is no room for an event, it is tried again after this time.
constexpr std::chrono::milliseconds RetryPeriod(100);
/// Proxies give up a stream in which nothing happens for a minute. It also shows who vanished without a word.
constexpr std::chrono::seconds KeepAlivePeriod(45);

DemoRequest::Pause beginStream(DemoRequest& request) {
    request.response().setHeader("X-Accel-Buffering", "no"); // nginx passes each event on at once
    if (!request.beginAnswer("text/event-stream", -1)) {
        return {};
    }
    request.enterEventBoard();
    if (!request.write(": this stream is open\n\n")) {
        return {};
    }
    request.flush();
    return KeepAlivePeriod;
}

} // namespace

DemoRequest::Pause listenToEvents(DemoRequest& request) {
    EventStream* const stream = request.eventStream();
    if (stream == nullptr) {
        return beginStream(request);
    }
    const std::uint64_t untaken = request.editInternalResponseDevice().getDataSize();
    const EventStream::News news =
        stream->takeNews(static_cast<std::size_t>(MaxUntakenBytes - std::min(untaken, MaxUntakenBytes)));
    if (news.missedSome) {
        request.leaveEventBoard();
        throw std::runtime_error("the client of an event stream reads too slowly");
    }
    if (news.events.empty() && news.isMore) {
        return RetryPeriod;
    }
    if (!request.write(news.events.empty() && !news.isClosed ? ": still here\n\n" : news.events)) {
        return {}; // the client has gone
    }
    request.flush();
    if (news.isMore) {
        return RetryPeriod;
    }
    if (news.isClosed) {
        request.finish();
        return {};
    }
    return KeepAlivePeriod;
}

DemoRequest::Pause publishEvent(DemoRequest& request) {
    const std::optional<std::string> text = request.readWholeBody(MaxEventBytes);
    if (!text) {
        return {};
    }
    const nlohmann::ordered_json result = {{"streams", request.server().eventBoard().publish(*text)}};
    request.answer(200, "application/json", result.dump() + "\n");
    return {};
}

} // namespace demo
