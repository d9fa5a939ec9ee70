// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/export.h"
#include "vireo/support/IpAddress.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace ql::impl {
struct ExchangeRecordData;
}

namespace ql::http {

/// What is told of one exchange, a request and its answer, when it has ended. ExchangeObserver receives it.
///
/// Nothing of it changes any more: any number of threads may read it, a copy costs a reference count, and both live
/// as long as somebody holds them. All texts stand as the client sent them, so escape them wherever they are written
/// to: AccessLog does.
class VIREO_API ExchangeRecord {
public:
    /// How an exchange ended.
    enum class Ending : std::uint8_t {
        Completed,     ///< the answer was sent whole
        Upgraded,      ///< the connection is a WebSocket now
        Refused,       ///< turned down without asking the application: a bad head, a limit, a server that stops
        ClientLeft,    ///< the client closed or reset the connection
        ReadError,     ///< receiving failed
        WriteError,    ///< sending failed
        IdleTimeout,   ///< nothing went either way for as long as a connection may be idle
        HeadTimeout,   ///< the head was not complete in time
        BodyTimeout,   ///< the body did not get on fast enough
        AnswerTimeout, ///< the application did not begin its answer in time
        WriteTimeout,  ///< the client did not take the answer fast enough
        ServerStopped, ///< the server stopped first
        Failed,        ///< the library or the application could not go on: no memory, an exception, a failed device
    };
    /// How many endings there are; they count from 0.
    static constexpr std::size_t EndingCount = 13;

    /// A part of an exchange's time. They follow one upon the other in this order.
    enum class Phase : std::uint8_t {
        Head, ///< until the head had arrived: since the connection was accepted, or on one that was kept, since the
              ///< request line arrived
        Body, ///< until the body had arrived, or the answer was begun before
        Wait, ///< until the answer was begun
        Send, ///< until the exchange ended
    };
    /// How many phases there are; they count from 0.
    static constexpr std::size_t PhaseCount = 4;

    /// The word for it in logs and labels: "completed", "client_left", ...; "head", "body", ...
    ///@{
    static const char* toText(Ending ending);
    static const char* toText(Phase phase);
    ///@}

    /// For the library.
    /// @param data not null.
    explicit ExchangeRecord(std::shared_ptr<const impl::ExchangeRecordData> data);
    /// Copies. There is no move: a record is never without its data.
    ///@{
    ExchangeRecord(const ExchangeRecord& other);
    ExchangeRecord& operator=(const ExchangeRecord& other);
    ///@}
    ~ExchangeRecord();

    /// The method's token. Like the target and the version it is empty when the head was too bad to tell.
    const std::string& getMethod() const;
    /// The request target with its query, not decoded.
    const std::string& getTarget() const;
    /// The protocol version, "HTTP/1.1".
    const std::string& getVersion() const;
    /// The header fields of these names; empty also when there was none.
    ///@{
    const std::string& getReferer() const;
    const std::string& getUserAgent() const;
    ///@}

    /// The answer's status code; 0 when there was no answer, or when the engine gave one that it doesn't tell of.
    int getStatus() const;

    /// Bytes that went over the connection. A head's are an estimate: neither is seen as it travels.
    ///@{
    std::uint64_t getReceivedHeadBytes() const;
    std::uint64_t getReceivedBodyBytes() const;
    std::uint64_t getSentHeadBytes() const;
    std::uint64_t getSentBodyBytes() const;
    ///@}

    /// How long a phase took, in milliseconds; -1 when it was never reached.
    std::int64_t getDurationMs(Phase phase) const;
    /// How long all the phases took that were reached, in milliseconds.
    std::int64_t getTotalDurationMs() const;
    /// When the first phase began, by the system's clock.
    std::chrono::system_clock::time_point getStartTime() const;

    /// The two ends of the connection; no address and port 0 when they are not known.
    ///@{
    const IpAddress& getClientAddress() const;
    std::uint16_t getClientPort() const;
    const IpAddress& getLocalAddress() const;
    std::uint16_t getLocalPort() const;
    ///@}
    /// The client's address for people and logs: "unix:" for a client of a Unix socket, which has none; empty when it
    /// is not known.
    std::string getClientText() const;
    /// Names the connection in the log as well; empty when it is not known.
    const std::string& getConnectionId() const;
    /// 1 for the first exchange on its connection, 2 for the next, ...; 0 when it is not known.
    std::uint32_t getOrdinal() const;

    /// What the application has said of it: who asked through a proxy, and the id of the request (
    /// HttpBaseRequest::setRecordClient(), WebSocketAnswer::setRecordClient(), ...). Empty when it has said nothing.
    ///@{
    const IpAddress& getForwardedClient() const;
    const std::string& getRequestId() const;
    ///@}

    /// How the exchange ended.
    Ending getEnding() const;
    /// More words on the ending, for people; empty when there are none.
    const std::string& getReason() const;

private:
    std::shared_ptr<const impl::ExchangeRecordData> data_;
};

} // namespace ql::http
