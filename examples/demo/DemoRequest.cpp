#include "DemoRequest.h"

#include "DemoServer.h"
#include "Routes.h"

#include <charconv>

namespace demo {

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

} // namespace demo
