// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/HttpBaseRequest.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

namespace ql::http {
class TlsPeer;
}

namespace ql::impl {

class ResponseWait;

/// What a request keeps beside the declared fields of its class.
struct RequestState {
    /// The misuses that were named already, one bit each.
    std::atomic<std::uint32_t> namedMisuses{0};
    /// When the worker stopped handling; negative while there is one, or was none yet. The worker id itself is the
    /// worker thread's alone.
    std::atomic<std::int64_t> workerGoneSinceMs{-1};
    /// The client has ended its sending, and the request is complete.
    std::atomic<bool> hasClientLeft{false};
    /// The worker waits until more of a released response is taken, or is about to.
    std::atomic<bool> writerWaits{false};
    /// How daemon threads wait for this request. Null: like all others, by polling. Constant once handed over.
    std::shared_ptr<ResponseWait> wait;
    /// Constant once handed over.
    ///@{
    std::string methodToken;
    HttpBaseRequest::ParseErrorKind parseErrorKind = HttpBaseRequest::ParseErrorKind::None;
    std::string parseErrorField;
    ///@}
    /// Null without TLS. Constant once handed over.
    std::shared_ptr<const http::TlsPeer> tlsPeer;
};

} // namespace ql::impl
