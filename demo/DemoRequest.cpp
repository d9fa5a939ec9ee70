#include "DemoRequest.h"

#include "DemoServer.h"
#include "Routes.h"

#include <algorithm>
#include <charconv>
#include <vector>

namespace demo {

namespace {

constexpr std::size_t PieceBytes = 65536;

/// The Content-Length of a request; 0 when it has none.
std::uint64_t announcedBytes(const DemoRequest& request) {
    const std::string text = request.header("content-length");
    std::uint64_t bytes = 0;
    std::from_chars(text.data(), text.data() + text.size(), bytes);
    return bytes;
}

std::nullopt_t refuseBody(DemoRequest& request, std::size_t max) {
    request.answer(413, "text/plain", "at most " + std::to_string(max) + " bytes\n");
    return std::nullopt;
}

} // namespace

DemoRequest::DemoRequest(DemoServer& server) : Request(server), server_(server) {
    applicationTimer_.restart();
    response().setHeader("Cache-Control", "no-store");
    server_.statistics().requestBegan();
}

DemoRequest::Pause DemoRequest::serve() {
    try {
        const Pause pause = route_->handler(*this);
        ++pastTurns_;
        return pause;
    } catch (const BadRequest& error) {
        answer(400, "text/plain", error.what() + std::string("\n"));
        return {};
    }
}

void DemoRequest::ended(const std::string& loss) {
    server_.statistics().requestEnded(getHeaderReceivedByteCountEstimation() + getBodyReceivedByteCount(),
                                      getHeaderSentByteCountEstimation() + getBodySentByteCount(), loss);
}

std::uint64_t DemoRequest::number(const std::string& name, std::uint64_t otherwise, std::uint64_t max) const {
    const auto argument = getQueryParameters().find(name);
    if (argument == getQueryParameters().end()) {
        return otherwise;
    }
    const std::string& text = argument->second.front();
    const char* const end = text.data() + text.size();
    std::uint64_t value = 0;
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    if (argument->second.size() != 1 || error != std::errc() || stop != end || value > max) {
        throw BadRequest("'" + name + "' has to be one number from 0 to " + std::to_string(max));
    }
    return value;
}

std::optional<std::string> DemoRequest::readWholeBody(std::size_t max) {
    if (announcedBytes(*this) > max) {
        return refuseBody(*this, max);
    }
    std::string body;
    std::vector<char> piece(std::min(max, PieceBytes));
    while (const std::size_t bytes = readBody(piece)) {
        if (bytes > max - body.size()) {
            return refuseBody(*this, max);
        }
        body.append(piece.data(), bytes);
    }
    return body;
}

void DemoRequest::enterEventBoard() {
    eventStream_.emplace(server_.eventBoard(), *this);
}

} // namespace demo
