#include "request/Misuse.h"

#include "frame/Utf8.h"
#include "request/RequestAccess.h"
#include "request/RequestState.h"
#include "streams/FeedAccess.h"
#include "vireo/support/qlLog.h"
#include "vireo/support/qlSystemUtils.h"

#include <string>
#include <string_view>

namespace ql::impl {

namespace {

// A thread that takes over later is left the time to register.
constexpr std::int64_t BegunAnswerGraceMs = 1000;
constexpr std::int64_t AnswerGraceMs = 10000;

const char* textOf(Misuse misuse) {
    switch (misuse) {
    case Misuse::WriteBeforeRelease:
        return "writeBytes() waits with more than 256 KiB that nobody takes: releaseResponse() was not called";
    case Misuse::ReadOnDaemonThread:
        return "readBytes() waits on a daemon thread, which would have to feed it meanwhile";
    case Misuse::WriteWithoutWorker:
        return "writeBytes() is refused: no thread has called workerThreadStartHandling()";
    case Misuse::WriteOfAnotherThread:
        return "writeBytes() is refused: another thread has called workerThreadStartHandling()";
    case Misuse::MissingRelease:
        return "the client waits: the worker has called workerThreadStopHandling(), and nobody releaseResponse()";
    case Misuse::WriteWhileReading:
        return "writeBytes() waits with more than 256 KiB that nobody takes: the rest of the body is to be read first";
    case Misuse::FileBesideBody:
        return "releaseFile() is refused: the response has a body already, or is released";
    case Misuse::BufferBesideBody:
        return "releaseBuffer() is refused: the response has a body already, or is released";
    }
    return "";
}

} // namespace

void nameMisuse(HttpBaseRequest& request, Misuse misuse) noexcept {
    const std::uint32_t bit = 1U << static_cast<std::uint32_t>(misuse);
    if ((RequestAccess::state(request).namedMisuses.fetch_or(bit, std::memory_order_relaxed) & bit) != 0) {
        return;
    }
    try {
        const std::string& target = request.getOriginalRequestUrl();
        qlLogObject(qlLogType::Failure, "httpserver")
            << textOf(misuse) << " : " << withoutControls(std::string_view(target).substr(0, target.find('?')));
    } catch (...) {
        // Without memory for a line there is no line.
    }
}

void nameMutualWait(HttpBaseRequest& request) noexcept {
    HttpReceiveDevice* const feed = RequestAccess::feedOfBody(request);
    if (RequestAccess::state(request).writerWaits.load() && feed != nullptr && FeedAccess::isHeld(*feed)) {
        nameMisuse(request, Misuse::WriteWhileReading);
    }
}

void nameMissingRelease(HttpBaseRequest& request) noexcept {
    const std::int64_t goneSinceMs = RequestAccess::state(request).workerGoneSinceMs.load(std::memory_order_relaxed);
    const HttpResponseDevice& device = request.editInternalResponseDevice();
    if (goneSinceMs < 0 || device.getResponseState() != HttpResponseDevice::ResponseState::NotReady) {
        return;
    }
    const bool hasBegun = device.isEndSending() || device.getSentBytes() != 0;
    if (qlSystemUtils::GetTimeBaseMs() - goneSinceMs >= (hasBegun ? BegunAnswerGraceMs : AnswerGraceMs)) {
        nameMisuse(request, Misuse::MissingRelease);
    }
}

} // namespace ql::impl
