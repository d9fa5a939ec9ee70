// SPDX-License-Identifier: MIT
#pragma once

#include "session/FrameDecoder.h"
#include "session/pool/PoolTask.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace ql::impl {

/// The incoming half of a session: receives, has it decoded, and keeps what the sink does not take yet. Of the thread
/// that serves the session.
class SessionReceiver {
public:
    enum class Result {
        Drained, ///< everything that was there is received; news will tell of more
        Stopped, ///< the turn has had its share, or the sink has had enough: there may be more without news
        Closed,  ///< the close frame has come
        Failed,  ///< the peer broke a rule: see the decoder
        Lost,    ///< the connection has ended
    };

    explicit SessionReceiver(const FrameDecoderSettings& settings) : decoder_(settings) {}

    /// What came before anything could be received here. @throws std::bad_alloc
    void keep(std::span<const unsigned char> bytes) { rest_.assign(bytes.begin(), bytes.end()); }

    /// To be told of every turn's news, also where nothing is received.
    void note(const Turn& turn) { mayHaveInput_ = mayHaveInput_ || turn.hasInput(); }
    /// @throws std::bad_alloc, and what the sink throws; it is not to be called again then.
    Result receive(const Turn& turn, std::uint64_t socket, FrameSink& sink);
    /// Whether there may be more of which no news will tell.
    bool mayHaveMore() const { return mayHaveInput_ || hasStopped_ || !rest_.empty(); }

    /// Whether more is at hand behind what the sink is being given.
    bool hasMore() const { return !input_.empty(); }
    /// Whether anything came since this was asked last.
    bool takeSign();

    const FrameDecoder& decoder() const { return decoder_; }

private:
    // Each returns nothing when the decoder has taken all and wants more.
    ///@{
    std::optional<Result> decodeRest(FrameSink& sink);
    std::optional<Result> decodeFresh(std::span<unsigned char> bytes, FrameSink& sink);
    std::optional<Result> take(FrameDecoder::Result result);
    ///@}

    FrameDecoder decoder_;
    /// What the decoder is being fed with.
    std::span<unsigned char> input_;
    /// What it has not taken, from `restAt_` on. No memory where it has taken all.
    std::vector<unsigned char> rest_;
    std::size_t restAt_ = 0;
    bool hasStopped_ = false;
    /// Whether the socket may have something.
    bool mayHaveInput_ = true;
    bool hasReceived_ = false;
};

} // namespace ql::impl
