// SPDX-License-Identifier: MIT
#pragma once

#include "request/RecordNotes.h"
#include "streams/WholeBody.h"
#include "vireo/HttpBaseRequest.h"
#include "vireo/support/qlMutex.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace ql::http {
class TlsPeer;
}

namespace ql::impl {

class FormDecoding;
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
    /// Shared with the application's decoder; null without one. The daemon thread's.
    std::shared_ptr<FormDecoding> form;
    /// Guarded by the response device's lock.
    RecordNotes recordNotes;
    /// Constant once handed over, but for what a head that is parsed on demand adds under makingMutex.
    ///@{
    std::string methodToken;
    HttpBaseRequest::ParseErrorKind parseErrorKind = HttpBaseRequest::ParseErrorKind::None;
    std::string parseErrorField;
    /// The texts of the lines, one behind the other.
    std::string lineBytes;
    /// Empty where the head is filed in maps.
    std::vector<HeaderLine> lines;
    ///@}
    /// What is parsed of the lines and the target is still to be made, under makingMutex, by who asks for it first.
    std::atomic<bool> isHeadUnparsed{false};
    /// The feed device, once it is made, under makingMutex, by who asks for it first.
    std::atomic<HttpReceiveDevice*> feed{nullptr};
    qlMutex makingMutex;
    /// Of a feed device; 0 for none. Constant once handed over.
    std::uint64_t uploadWindowBytes = 0;
    /// No body comes, and nobody had the feed device before that was known: it has ended from the start, and the daemon
    /// thread leaves it alone. Constant once handed over.
    bool hasNoBody = false;
    /// What the head says of the body's length; none where only its end tells it, and without an exchange. Constant
    /// once handed over.
    std::optional<std::uint64_t> announcedBodyBytes;
    /// Null without TLS. Constant once handed over.
    std::shared_ptr<const http::TlsPeer> tlsPeer;
    /// What the response device was given as its body all at once. A file is the daemon thread's from the answer on, a
    /// buffer stays until the exchange has ended. Under that device's lock.
    std::optional<WholeBody> wholeBody;
};

} // namespace ql::impl
