// SPDX-License-Identifier: MIT
#pragma once

#include "engine/EngineConnection.h"
#include "request/RecordNotes.h"
#include "server/CutReason.h"
#include "server/ExchangeObservers.h"
#include "vireo/ExchangeRecord.h"

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace ql::impl {

class ClientConnection;

/// What is noted of an exchange for the server's observers, from its request line until its end. The daemon thread's
/// alone.
class ExchangeRecording {
public:
    using Ending = http::ExchangeRecord::Ending;
    using Phase = http::ExchangeRecord::Phase;

    /// The request line has come.
    ExchangeRecording(const ClientConnection& client, const std::string& target);

    /// The head is complete.
    void noteHead(EngineConnection connection, const char* method, const char* version);

    /// The exchange has come so far; what it has passed already is ignored.
    void reach(Phase phase, std::int64_t nowMs) noexcept;

    /// The engine has taken an answer; the last phase begins.
    /// @param bodyBytes 0 for a stream.
    void noteAnswer(std::uint32_t status, std::uint64_t headerBytes, std::uint64_t bodyBytes) noexcept;

    /// So much of the bodies has gone through the library.
    /// @param sent of a stream; else 0.
    void noteBodies(std::uint64_t received, std::uint64_t sent) noexcept;

    /// What the application adds.
    void note(RecordNotes&& notes) noexcept;

    /// The library has cut the exchange: its reason.
    void noteCut(CutReason reason) noexcept;

    /// The exchange ends so, whatever the engine will say of it. The first ending stays.
    void noteEnding(Ending ending, std::string_view reason) noexcept;

    /// The exchange has ended: tells the observers. Under no lock, and nothing comes after it.
    /// @param ending as the engine sees it.
    /// @param engineStatus of the answer that the engine holds; 0 for none.
    void finish(const ExchangeObservers& observers, Ending ending, std::uint32_t engineStatus) noexcept;

private:
    void endPhase(std::int64_t nowMs) noexcept;

    std::shared_ptr<ExchangeRecordData> data_;
    Phase phase_ = Phase::Head;
    std::int64_t phaseStartMs_ = 0;
    bool hasEnding_ = false;
};

/// Tells observers of a connection that was refused with 503, before it has brought a request.
void tellOfRefusedConnection(const ExchangeObservers& observers, const IpAddress& client,
                             const ConnectionEnds& ends) noexcept;

} // namespace ql::impl
