#include "app/sockets/OpeningRequest.h"

#include "app/kernel/Throw.h"
#include "vireo/support/qlSystemUtils.h"

#include <utility>

namespace vireo::impl {

OpeningRequest::OpeningRequest(const ql::HttpBaseRequest& core, std::shared_ptr<const ProxyRules> proxies)
    : core_(&core),
      head_(OwnedHead::Of(core)),
      data_(*this, qlSystemUtils::GetTimeBaseMs(), head_.method, head_.target, head_.lines, core.getClientAddress(),
            core.getTlsPeer(), std::move(proxies)) {}

OpeningRequest::~OpeningRequest() = default;

void OpeningRequest::leaveCore() {
    core_ = nullptr;
    data_.head.dropTls();
}

RequestBody& OpeningRequest::body() {
    throwLogicError("the opening of a WebSocket has no body");
}

const ql::HttpBaseRequest& OpeningRequest::core() const {
    if (!core_) {
        throwLogicError("Request::core() of a WebSocket lives until the handler of its route returns");
    }
    return *core_;
}

} // namespace vireo::impl
