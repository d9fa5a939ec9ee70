#include "streams/BodyPiece.h"

#include "streams/ResponseWait.h"
#include "vireo/HttpBaseRequest.h"
#include "vireo/support/qlSystemUtils.h"

namespace ql::impl {

namespace {

BodyPiece takeFrom(HttpResponseDevice& device, char* buffer, std::size_t max) {
    if (device.hasDeviceError()) {
        return {BodyPiece::Kind::Error};
    }
    bool endOfStream = false;
    bool noMoreData = false;
    const std::uint64_t copied = device.sendChunksThreadSafe(buffer, max, endOfStream, noMoreData);
    if (copied != 0) {
        return {BodyPiece::Kind::Bytes, copied};
    }
    return {endOfStream ? BodyPiece::Kind::End : BodyPiece::Kind::Wait};
}

} // namespace

BodyPiece takeBodyPiece(HttpBaseRequest* request, char* buffer, std::size_t max, ResponseWait& wait) {
    if (request == nullptr) {
        wait.progress();
        return {BodyPiece::Kind::Error};
    }
    const BodyPiece piece = takeFrom(request->editInternalResponseDevice(), buffer, max);
    if (piece.kind == BodyPiece::Kind::Wait) {
        wait.wait(*request, qlSystemUtils::GetTimeBaseMs());
        return piece;
    }
    wait.progress();
    if (piece.kind == BodyPiece::Kind::Bytes) {
        request->resetWriteIdleCounter();
        wait.gave(piece.size);
    }
    return piece;
}

} // namespace ql::impl
