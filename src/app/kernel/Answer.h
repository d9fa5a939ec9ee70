// SPDX-License-Identifier: MIT
#pragma once

#include "app/files/OwnFile.h"
#include "app/kernel/AnswerHeaders.h"
#include "app/kernel/BodyEncoder.h"
#include "vireo/app/Response.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vireo::impl {

class AppExchange;
class LaterState;
class Service;
struct RequestData;
struct Work;

/// A part of a file as a body.
struct FilePart {
    OwnFile file;
    std::uint64_t offset = 0;
    std::uint64_t size = 0;
};

/// Parts of files up to this size are sent as a buffer: one call of the system's less, and compressible.
inline constexpr std::uint64_t MaxBufferedFileBytes = 65536;

/// Whether an answer with this status has no content, and tells of none either.
bool isWithoutContent(int status);
/// Whether an answer with this status has no body: without content, or 304.
bool isBodiless(int status);

/// What a request is answered with.
struct Answer {
    int status = 200;
    AnswerHeaders headers;
    std::string body;
    /// In place of the body.
    std::optional<FilePart> file;
    /// What takes over once the head has gone; none as a rule.
    std::function<void(std::shared_ptr<AppExchange>, Service&)> begin;
    /// The last one runs first, and goes with it.
    std::vector<Hook> hooks;
    /// Null: the body is sent as it is.
    std::unique_ptr<BodyEncoder> encoder;
    /// The body, or that there is none, was set.
    bool isSet = false;
    /// The body is written once the head has gone.
    bool isStream = false;
    /// Content-Type came with the body, and not from the handler.
    bool isTypeOfBody = false;
    /// The body is a file's, whose status and headers came with it.
    bool isOfFile = false;

    /// Makes room for another body: drops what there is, and what came with it.
    void dropBody();
    /// Of the body, unless the handler has set one.
    void setTypeOfBody(std::string_view type);
    /// @param type unless one was set.
    void setText(std::string text, std::string_view type);
    /// In place of everything but hooks.
    void setError(int errorStatus, std::string text);
    /// Drops all but hooks.
    void clear();
};

/// What a Response stands for.
struct ResponseState {
    /// Whose function has the response.
    enum class Holder : std::uint8_t {
        Handler, ///< or a middleware
        Later,
        Opening,
    };

    /// How far the chain has come.
    enum class Reached : std::uint8_t {
        Middlewares,
        Handler,
        End, ///< the handler has returned
    };

    Answer answer;
    RequestData& request;
    /// Null for an opening.
    AppExchange* exchange = nullptr;
    /// Null in Later::answer().
    const Work* work = nullptr;
    Holder holder = Holder::Handler;
    Reached reached = Reached::Middlewares;
    /// Hooks run: there is no stream, no Later any more.
    bool isClosing = false;
    bool isSent = false;
    /// What the answer is left to; held until the chain has returned, so that the last Later does not answer before an
    /// exception of the handler can.
    std::shared_ptr<LaterState> later = nullptr;
    /// Somebody has wanted to change what had gone, or was left to a Later.
    bool isChangedLate = false;
};

struct ResponseAccess {
    static Response Of(ResponseState& state) { return Response(state); }
    static ResponseState& state(Response& response) { return response.state_; }
};

/// Runs the hooks, and those that they set. What one throws passes, and the rest is left.
void runHooks(ResponseState& state);

} // namespace vireo::impl
