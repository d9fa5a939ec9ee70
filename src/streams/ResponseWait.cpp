#include "streams/ResponseWait.h"

#include "request/RequestAccess.h"
#include "request/RequestState.h"

namespace ql::impl {

void tellNews(HttpBaseRequest& request) noexcept {
    if (ResponseWait* const wait = RequestAccess::state(request).wait.get()) {
        wait->news();
    }
}

} // namespace ql::impl
