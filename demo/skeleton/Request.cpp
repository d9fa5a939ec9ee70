#include "skeleton/Request.h"

#include <stdexcept>

namespace skeleton {

std::string Request::header(const char* name) const {
    std::string value;
    if (const Values* const elements = getHeader(name)) {
        for (const std::string& element : *elements) {
            value += (value.empty() ? "" : ", ") + element;
        }
    }
    return value;
}

std::size_t Request::readBody(std::vector<char>& buffer) {
    ql::HttpReceiveDevice& feed = editFeedDevice();
    const std::uint64_t bytes = feed.readBytes(buffer.data(), buffer.size());
    if (feed.hasDeviceError()) {
        throw std::runtime_error(feed.getDeviceErrorMsg());
    }
    // A feed ends with its body, or when the pool's scheduler ends it for an exchange that is over. What ends then may
    // be cut off anywhere, and a body in chunks announces no length that would tell.
    if (bytes < buffer.size() && isSchedulerDone()) {
        throw std::runtime_error("the client has gone before its body was read");
    }
    return static_cast<std::size_t>(bytes);
}

void Request::answer(std::uint32_t status, const std::string& contentType, std::string_view body) {
    response_.setStatus(status);
    response_.setHeader("Content-Type", contentType);
    // Written and ended before it is released, a body goes out as one buffer of known length, which is also right for
    // HEAD. One write may have any size: only the next one would wait for the client, who can't take anything yet.
    write(body);
    finish();
    editInternalResponseDevice().releaseResponse();
}

bool Request::refusesBadHead() {
    if (hasParseError()) {
        answer(400, "text/plain", getParseError() + "\n");
    }
    return hasParseError();
}

bool Request::beginAnswer(const std::string& contentType, std::int64_t contentLength) {
    response_.setHeader("Content-Type", contentType);
    response_.setContentLength(contentLength);
    // Released first: nothing is sent before, and the writer would wait for ever after 256 KiB.
    editInternalResponseDevice().releaseResponse();
    return !isHead();
}

bool Request::write(std::string_view bytes) {
    return editInternalResponseDevice().writeBytes(bytes.data(), bytes.size()) == bytes.size();
}

} // namespace skeleton
