#include "session/SessionBench.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <thread>
#include <utility>

namespace sessiontest {

namespace {

std::string textOf(std::span<const unsigned char> bytes) {
    return {bytes.begin(), bytes.end()};
}

} // namespace

void Record::add(std::string event) {
    // With the lock held: who waits for the event may then destroy the record.
    const std::lock_guard lock(mutex_);
    events_.push_back(std::move(event));
    changed_.notify_all();
}

std::vector<std::string> Record::events() const {
    const std::lock_guard lock(mutex_);
    return events_;
}

std::vector<std::string> Record::waitFor(std::size_t count) {
    std::unique_lock lock(mutex_);
    EXPECT_TRUE(changed_.wait_for(lock, wstest::Patience, [&] { return events_.size() >= count; }))
        << events_.size() << " events of " << count;
    return events_;
}

std::vector<std::string> Record::waitForEnd() {
    std::unique_lock lock(mutex_);
    EXPECT_TRUE(changed_.wait_for(lock, wstest::Patience, [&] { return !events_.empty() && events_.back() == "gone"; }))
        << "the session stays";
    return events_;
}

/// Sees to it that no two threads are in one session.
class RecordingSession::Call {
public:
    explicit Call(RecordingSession& session) : session_(session) {
        EXPECT_FALSE(session_.isInCall_.exchange(true)) << "two threads call one session";
    }
    ~Call() { session_.isInCall_ = false; }
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;

private:
    RecordingSession& session_;
};

RecordingSession::~RecordingSession() {
    record_.add("gone");
}

void RecordingSession::onOpen() {
    const Call call(*this);
    record_.add("open");
    if (atOpen) {
        atOpen(*this);
    }
}

void RecordingSession::onText(std::string_view text) {
    const Call call(*this);
    record_.add("text:" + std::string(text));
    if (atText) {
        atText(*this, text);
    }
}

void RecordingSession::onBinary(std::span<const unsigned char> bytes) {
    const Call call(*this);
    record_.add("binary:" + textOf(bytes));
    if (atBinary) {
        atBinary(*this, bytes);
    }
}

void RecordingSession::onPiece(std::span<const unsigned char> piece, bool isText, bool isLast) {
    const Call call(*this);
    record_.add((isLast ? "last " : "piece ") + std::string(isText ? "text:" : "binary:") + textOf(piece));
}

void RecordingSession::onPong(std::span<const unsigned char> payload) {
    const Call call(*this);
    record_.add("pong:" + textOf(payload));
}

void RecordingSession::onDrained() {
    const Call call(*this);
    record_.add("drained");
    if (atDrained) {
        atDrained(*this);
    }
}

void RecordingSession::onClose(std::uint16_t code, std::string_view reason, bool isClean) {
    const Call call(*this);
    record_.add("close:" + std::to_string(code) + ":" + std::string(reason) + (isClean ? ":clean" : ":lost"));
    if (atClose) {
        atClose(*this);
    }
}

std::ostream& operator<<(std::ostream& out, const Frame& frame) {
    return out << std::hex << "0x" << unsigned{frame.firstByte} << std::dec << " \"" << frame.payload.substr(0, 100)
               << "\"";
}

std::string closePayload(std::uint16_t code, const std::string& reason) {
    return std::string{static_cast<char>(code >> 8), static_cast<char>(code & 0xFF)} + reason;
}

ql::impl::SessionSettings patientSettings() {
    ql::impl::SessionSettings settings;
    settings.closeTimeoutMs = static_cast<std::uint32_t>(std::chrono::milliseconds(std::chrono::hours(1)).count());
    return settings;
}

std::shared_ptr<ql::impl::SessionCore> Peer::begin(const ql::impl::SessionSettings& settings,
                                                   std::optional<ql::impl::DeflateAgreement> deflate,
                                                   const Bytes& extraBytes) {
    handle = session_->getHandle();
    ql::impl::SessionCore::Of(*session_).prepare(std::make_shared<ql::impl::SessionSettings>(settings), deflate);
    return ql::impl::SessionCore::Begin({std::move(session_), upgrade.sockets.server, &upgrade, between, extraBytes});
}

bool Peer::send(unsigned char firstByte, const std::string& payload) {
    return sendRaw(wstest::clientFrame(firstByte, wstest::toBytes(payload)));
}

Frame Peer::receive() {
    const Bytes frame = wstest::receiveFrame(upgrade.sockets.client);
    const auto sizes = wstest::frameSizes(frame);
    if (!sizes) {
        ADD_FAILURE() << "the connection ended";
        return {};
    }
    return {frame[0], std::string(frame.begin() + static_cast<std::ptrdiff_t>(sizes->header), frame.end())};
}

void Peer::finishClose(std::uint16_t code) {
    EXPECT_EQ(receive(), (Frame{CloseFrame, closePayload(code)}));
    send(CloseFrame, closePayload(code));
    EXPECT_TRUE(isAtEnd());
}

void SessionBench::start(Peer& peer, const ql::impl::SessionSettings& settings,
                         std::optional<ql::impl::DeflateAgreement> deflate, const Bytes& extraBytes) {
    const std::shared_ptr<ql::impl::SessionCore> core = peer.begin(settings, std::move(deflate), extraBytes);
    ASSERT_TRUE(roster.add(core));
    ASSERT_TRUE(pool.add(core));
}

void SessionBench::open(Peer& peer, const ql::impl::SessionSettings& settings) {
    start(peer, settings);
    peer.record.waitFor(1);
}

void SessionBench::end() {
    roster.cut(pool);
    while (!roster.isEmpty()) {
        std::this_thread::yield();
    }
    pool.stop();
}

} // namespace sessiontest
