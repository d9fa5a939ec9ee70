#include "vireo/BenchRequest.h"

#include "support/Pattern.h"
#include "support/Work.h"
#include "vireo/support/qlThread.h"

#include <algorithm>
#include <array>
#include <vector>

namespace bench {

namespace {

const std::vector<char>& wholeBody() {
    static const std::vector<char> body = [] {
        std::vector<char> bytes;
        bytes.reserve(WholeBytes);
        while (bytes.size() < WholeBytes) {
            const char* const piece = Pattern::at(bytes.size());
            bytes.insert(bytes.end(), piece, piece + std::min(Pattern::Contiguous, WholeBytes - bytes.size()));
        }
        return bytes;
    }();
    return body;
}

} // namespace

const ql::HttpResponseInterface::Cookies& BenchResponse::getCookies() const {
    static const Cookies none;
    return none;
}

const ql::HttpResponseInterface::Headers& BenchResponse::getHeaders() const {
    static const Headers headers{{"content-type", {"Content-Type", PlainType}}};
    return headers;
}

void BenchRequest::answer() {
    const std::string& thread = qlThread::CurrentThreadId();
    workerThreadStartHandling(thread);
    bool answered = true;
    switch (workOf(path())) {
    case Work::Plain:
    case Work::Slow:
        editInternalResponseDevice().releaseBuffer(PlainBody.data(), PlainBody.size());
        break;
    case Work::KnownStream:
        stream(true);
        break;
    case Work::UnknownStream:
        stream(false);
        break;
    case Work::Whole:
        answerWith(wholeBody().data(), wholeBody().size());
        break;
    case Work::Upload:
        takeUpload();
        break;
    case Work::Unknown:
        answered = answerOther();
        break;
    }
    workerThreadStopHandling(thread);
    if (answered) {
        setAnswered();
    } else {
        goOn();
    }
}

bool BenchRequest::answerOther() {
    response_.statusCode = 404;
    answerWith(nullptr, 0);
    return true;
}

void BenchRequest::answerWith(const char* data, std::uint64_t size) {
    ql::HttpResponseDevice& device = editInternalResponseDevice();
    device.writeBytes(data, size);
    device.endSending();
    device.releaseResponse();
}

void BenchRequest::stream(bool lengthKnown) {
    ql::HttpResponseDevice& device = editInternalResponseDevice();
    if (lengthKnown) {
        response_.contentLength = static_cast<std::int64_t>(StreamBytes);
    }
    device.releaseResponse();
    for (std::uint64_t position = 0; position < StreamBytes;) {
        const std::uint64_t size = std::min<std::uint64_t>(StreamBlockBytes, StreamBytes - position);
        if (device.writeBytes(Pattern::at(position), size) != size) {
            break;
        }
        position += size;
    }
    device.endSending();
}

void BenchRequest::takeUpload() {
    std::array<char, StreamBlockBytes> block;
    UploadCheck check;
    while (const std::uint64_t size = editFeedDevice().readBytes(block.data(), block.size())) {
        check.take(block.data(), size);
    }
    const std::string report = check.report();
    answerWith(report.data(), report.size());
}

} // namespace bench
