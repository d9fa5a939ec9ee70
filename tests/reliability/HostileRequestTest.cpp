// What the engine and the library make of requests that are not what they seem. docs/hostile-clients.md has the same
// rows and says what follows from them, for each of the two engines. A newer one that is stricter still fails these
// tests: then that page has to change.

#include "integration/ServerTest.h"
#include "support/Engine.h"

#include <ostream>
#include <string>
#include <vector>

namespace vireotest {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Values = std::list<std::string>;

/// A request, and what becomes of it.
struct Shape {
    std::string name;
    std::string bytes;
    /// Of the answer; 0 when there is none and the connection is closed.
    int status;
    /// A header that the application sees; none when it sees no such header.
    std::string header;
    Values values;
    /// The body that the application reads.
    std::string body;
    /// Of the answer when engine 1.0 refuses what 0.9 accepts, like `status`.
    int refusedStatus = 400;

    friend void PrintTo(const Shape& shape, std::ostream* out) { *out << shape.name; }
};

std::string nameOf(const testing::TestParamInfo<Shape>& info) {
    return info.param.name;
}

std::string withNul(std::string text) {
    for (char& c : text) {
        c = c == '~' ? '\0' : c;
    }
    return text;
}

class HostileRequest : public ServerTest, public testing::WithParamInterface<Shape> {};

/// The engine answers itself; nothing reaches the application.
class RefusedRequest : public HostileRequest {};

TEST_P(RefusedRequest, ReachesNoApplicationAndEndsTheConnection) {
    TestServer server((TestImpl::Handler()));
    RawClient client = server.connect();
    client.send(GetParam().bytes);
    // The engine sends the head of such an answer twice.
    const std::string answer = client.readToEnd();
    if (GetParam().status == 0) {
        EXPECT_THAT(answer, IsEmpty());
    } else {
        EXPECT_THAT(answer, testing::StartsWith("HTTP/1.1 " + std::to_string(GetParam().status) + " "));
    }
    EXPECT_EQ(server.application().seenCount(), 0U);
    EXPECT_EQ(server.connect().exchange(get("/")).status, 200);
}

const std::string Post = "POST / HTTP/1.1\r\nHost: x\r\n";
const std::string Get = "GET / HTTP/1.1\r\nHost: x\r\n";

INSTANTIATE_TEST_SUITE_P(
    Shapes, RefusedRequest,
    testing::Values(
        Shape{"ListOfLengths", Post + "Content-Length: 5, 5\r\n\r\nhello", 400, {}, {}, {}},
        Shape{"SignedLength", Post + "Content-Length: +5\r\n\r\nhello", 400, {}, {}, {}},
        Shape{"NegativeLength", Post + "Content-Length: -5\r\n\r\nhello", 400, {}, {}, {}},
        Shape{"HexadecimalLength", Post + "Content-Length: 0x5\r\n\r\nhello", 400, {}, {}, {}},
        Shape{"EmptyLength", Post + "Content-Length: \r\n\r\nhello", 400, {}, {}, {}},
        Shape{"LengthBeyond64Bits", Post + "Content-Length: 99999999999999999999\r\n\r\nhello", 413, {}, {}, {}},
        Shape{"NoHost", "GET / HTTP/1.1\r\n\r\n", 400, {}, {}, {}},
        Shape{"HeaderWithoutAColon", Get + "Abc\r\n\r\n", 400, {}, {}, {}},
        Shape{"NulInAHeaderName", withNul(Get + "A~b: c\r\n\r\n"), 400, {}, {}, {}},
        Shape{"LaterMajorVersion", "GET / HTTP/2.0\r\nHost: x\r\n\r\n", 505, {}, {}, {}},
        Shape{"NoVersion", "GET /\r\n\r\n", 400, {}, {}, {}},
        Shape{"VersionInLowerCase", "GET / http/1.1\r\nHost: x\r\n\r\n", 400, {}, {}, {}},
        Shape{"BlankInTheTarget", "GET /a b HTTP/1.1\r\nHost: x\r\n\r\n", isEngine09() ? 0 : 400, {}, {}, {}},
        Shape{"NoHttpAtAll", std::string("\x16\x03\x01\x02\x00\r\n\r\n", 9), 0, {}, {}, {}},
        Shape{"TargetLongerThanTheConnectionsMemory",
              "GET /" + std::string(300000, 'a') + " HTTP/1.1\r\n\r\n",
              414,
              {},
              {},
              {}},
        Shape{"HeaderLongerThanTheConnectionsMemory",
              Get + "A: " + std::string(300000, 'a') + "\r\n\r\n",
              431,
              {},
              {},
              {}}),
    nameOf);

/// The application gets it, as something.
class AcceptedRequest : public HostileRequest {};

TEST_P(AcceptedRequest, ReachesTheApplicationAsThePageSays) {
    const Shape& shape = GetParam();
    std::string body;
    TestServer server([&](TestRequest& request) {
        body = request.readBody();
        request.reply();
    });
    RawClient client = server.connect();
    EXPECT_EQ(client.exchange(shape.bytes).status, shape.status);
    const SeenRequest seen = server.application().seen().front();
    EXPECT_FALSE(seen.hasParseError) << seen.parseError;
    if (!shape.header.empty()) {
        const auto found = seen.headers.find(shape.header);
        EXPECT_EQ(found == seen.headers.end() ? Values() : found->second, shape.values);
    }
    (void)server.application().finished();
    EXPECT_EQ(body, shape.body);
}

const std::string Chunked = "Transfer-Encoding: chunked\r\n";
const std::string ChunkedHello = "\r\n5\r\nhello\r\n0\r\n\r\n";

INSTANTIATE_TEST_SUITE_P(
    Shapes, AcceptedRequest,
    testing::Values(Shape{"TwoEqualLengths",
                          Post + "Content-Length: 5\r\nContent-Length: 5\r\n\r\nhello",
                          200,
                          "content-length",
                          {"5", "5"},
                          "hello"},
                    Shape{"TwoLengthsOfWhichTheFirstCounts",
                          Post + "Content-Length: 5\r\nContent-Length: 0\r\n\r\nhello",
                          200,
                          "content-length",
                          {"5", "0"},
                          "hello"},
                    Shape{"CodingNamedTwiceOfWhichTheFirstCounts",
                          Post + Chunked + "Transfer-Encoding: identity\r\n" + ChunkedHello,
                          200,
                          "transfer-encoding",
                          {"chunked", "identity"},
                          "hello"},
                    Shape{"ChunkedInMixedCase",
                          Post + "Transfer-Encoding: ChunkeD\r\n" + ChunkedHello,
                          200,
                          "transfer-encoding",
                          {"ChunkeD"},
                          "hello"},
                    Shape{"ChunkedInAnOldVersion",
                          "POST / HTTP/1.0\r\n" + Chunked + ChunkedHello,
                          200,
                          "transfer-encoding",
                          {"chunked"},
                          "hello"},
                    Shape{"TrailerThatIsDropped",
                          Post + Chunked + "\r\n5\r\nhello\r\n0\r\nX-Late: y\r\n\r\n",
                          200,
                          "x-late",
                          {},
                          "hello"},
                    Shape{"TwoHosts", Get + "Host: y\r\n\r\n", 200, "host", {"x", "y"}, {}},
                    Shape{"LaterMinorVersion", "GET / HTTP/1.2\r\nHost: x\r\n\r\n", 200, {}, {}, {}},
                    Shape{"BodyOfAGet", Get + "Content-Length: 5\r\n\r\nhello", 200, {}, {}, "hello"},
                    Shape{"UnknownExpectation",
                          Post + "Expect: unknown\r\nContent-Length: 5\r\n\r\nhello",
                          200,
                          "expect",
                          {"unknown"},
                          "hello"}),
    nameOf);

/// Heads that engine 0.9 accepts, and as what. 1.0 refuses them.
const std::vector<Shape> HeadsThatOnly09Accepts{
    Shape{"LengthWithChunkedOfWhichChunkedCounts",
          Post + "Content-Length: 3\r\n" + Chunked + ChunkedHello,
          200,
          "content-length",
          {"3"},
          "hello"},
    Shape{"ChunkedWithLengthOfWhichChunkedCounts",
          Post + Chunked + "Content-Length: 3\r\n" + ChunkedHello,
          200,
          "content-length",
          {"3"},
          "hello"},
    Shape{"SignedLengthBesideChunked",
          Post + "Content-Length: +5\r\n" + Chunked + ChunkedHello,
          200,
          "content-length",
          {"+5"},
          "hello"},
    Shape{"LengthThatIsNoNumberBesideChunked",
          Post + Chunked + "Content-Length: 5x\r\n" + ChunkedHello,
          200,
          "content-length",
          {"5x"},
          "hello"},
    Shape{"BareLineFeeds", "GET / HTTP/1.1\nHost: x\nA: b\n\n", 200, "a", {"b"}, {}},
    Shape{"BareLineFeedThatBeginsAHeader", Get + "A: b\nC: d\r\n\r\n", 200, "c", {"d"}, {}},
    Shape{"NulInAValueThatEndsThere", withNul(Get + "A: b~c\r\n\r\n"), 200, "a", {"b"}, {}},
    Shape{"FoldedHeaderThatGoesIntoTheName", Get + "A: b\r\n c\r\n\r\n", 200, "ac", {"b"}, {}},
    Shape{"BlankBeforeTheColonThatBelongsToTheName", Get + "A : b\r\n\r\n", 200, "a ", {"b"}, {}},
    Shape{"BlankInAHeaderName", Get + "A b: c\r\n\r\n", 200, "a b", {"c"}, {}},
    Shape{"EmptyHeaderName", Get + ": b\r\n\r\n", 200, "", {}, {}},
    Shape{"EmptyLinesBefore", "\r\n\r\n" + Get + "\r\n", 200, {}, {}, {}, 0},
    Shape{"TwoBlanksInTheRequestLine", "GET  / HTTP/1.1\r\nHost: x\r\n\r\n", 200, {}, {}, {}}};

/// Bodies that engine 0.9 accepts. For 1.0 they are broken, which shows when the application has the head.
const std::vector<Shape> BodiesThatOnly09Accepts{
    Shape{"ChunkExtension", Post + Chunked + "\r\n5;a=b\r\nhello\r\n0\r\n\r\n", 200, {}, {}, "hello"},
    Shape{"BareLineFeedsInAChunkedBody", Post + Chunked + "\r\n5\nhello\n0\n\n", 200, {}, {}, "hello"}};

/// A parse error for the application with engine 0.9. 1.0 refuses it.
const Shape BareCarriageReturn{
    "BareCarriageReturnInAValue", Get + "A: b\rC: d\r\n\r\n", 400, "fail to parse header 'a'", {}, {}};

std::vector<Shape> acceptedBy09Alone() {
    std::vector<Shape> shapes = HeadsThatOnly09Accepts;
    shapes.insert(shapes.end(), BodiesThatOnly09Accepts.begin(), BodiesThatOnly09Accepts.end());
    return shapes;
}

std::vector<Shape> refusedSince10() {
    std::vector<Shape> shapes = HeadsThatOnly09Accepts;
    for (Shape& shape : shapes) {
        shape.status = shape.refusedStatus;
    }
    shapes.push_back(BareCarriageReturn);
    return shapes;
}

INSTANTIATE_TEST_SUITE_P(Lenient, AcceptedRequest,
                         testing::ValuesIn(isEngine09() ? acceptedBy09Alone() : std::vector<Shape>()), nameOf);
INSTANTIATE_TEST_SUITE_P(Strict, RefusedRequest,
                         testing::ValuesIn(isEngine09() ? std::vector<Shape>() : refusedSince10()), nameOf);

/// The application gets it with a parse error, and without what was wrong.
class RequestWithAParseError : public HostileRequest {};

TEST_P(RequestWithAParseError, IsSeenAsSuch) {
    TestServer server([](TestRequest& request) { request.reply({}, request.hasParseError() ? 400 : 200); });
    RawClient client = server.connect();
    EXPECT_EQ(client.exchange(GetParam().bytes).status, GetParam().status);
    const SeenRequest seen = server.application().seen().front();
    EXPECT_TRUE(seen.hasParseError);
    EXPECT_EQ(seen.parseError, GetParam().header);
    EXPECT_EQ(seen.headers.count("a"), 0U);
}

INSTANTIATE_TEST_SUITE_P(Lenient, RequestWithAParseError,
                         testing::ValuesIn(std::vector<Shape>(isEngine09() ? 1 : 0, BareCarriageReturn)), nameOf);
INSTANTIATE_TEST_SUITE_P(
    Shapes, RequestWithAParseError,
    testing::Values(
        Shape{"ControlCharacterInAValue", Get + "A: b\x01\r\n\r\n", 400, "fail to parse header 'a'", {}, {}},
        Shape{"ByteThatIsNoTextInAHeaderName", Get + "A\xFF: b\r\n\r\n", 400, "header name is non utf8", {}, {}},
        Shape{
            "HeaderBeyondItsLimit", Get + "A: " + std::string(9000, 'b') + "\r\n\r\n", 400, "header too long", {}, {}},
        Shape{"TargetInAbsoluteForm",
              "GET http://other/ HTTP/1.1\r\nHost: x\r\n\r\n",
              400,
              "fail to parse request URI, 'h' at position 3 of the port is not a digit",
              {},
              {}},
        Shape{"TargetOfAProxyRequest",
              "CONNECT a:80 HTTP/1.1\r\nHost: x\r\n\r\n",
              400,
              "fail to parse request URI, 'a' at position 3 of the port is not a digit",
              {},
              {}}),
    nameOf);

class HostileConnection : public ServerTest {};

TEST_F(HostileConnection, SecondLengthBecomesNoSecondRequest) {
    // Behind the body by the first length a next request begins, as everywhere: what a proxy in front takes by the
    // second length for the rest of the body is a request here. Such a proxy must not exist.
    TestServer server((TestImpl::Handler()));
    RawClient client = server.connect();
    client.send(Post + "Content-Length: 0\r\nContent-Length: 27\r\n\r\nGET /smuggled HTTP/1.1\r\nHost: x\r\n\r\n");
    EXPECT_EQ(client.readResponse().status, 200);
    EXPECT_EQ(client.readResponse().status, 200);
    EXPECT_EQ(server.application().seen(2).back().url, "/smuggled");
}

TEST_F(HostileConnection, NulEndsTheTargetOrIsRefused) {
    TestServer server((TestImpl::Handler()));
    RawClient client = server.connect();
    client.send(withNul("GET /a?b=c~d&e=f HTTP/1.1\r\nHost: x\r\n\r\n"));
    if (!isEngine09()) {
        EXPECT_THAT(client.readToEnd(), IsEmpty());
        EXPECT_EQ(server.application().seenCount(), 0U);
        return;
    }
    EXPECT_EQ(client.readResponse().status, 200);
    const SeenRequest seen = server.application().seen().front();
    EXPECT_FALSE(seen.hasParseError) << seen.parseError;
    EXPECT_EQ(seen.url, "/a?b=c");
    EXPECT_EQ(seen.query, (ql::HttpBaseRequest::NamedValues{{"b", {"c"}}}));
}

TEST_F(HostileConnection, UnknownTransferCodingHasABodyWithoutEndOrIsRefused) {
    Event isRead;
    std::string body(5, '\0');
    TestServer server([&](TestRequest& request) {
        if (request.feed().readBytes(body.data(), body.size()) == body.size()) {
            isRead.set();
        }
        request.readBody();
        request.reply();
    });
    RawClient client = server.connect();
    client.send(Post + "Transfer-Encoding: xchunked\r\nContent-Length: 2\r\n\r\nhello");
    if (!isEngine09()) {
        EXPECT_EQ(client.readResponse().status, 400);
        EXPECT_EQ(server.application().seenCount(), 0U);
        return;
    }
    EXPECT_TRUE(isRead.wait());
    EXPECT_EQ(body, "hello");
    client.reset();
    EXPECT_THAT(server.application().finished().front().deviceError, testing::StartsWith("lost connection : "));
}

TEST_F(HostileConnection, BrokenChunkedBodyEndsItsRequest) {
    std::vector<std::string> requests;
    for (const char* const chunks :
         {"zz\r\n", "0x3\r\nabc\r\n0\r\n\r\n", "fffffffffffffffff\r\nabc", "3\r\nabcXX0\r\n\r\n"}) {
        requests.push_back(Post + Chunked + "\r\n" + chunks);
    }
    if (!isEngine09()) {
        for (const Shape& shape : BodiesThatOnly09Accepts) {
            requests.push_back(shape.bytes);
        }
    }
    for (const std::string& request : requests) {
        TestServer server((TestImpl::Handler()));
        RawClient client = server.connect();
        client.send(request);
        EXPECT_THAT(client.readToEnd(), testing::AnyOf(testing::StartsWith("HTTP/1.1 4"), IsEmpty())) << request;
        EXPECT_THAT(server.application().finished().front().deviceError, testing::StartsWith("lost connection : "))
            << request;
    }
}

TEST_F(HostileConnection, FloodOfPipelinedRequestsIsAnsweredInOrder) {
    constexpr int Count = 3000;
    TestImpl::Behaviour behaviour;
    behaviour.inlineHandler = [](TestRequest& request) { request.reply(request.getOriginalRequestUrl()); };
    TestServer server(behaviour);
    RawClient client = server.connect();
    std::string flood;
    for (int i = 0; i < Count; ++i) {
        flood += get("/" + std::to_string(i));
    }
    client.send(flood);
    for (int i = 0; i < Count; ++i) {
        ASSERT_EQ(client.readResponse().body, "/" + std::to_string(i));
    }
}

TEST_F(HostileConnection, FloodWhoseAnswersNobodyReadsIsHeldBack) {
    // The engine reads the next request only when the answer to the one before has left.
    const std::string answer(100000, 'a');
    TestImpl::Behaviour behaviour;
    behaviour.inlineHandler = [&](TestRequest& request) { request.reply(answer); };
    TestServer server(behaviour);
    RawClient client(server.port(), "127.0.0.1", 4096);
    std::string flood;
    for (int i = 0; i < 500; ++i) {
        flood += get("/");
    }
    client.send(flood);
    RawClient other = server.connect();
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(other.exchange(get("/")).status, 200);
    }
    EXPECT_LT(server.application().seenCount(), 300U);
}

} // namespace
} // namespace vireotest
