// SPDX-License-Identifier: MIT
#pragma once

#include "app/request/HeadView.h"
#include "vireo/app/Request.h"
#include "vireo/support/ThreadAnnotations.h"
#include "vireo/support/qlMutex.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

namespace vireo::impl {

class RequestBody;

/// What a request has beside its head, and where it comes from. Any thread but for the body.
class RequestSource {
public:
    virtual ~RequestSource() = default;
    /// @throws std::logic_error for an opening, and after later().
    virtual RequestBody& body() = 0;
    virtual bool isGone() const = 0;
    virtual const ql::HttpBaseRequest& core() const = 0;
};

/// The values that an application attaches to a request. Any thread; none is made or destroyed under the lock.
class RequestValues {
public:
    void* find(const void* key, std::shared_ptr<void> (*make)()) QL_EXCLUDES(mutex_);

private:
    void* look(const void* key) const QL_REQUIRES(mutex_);

    qlMutex mutex_;
    std::vector<std::pair<const void*, std::shared_ptr<void>>> values_ QL_GUARDED_BY(mutex_);
};

struct RequestData;

struct RequestAccess {
    static RequestData& data(Request& request) { return request.data_; }
    static const RequestData& data(const Request& request) { return request.data_; }
    static Request make(RequestData& data) { return Request(data); }
};

/// What a Request stands for.
struct RequestData {
    /// @param arguments make the head.
    template <class... HeadArguments>
    RequestData(RequestSource& requestSource, std::int64_t arrivedMs, HeadArguments&&... arguments)
        : head(std::forward<HeadArguments>(arguments)...),
          source(requestSource),
          startMs(arrivedMs),
          request(RequestAccess::make(*this)) {}

    HeadView head;
    RequestValues values;
    RequestSource& source;
    /// When the head had arrived, by qlSystemUtils::GetTimeBaseMs().
    const std::int64_t startMs;
    /// By Response::later(): from then on what the answer was made of does not change any more.
    std::atomic<bool> isDeferred{false};
    /// What handlers see of this.
    Request request;
};

} // namespace vireo::impl
