// SPDX-License-Identifier: MIT
#pragma once

#include "request/RecordNotes.h"
#include "session/SessionSettings.h"
#include "vireo/WebSocketAnswer.h"
#include "vireo/WebSocketSession.h"

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace ql::impl {

/// What ql::http::WebSocketAnswer holds.
struct AnswerData {
    enum class Kind { Accept, Refuse, Pass };

    static AnswerData& of(http::WebSocketAnswer& answer) { return *answer.data_; }

    Kind kind = Kind::Pass;
    /// Of Accept.
    ///@{
    std::unique_ptr<http::WebSocketSession> session;
    std::string subprotocol;
    /// Null for the server's.
    std::shared_ptr<const SessionSettings> settings;
    ///@}
    /// Of Refuse.
    ///@{
    std::uint32_t status = 0;
    std::string body;
    ///@}
    RecordNotes notes;
    /// Names and values, in the order in which they were added.
    std::vector<std::pair<std::string, std::string>> headers;
};

} // namespace ql::impl
