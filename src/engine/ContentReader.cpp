#include "engine/ContentReader.h"

#include "frame/ExceptionLog.h"
#include "frame/Utf8.h"
#include "request/RequestAccess.h"
#include "request/RequestState.h"
#include "streams/BodyPiece.h"
#include "streams/PollingWait.h"
#include "vireo/HttpBaseRequest.h"
#include "vireo/support/SystemError.h"
#include "vireo/support/qlLog.h"

namespace ql::impl {

namespace {

constexpr const char* LogTag = "httpserver";

/// What breaks an answer off that its client has been promised whole.
/// @param error the system's; 0 when the file has become shorter.
void logBrokenFile(const HttpBaseRequest& request, std::uint64_t position, int error) noexcept {
    try {
        qlLogObject line(qlLogType::Failure, LogTag);
        line << "The file that answers '" << withoutControls(request.getOriginalRequestUrl()) << "' ";
        if (error == 0) {
            line << "has become shorter";
        } else {
            line << "cannot be read : " << SystemError(error).toString();
        }
        line << " : the answer breaks off after " << position << " bytes";
    } catch (...) {
        logCurrentException("The line about a broken file", LogTag);
    }
}

/// @param request null for none.
ResponseWait& waitOf(HttpBaseRequest* request) {
    ResponseWait* const own = request == nullptr ? nullptr : RequestAccess::state(*request).wait.get();
    return own == nullptr ? PollingWait::ofThisThread() : *own;
}

} // namespace

ssize_t readContent(void* closure, std::uint64_t /*position*/, char* buffer, std::size_t max) noexcept {
    auto* const request = static_cast<HttpBaseRequest*>(closure);
    ResponseWait& wait = waitOf(request);
    const BodyPiece piece = takeBodyPiece(request, buffer, max, wait);
    if (piece.kind == BodyPiece::Kind::Bytes || piece.kind == BodyPiece::Kind::Wait) {
        return static_cast<ssize_t>(piece.size);
    }
    wait.ending();
    return piece.kind == BodyPiece::Kind::End ? MHD_CONTENT_READER_END_OF_STREAM : MHD_CONTENT_READER_END_WITH_ERROR;
}

ssize_t readFileContent(void* closure, std::uint64_t position, char* buffer, std::size_t max) noexcept {
    const auto& content = *static_cast<const FileContent*>(closure);
    ResponseWait& wait = waitOf(&content.request);
    wait.progress();
    int error = 0;
    const std::size_t copied = content.body.read(position, buffer, max, error);
    if (copied == 0) {
        logBrokenFile(content.request, position, error);
        wait.ending();
        return MHD_CONTENT_READER_END_WITH_ERROR;
    }
    content.request.resetWriteIdleCounter();
    wait.gave(copied);
    return static_cast<ssize_t>(copied);
}

void freeFileContent(void* closure) noexcept {
    delete static_cast<FileContent*>(closure);
}

} // namespace ql::impl
