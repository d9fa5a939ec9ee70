// SPDX-License-Identifier: MIT
#pragma once

#include "app/kernel/Answer.h"
#include "app/request/HeadView.h"
#include "app/sockets/SocketHandlers.h"
#include "vireo/WebSocketAnswer.h"
#include "vireo/WebSocketOpening.h"
#include "vireo/WebSocketOptions.h"
#include "vireo/app/SocketOpening.h"

#include <optional>
#include <string>

namespace vireo::impl {

/// What a SocketOpening stands for.
struct OpeningState {
    OpeningState(const ql::http::WebSocketOpening& itsOpening, const HeadView& itsHead, Answer& itsAnswer)
        : opening(itsOpening), head(itsHead), answer(itsAnswer), events(handlers) {}

    const ql::http::WebSocketOpening& opening;
    const HeadView& head;
    /// What a refusal is made of; its headers go with an acceptance, too.
    Answer& answer;
    bool isAccepted = false;
    SocketHandlers handlers;
    SocketEvents events;
    std::string subprotocol;
    std::optional<ql::http::WebSocketOptions> options;
    /// Never sent: it knows which headers may be said.
    ql::http::WebSocketAnswer checker = ql::http::WebSocketAnswer::Refuse(ql::http::WebSocketAnswer::MaxRefusal);
};

} // namespace vireo::impl
