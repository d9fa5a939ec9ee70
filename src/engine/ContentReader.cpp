#include "engine/ContentReader.h"

#include "request/RequestAccess.h"
#include "request/RequestState.h"
#include "streams/BodyPiece.h"
#include "streams/PollingWait.h"

namespace ql::impl {

ssize_t readContent(void* closure, std::uint64_t /*position*/, char* buffer, std::size_t max) noexcept {
    auto* const request = static_cast<HttpBaseRequest*>(closure);
    ResponseWait* const own = request == nullptr ? nullptr : RequestAccess::state(*request).wait.get();
    ResponseWait& wait = own == nullptr ? PollingWait::ofThisThread() : *own;
    const BodyPiece piece = takeBodyPiece(request, buffer, max, wait);
    if (piece.kind == BodyPiece::Kind::Bytes || piece.kind == BodyPiece::Kind::Wait) {
        return static_cast<ssize_t>(piece.size);
    }
    wait.ending();
    return piece.kind == BodyPiece::Kind::End ? MHD_CONTENT_READER_END_OF_STREAM : MHD_CONTENT_READER_END_WITH_ERROR;
}

} // namespace ql::impl
