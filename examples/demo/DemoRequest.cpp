#include "DemoRequest.h"

#include "DemoServer.h"
#include "Routes.h"

#include <charconv>

namespace demo {

DemoRequest::DemoRequest(DemoServer& server) : server_(server) {
    applicationTimer_.restart();
    response_.setHeader("Cache-Control", "no-store");
    server_.statistics().requestBegan();
}

ql::http::HttpServerImpl& DemoRequest::getServerImpl() {
    return server_;
}

skeleton::PooledRequest::Pause DemoRequest::serve() {
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

std::string DemoRequest::header(const char* name) const {
    std::string value;
    if (const Values* const elements = getHeader(name)) {
        for (const std::string& element : *elements) {
            value += (value.empty() ? "" : ", ") + element;
        }
    }
    return value;
}

std::size_t DemoRequest::readBody(std::vector<char>& buffer) {
    ql::HttpReceiveDevice& feed = editFeedDevice();
    const std::uint64_t bytes = feed.readBytes(buffer.data(), buffer.size());
    if (feed.hasDeviceError()) {
        throw std::runtime_error(feed.getDeviceErrorMsg());
    }
    return static_cast<std::size_t>(bytes);
}

void DemoRequest::answer(std::uint32_t status, const std::string& contentType, std::string_view body) {
    response_.setStatus(status);
    response_.setHeader("Content-Type", contentType);
    // Written and ended before it is released, a body goes out as one buffer of known length, which is also right for
    // HEAD. One write may have any size: only the next one would wait for the client, who can't take anything yet.
    write(body.data(), body.size());
    finish();
    editInternalResponseDevice().releaseResponse();
}

bool DemoRequest::beginAnswer(const std::string& contentType, std::int64_t contentLength) {
    response_.setHeader("Content-Type", contentType);
    response_.setContentLength(contentLength);
    // Released first: nothing is sent before, and the writer would wait for ever after 256 KiB.
    editInternalResponseDevice().releaseResponse();
    return !isHead();
}

bool DemoRequest::write(const char* data, std::size_t size) {
    return editInternalResponseDevice().writeBytes(data, size) == size;
}

} // namespace demo
