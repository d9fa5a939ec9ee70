#include "engine/ConnectionTracking.h"

#include "engine/DurationText.h"
#include "frame/ExceptionLog.h"
#include "vireo/support/qlLog.h"
#include "vireo/support/qlRandomUtils.h"
#include "vireo/support/qlSystemUtils.h"

#include <array>
#include <cstddef>
#include <memory>

namespace ql::impl {

namespace {

constexpr const char* LogTag = "tcp";

// A connection that ends sooner, after fewer requests, hints at a proxy that opens one for each request.
constexpr std::uint32_t ReusedRequestCount = 2;
constexpr std::int64_t LongLivedMs = 5000;

} // namespace

std::string makeConnectionId() {
    constexpr std::size_t TimeBytes = 6;
    std::array<unsigned char, 16> id{};
    auto epochMs = static_cast<std::uint64_t>(qlSystemUtils::GetMSecElapsedSinceEpoch());
    for (std::size_t i = TimeBytes; i > 0; --i) {
        id[i - 1] = static_cast<unsigned char>(epochMs & 0xFFU);
        epochMs >>= 8U;
    }
    qlRandomUtils::Rand(reinterpret_cast<char*>(id.data() + TimeBytes), id.size() - TimeBytes);
    id[6] = static_cast<unsigned char>((id[6] & 0x0FU) | 0x70U); // version 7
    id[8] = static_cast<unsigned char>((id[8] & 0x3FU) | 0x80U); // the variant of RFC 9562

    std::string text;
    text.reserve(2 * id.size());
    for (const unsigned char byte : id) {
        text += "0123456789abcdef"[byte >> 4U];
        text += "0123456789abcdef"[byte & 0x0FU];
    }
    return text;
}

bool isTrackingLogged() {
    const qlLog* const log = qlLog::msInstance;
    return log != nullptr && log->isVerbose();
}

void logStarted(const ConnectionRecord& record) {
    qlLogObject(qlLogType::Connection, LogTag) << "TCP connection started " << record.connectionId;
}

void logCut(const ConnectionRecord& record, const char* reason) {
    qlLogObject(qlLogType::Connection, LogTag) << "TCP connection cut " << record.connectionId << " : " << reason;
}

void logClosed(const ConnectionRecord& record) {
    const std::int64_t duration = qlSystemUtils::GetTimeBaseMs() - record.startTime;
    if (record.requestCount < ReusedRequestCount && duration < LongLivedMs) {
        qlLogObject(qlLogType::Server, LogTag)
            << "TCP connection was not reused ! " << record.connectionId << " reverse proxy might be missconfigured !";
    }
    qlLogObject(qlLogType::Connection, LogTag)
        << "TCP connection closed " << record.connectionId << " after " << record.requestCount << " uses in "
        << durationText(static_cast<std::uint64_t>(duration));
}

ConnectionRecord::ConnectionRecord() : connectionId(makeConnectionId()), startTime(qlSystemUtils::GetTimeBaseMs()) {}

void trackConnection(void*& slot, bool started, bool isLogged) noexcept {
    try {
        if (started) {
            auto record = std::make_unique<ConnectionRecord>();
            if (isLogged) {
                logStarted(*record);
            }
            slot = record.release();
            return;
        }
        const std::unique_ptr<ConnectionRecord> record(static_cast<ConnectionRecord*>(slot));
        slot = nullptr;
        if (record && isLogged) {
            logClosed(*record);
        }
    } catch (...) {
        // Without memory or randomness the connection is served all the same, only untracked.
        logCurrentException("connection tracking", "httpserver");
    }
}

} // namespace ql::impl
