// SPDX-License-Identifier: MIT
#pragma once

#include "request/RecordNotes.h"
#include "vireo/ExchangeRecord.h"
#include "vireo/support/IpAddress.h"

#include <array>
#include <chrono>
#include <cstdint>
#include <string>

namespace ql::impl {

/// What ql::http::ExchangeRecord tells, which says what each is. Filled while the exchange goes on, then given to
/// tellObservers(). As it stands: an exchange of which nothing is known.
struct ExchangeRecordData {
    std::string method;
    std::string target;
    std::string version;
    std::string referer;
    std::string userAgent;
    int status = 0;

    std::uint64_t receivedHeadBytes = 0;
    std::uint64_t receivedBodyBytes = 0;
    std::uint64_t sentHeadBytes = 0;
    std::uint64_t sentBodyBytes = 0;

    /// By Phase.
    std::array<std::int64_t, http::ExchangeRecord::PhaseCount> durationsMs{-1, -1, -1, -1};
    std::chrono::system_clock::time_point startTime;

    IpAddress clientAddress;
    bool isUnixClient = false;
    std::uint16_t clientPort = 0;
    IpAddress localAddress;
    std::uint16_t localPort = 0;
    std::string connectionId;
    std::uint32_t ordinal = 0;

    RecordNotes notes;

    http::ExchangeRecord::Ending ending = http::ExchangeRecord::Ending::Completed;
    std::string reason;
};

} // namespace ql::impl
