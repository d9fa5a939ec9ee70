#include "streams/ContentReader.h"

#include "streams/IdlePollThrottle.h"
#include "vireo/HttpBaseRequest.h"
#include "vireo/support/qlSystemUtils.h"

namespace ql {

ssize_t readContent(void* closure, std::uint64_t /*position*/, char* buffer, std::size_t max) noexcept {
    IdlePollThrottle& throttle = IdlePollThrottle::ofThisThread();
    HttpBaseRequest* const request = static_cast<HttpBaseRequest*>(closure);
    if (request == nullptr || request->editInternalResponseDevice().hasDeviceError()) {
        throttle.clear();
        return MHD_CONTENT_READER_END_WITH_ERROR;
    }
    bool endOfStream = false;
    bool noMoreData = false;
    const std::uint64_t copied =
        request->editInternalResponseDevice().sendChunksThreadSafe(buffer, max, endOfStream, noMoreData);
    if (copied != 0) {
        throttle.clear();
        request->resetWriteIdleCounter();
        return static_cast<ssize_t>(copied);
    }
    if (endOfStream) {
        throttle.clear();
        return MHD_CONTENT_READER_END_OF_STREAM;
    }
    if (!noMoreData) {
        throttle.run(*request, qlSystemUtils::GetTimeBaseMs());
    }
    return 0;
}

} // namespace ql
