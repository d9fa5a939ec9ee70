#pragma once

#include "session/SessionCore.h"
#include "session/SessionRoster.h"
#include "session/pool/TaskPool.h"
#include "vireo/WebSocketSession.h"
#include "websocket/Fakes.h"

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

/// Sessions on real sockets and a real pool, without a server.
namespace sessiontest {

using wstest::Bytes;

/// What a session was told, in order: "open", "text:…", "binary:…", "piece:…", "last:…", "pong:…", "drained",
/// "close:CODE:REASON:clean" or "…:lost", and "gone" when it is destroyed.
class Record {
public:
    void add(std::string event);
    std::vector<std::string> events() const;
    /// Waits until there are as many. @return those that are there then.
    std::vector<std::string> waitFor(std::size_t count);
    /// Waits until the session is destroyed.
    std::vector<std::string> waitForEnd();

private:
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::string> events_;
};

class RecordingSession : public ql::http::WebSocketSession {
public:
    explicit RecordingSession(Record& record) : record_(record) {}
    ~RecordingSession() override;

    void onOpen() override;
    void onText(std::string_view text) override;
    void onBinary(std::span<const unsigned char> bytes) override;
    void onPiece(std::span<const unsigned char> piece, bool isText, bool isLast) override;
    void onPong(std::span<const unsigned char> payload) override;
    void onDrained() override;
    void onClose(std::uint16_t code, std::string_view reason, bool isClean) override;

    /// Called behind the record of an event, where they are set.
    std::function<void(RecordingSession&)> atOpen;
    std::function<void(RecordingSession&, std::string_view)> atText;
    std::function<void(RecordingSession&, std::span<const unsigned char>)> atBinary;
    std::function<void(RecordingSession&)> atDrained;
    std::function<void(RecordingSession&)> atClose;

private:
    class Call;

    Record& record_;
    std::atomic<bool> isInCall_{false};
};

struct Frame {
    unsigned char firstByte = 0;
    std::string payload;
    friend bool operator==(const Frame&, const Frame&) = default;
};
std::ostream& operator<<(std::ostream& out, const Frame& frame);

constexpr unsigned char TextFrame = 0x81;
constexpr unsigned char BinaryFrame = 0x82;
constexpr unsigned char CloseFrame = 0x88;
constexpr unsigned char PingFrame = 0x89;
constexpr unsigned char PongFrame = 0x8A;

/// The payload of a close frame.
std::string closePayload(std::uint16_t code, const std::string& reason = {});

/// Those with which no peer is late on a busy machine, and no test passes because its time is over.
ql::impl::SessionSettings patientSettings();

/// A session with its peer, which is the test.
class Peer {
public:
    Peer() : session_(std::make_unique<RecordingSession>(record)) {}

    /// Until start().
    RecordingSession& session() { return *session_; }
    /// Gives the session its connection, but no pool.
    std::shared_ptr<ql::impl::SessionCore> begin(const ql::impl::SessionSettings& settings,
                                                 std::optional<ql::impl::DeflateAgreement> deflate = {},
                                                 const Bytes& extraBytes = {});

    bool send(unsigned char firstByte, const std::string& payload);
    bool sendRaw(const Bytes& bytes) { return wstest::sendAll(upgrade.sockets.client, bytes); }
    Frame receive();
    /// Waits for the end of the connection. @return whether nothing came before it.
    bool isAtEnd() { return wstest::atEnd(upgrade.sockets.client); }
    /// Answers the server's close frame, which must be next, and waits for the end.
    void finishClose(std::uint16_t code);

    Record record;
    wstest::UpgradeHandle upgrade;
    ql::http::WebSocketHandle handle;
    /// Where the engine stands between: see SessionStart.
    std::uint64_t between = ql::impl::InvalidSocket;

private:
    std::unique_ptr<RecordingSession> session_;
};

/// What the sessions of a test run on. Ends them before it goes.
class SessionBench {
public:
    explicit SessionBench(unsigned threads = 2) : pool(threads) {}
    ~SessionBench() { end(); }

    /// A session that is served from now on.
    void start(Peer& peer, const ql::impl::SessionSettings& settings = patientSettings(),
               std::optional<ql::impl::DeflateAgreement> deflate = {}, const Bytes& extraBytes = {});
    /// The same, and it has been told of its opening.
    void open(Peer& peer, const ql::impl::SessionSettings& settings = patientSettings());
    void end();

    wstest::FakeEngine engine;
    ql::impl::SessionRoster roster;
    ql::impl::TaskPool pool;
};

/// Whose session is open, on a bench of its own.
class OpenPeer : public Peer {
public:
    explicit OpenPeer(const ql::impl::SessionSettings& settings = patientSettings()) { bench_.open(*this, settings); }

private:
    SessionBench bench_{1};
};

} // namespace sessiontest
