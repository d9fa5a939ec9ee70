// Any bytes behind the handshake of a session, in any pieces: through the engine, the strict decoder, a pool and back
// by each way to send, with compression and without; beside a second reading of both sides.

#include "Check.h"
#include "Mutators.h"
#include "RoadServer.h"
#include "integration/SessionServer.h"
#include "reliability/Choices.h"
#include "session/NaiveDecoder.h"
#include "support/FakeRequest.h"
#include "support/WaitUntil.h"
#include "vireo/WebSocketAcceptor.h"
#include "vireo/WebSocketGroup.h"
#include "vireo/WebSocketMessage.h"
#include "vireo/WebSocketOptions.h"
#include "vireo/WebSocketSession.h"
#include "vireo/WebSocketWriter.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <memory>
#include <numeric>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

using namespace vireofuzz;
using namespace vireotest;
using ql::http::WebSocketAnswer;
using sessiontest::Event;

/// How a session answers each message.
enum class Answering : unsigned int { Whole, Shared, InPieces, ByClosing };

constexpr std::uint16_t GoodbyeCode = 3000;

/// What one connection is to be like. Its two bytes stand in the request's target, for the acceptor.
struct Plan {
    bool isDeflating = false;
    bool clientTakesOver = true;
    bool serverTakesOver = true;
    bool inPieces = false;
    Answering answering = Answering::Whole;
    std::uint32_t maxMessageBytes = 1;

    static Plan Take(Choices& input) {
        const unsigned int bits = input.takeByte();
        Plan plan;
        plan.isDeflating = (bits & 1U) != 0;
        plan.clientTakesOver = (bits & 2U) == 0;
        plan.serverTakesOver = (bits & 4U) == 0;
        plan.inPieces = (bits & 8U) != 0;
        plan.answering = static_cast<Answering>(bits >> 4U & 3U);
        plan.maxMessageBytes = 1 + input.takeNumber(0x7FF);
        return plan;
    }

    ql::http::WebSocketOptions options() const {
        ql::http::WebSocketOptions options;
        options.setMaxMessageBytes(maxMessageBytes);
        options.setPieces(inPieces);
        if (isDeflating) {
            ql::http::WebSocketCompression compression;
            compression.setMinBytes(8);
            compression.setClientNoContextTakeover(!clientTakesOver);
            compression.setServerNoContextTakeover(!serverTakesOver);
            options.setCompression(compression);
        }
        return options;
    }
};

/// What the session of one connection was called for. The thread that serves it writes, and the fuzzer reads once the
/// session has gone.
struct Seen {
    std::vector<Event> events;
    bool isOpen = false;
    bool isClosed = false;
    unsigned int closeCode = 0;
};

std::string_view viewOf(std::span<const unsigned char> bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

std::span<const unsigned char> spanOf(std::string_view text) {
    return {reinterpret_cast<const unsigned char*>(text.data()), text.size()};
}

class AnsweringSession final : public ql::http::WebSocketSession {
public:
    AnsweringSession(Seen& seen, std::atomic<int>& alive, const Plan& plan) : seen_(seen), alive_(alive), plan_(plan) {
        ++alive_;
    }
    ~AnsweringSession() override { --alive_; }

    void onOpen() override {
        check(!seen_.isOpen && !seen_.isClosed, "a session opens twice");
        seen_.isOpen = true;
        group_.add(getHandle());
    }
    void onText(std::string_view text) override { take(Event::Kind::Text, text); }
    void onBinary(std::span<const unsigned char> bytes) override { take(Event::Kind::Binary, viewOf(bytes)); }
    void onPiece(std::span<const unsigned char> piece, bool isText, bool isLast) override {
        check(plan_.inPieces, "a piece comes that nobody has asked for");
        message_ += viewOf(piece);
        if (isLast) {
            take(isText ? Event::Kind::Text : Event::Kind::Binary, std::exchange(message_, {}));
        }
    }
    void onPong(std::span<const unsigned char> payload) override { note(Event::Kind::Pong, viewOf(payload)); }
    void onClose(std::uint16_t code, std::string_view reason, bool isClean) override {
        check(seen_.isOpen && !seen_.isClosed, "a session ends twice, or before it was opened");
        check(sessiontest::judgeUtf8(reason) == sessiontest::Utf8::Complete, "a reason is no text");
        check(!isClean || code != 1006, "a lost connection is called clean");
        seen_.isClosed = true;
        seen_.closeCode = code;
    }

private:
    void note(Event::Kind kind, std::string_view payload) {
        check(seen_.isOpen && !seen_.isClosed, "a session is called before its start or after its end");
        seen_.events.push_back({kind, std::string(payload), 0});
    }

    void take(Event::Kind kind, std::string_view payload) {
        note(kind, payload);
        const bool isText = kind == Event::Kind::Text;
        switch (plan_.answering) {
        case Answering::Whole:
            (void)(isText ? sendText(payload) : sendBinary(spanOf(payload)));
            break;
        case Answering::Shared:
            group_.send(isText ? ql::http::WebSocketMessage::Text(payload)
                               : ql::http::WebSocketMessage::Binary(spanOf(payload)));
            break;
        case Answering::InPieces: {
            ql::http::WebSocketWriter writer = isText ? beginText() : beginBinary();
            (void)writer.write(payload.substr(0, payload.size() / 2));
            (void)writer.write(payload.substr(payload.size() / 2));
            (void)writer.finish();
            break;
        }
        case Answering::ByClosing:
            close(GoodbyeCode, "enough");
            break;
        }
    }

    Seen& seen_;
    std::atomic<int>& alive_;
    const Plan plan_;
    ql::http::WebSocketGroup group_;
    std::string message_;
};

/// The server that all runs share, with one connection at a time.
class Road final : public ql::http::WebSocketAcceptor {
public:
    WebSocketAnswer decide(const ql::http::WebSocketOpening&) override {
        WebSocketAnswer answer = WebSocketAnswer::Accept(std::make_unique<AnsweringSession>(seen, alive_, plan));
        answer.setOptions(plan.options());
        return answer;
    }

    /// The connection's session is destroyed.
    bool isQuiet() const { return alive_ == 0; }

    /// Of the connection that comes next. Whoever connects sets them before, and looks when it is quiet.
    ///@{
    Plan plan;
    Seen seen;
    ///@}

private:
    std::atomic<int> alive_{0};
};

/// What must come back, the close at the end as well.
std::vector<Event> answersTo(const sessiontest::NaiveOutcome& outcome, Answering answering) {
    std::vector<Event> answers;
    for (const Event& event : outcome.events) {
        if (event.kind == Event::Kind::Pong) {
            continue;
        }
        const bool isMessage = event.kind == Event::Kind::Text || event.kind == Event::Kind::Binary;
        if (isMessage && answering == Answering::ByClosing) {
            answers.push_back({Event::Kind::Close, "enough", GoodbyeCode});
            return answers;
        }
        answers.push_back(event);
        if (event.kind == Event::Kind::Ping) {
            answers.back().kind = Event::Kind::Pong;
        }
    }
    if (outcome.failure) {
        answers.push_back({Event::Kind::Close, {}, *outcome.failure});
    }
    return answers;
}

/// What a server sends, as a client would: masked, with a key that changes nothing.
std::string maskedFrame(unsigned char first, std::string_view payload) {
    std::string frame(1, static_cast<char>(first));
    if (payload.size() < 126) {
        frame += static_cast<char>(0x80U | payload.size());
    } else {
        frame += {static_cast<char>(0xFE), static_cast<char>(payload.size() >> 8U),
                  static_cast<char>(payload.size() & 0xFFU)};
    }
    return frame.append(4, '\0').append(payload);
}

/// Receives what comes up to the given number of messages, a close among them; and, once the client sends nothing more,
/// the pongs that are left.
std::string readMasked(RawClient& client, std::ptrdiff_t messages) {
    constexpr unsigned int Close = 0x88;
    constexpr unsigned int Pong = 0x8A;
    bool isClosed = false;
    std::string masked;
    while (messages > 0) {
        const auto [first, payload] = readFrame(client);
        messages -= (first & 0x80U) != 0 && first != Pong ? 1 : 0;
        isClosed = first == Close;
        masked += maskedFrame(first, payload);
    }
    client.endSending();
    for (std::string rest = client.readToEnd(); !rest.empty();) {
        const std::size_t size = rest.size() < 2 ? 0 : static_cast<unsigned char>(rest[1]);
        check(!isClosed && static_cast<unsigned char>(rest[0]) == Pong && rest.size() >= 2 + size,
              "there is more than the answers");
        masked += maskedFrame(Pong, rest.substr(2, size));
        rest.erase(0, 2 + size);
    }
    return masked;
}

/// Reasons are the words of whoever closes.
bool isSame(const Event& left, const Event& right) {
    return left.kind == right.kind && left.code == right.code &&
           (left.kind == Event::Kind::Close || left.payload == right.payload);
}

/// A pong is ahead of messages that wait, and takes the place of one that waits. Before a close the last one is sent.
void checkAnswers(std::vector<Event> answers, std::vector<Event> expected) {
    const auto isPong = [](const Event& event) { return event.kind == Event::Kind::Pong; };
    const auto takePongs = [&](std::vector<Event>& events) {
        std::vector<Event> pongs;
        std::ranges::copy_if(events, std::back_inserter(pongs), isPong);
        std::erase_if(events, isPong);
        return pongs;
    };
    const std::vector<Event> expectedPongs = takePongs(expected);
    const std::vector<Event> pongs = takePongs(answers);
    check(std::ranges::equal(answers, expected, isSame), "another answer comes than should");
    auto left = expectedPongs.begin();
    for (const Event& pong : pongs) {
        left = std::find(left, expectedPongs.end(), pong);
        check(left != expectedPongs.end(), "a pong answers nothing");
        ++left;
    }
    const bool closes = !expected.empty() && expected.back().kind == Event::Kind::Close;
    check(!closes || expectedPongs.empty() || (!pongs.empty() && pongs.back() == expectedPongs.back()),
          "the last ping has no answer");
}

/// What the session was called for, beside what the client has sent.
void checkSeen(const Seen& seen, const sessiontest::NaiveOutcome& outcome, Answering answering) {
    check(seen.isOpen && seen.isClosed, "a session is not told of its end");
    std::vector<Event> expected = outcome.events;
    std::erase_if(expected, [](const Event& event) {
        return event.kind == Event::Kind::Ping || event.kind == Event::Kind::Close;
    });
    const auto isMessage = [](const Event& event) { return event.kind != Event::Kind::Pong; };
    const bool saysGoodbye = answering == Answering::ByClosing && std::ranges::any_of(expected, isMessage);
    if (saysGoodbye) {
        // Its own close is the last that it does; what has come behind may be told or not.
        const auto last = std::ranges::find_if(expected, isMessage) - expected.begin();
        check(seen.events.size() > static_cast<std::size_t>(last) && seen.events.size() <= expected.size() &&
                  std::equal(seen.events.begin(), seen.events.end(), expected.begin()),
              "a session that closes gets other messages than were sent");
        return;
    }
    check(seen.events == expected, "a session gets other messages than were sent");
    const bool isTold = !outcome.events.empty() && outcome.events.back().kind == Event::Kind::Close;
    check(seen.closeCode == (outcome.failure ? *outcome.failure
                             : isTold        ? outcome.events.back().code
                                             : 1006U),
          "a session ends with another code");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    // Never destroyed: the process ends without a stop, and nothing is left to leak.
    static const std::shared_ptr<Road>& road = *new std::shared_ptr<Road>(std::make_shared<Road>());
    static const std::uint16_t port = serveForGood(new FakeServerImpl, road);
    Choices input(data, size);
    road->plan = Plan::Take(input);
    road->seen = {};
    const Plan& plan = road->plan;
    std::string bytes;
    sessiontest::NaiveOutcome outcome;
    {
        RawClient client(port);
        open(client, handshakeWith("Sec-WebSocket-Extensions: permessage-deflate; client_max_window_bits\r\n"));
        for (const std::string& piece : input.takePieces()) {
            bytes += piece;
            if (!client.trySend(piece)) {
                break; // the server has closed
            }
        }
        const int windowBits = plan.isDeflating ? 15 : 0;
        outcome = sessiontest::decodeNaively(bytes, {plan.maxMessageBytes, windowBits, plan.clientTakesOver});
        const std::vector<sessiontest::Event> expected = answersTo(outcome, plan.answering);
        const std::ptrdiff_t messages = std::ranges::count_if(
            expected, [](const sessiontest::Event& event) { return event.kind != sessiontest::Event::Kind::Pong; });
        const sessiontest::NaiveOutcome answers =
            sessiontest::decodeNaively(readMasked(client, messages), {1 << 20, windowBits, plan.serverTakesOver});
        check(!answers.failure, "the server sends what is no message");
        checkAnswers(answers.events, expected);
    }
    check(waitUntil([] { return road->isQuiet(); }), "a connection stays");
    checkSeen(road->seen, outcome, plan.answering);
    return 0;
}

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t most,
                                               unsigned int seed) {
    return vireofuzz::mutateFrames(data, size, most, seed, 3);
}
