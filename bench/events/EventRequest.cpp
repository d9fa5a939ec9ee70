#include "events/EventRequest.h"

#include "events/EventBoard.h"
#include "support/Pattern.h"
#include "support/Work.h"
#include "vireo/support/qlThread.h"

#include <array>
#include <chrono>
#include <thread>

namespace bench {

namespace {

constexpr double PacedBytesPerSecond = 10e6;

} // namespace

bool EventRequest::answerOther() {
    const std::string& path = getParsedUrl().getPath();
    if (path == "/events") {
        if (getRequestType() == RequestType::Get) {
            editInternalResponseDevice().releaseResponse();
            return false;
        }
        publish();
    } else if (path == "/paced") {
        takePacedUpload();
    } else if (path == "/refused") {
        answerEmpty(413);
    } else if (path == "/private") {
        answerEmpty(401);
    } else {
        answerEmpty(404);
    }
    return true;
}

void EventRequest::answerHealth(bool isWell) {
    const std::string& thread = qlThread::CurrentThreadId();
    workerThreadStartHandling(thread);
    answerEmpty(isWell ? 200 : 503);
    workerThreadStopHandling(thread);
    setAnswered();
}

void EventRequest::answerEmpty(std::uint32_t statusCode) {
    response_.statusCode = statusCode;
    answerWith(nullptr, 0);
}

void EventRequest::goOn() {
    send(":\n\n");
    board_.join(*this);
}

void EventRequest::publish() {
    std::string event(StreamBlockBytes, '\0');
    event.resize(editFeedDevice().readBytes(event.data(), event.size()));
    board_.publish(event);
    answerWith(PlainBody.data(), PlainBody.size());
}

void EventRequest::send(const std::string& event) {
    const std::string& thread = qlThread::CurrentThreadId();
    workerThreadStartHandling(thread);
    ql::HttpResponseDevice& device = editInternalResponseDevice();
    device.writeBytes(event.data(), event.size());
    device.flush();
    workerThreadStopHandling(thread);
}

void EventRequest::end() {
    editInternalResponseDevice().endSending();
    leave();
}

void EventRequest::takePacedUpload() {
    using Clock = std::chrono::steady_clock;
    std::array<char, StreamBlockBytes> block;
    UploadCheck check;
    std::uint64_t taken = 0;
    const Clock::time_point begin = Clock::now();
    while (const std::uint64_t size = editFeedDevice().readBytes(block.data(), block.size())) {
        check.take(block.data(), size);
        taken += size;
        const std::chrono::duration<double> due(static_cast<double>(taken) / PacedBytesPerSecond);
        std::this_thread::sleep_until(begin + std::chrono::duration_cast<Clock::duration>(due));
    }
    const std::string report = check.report();
    answerWith(report.data(), report.size());
}

} // namespace bench
