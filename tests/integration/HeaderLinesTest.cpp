#include "integration/ServerTest.h"
#include "integration/SessionServer.h"

#include <memory>
#include <string>
#include <utility>

// Heads that are filed as they came, whichever way the server waits.

namespace vireotest {
namespace {

using ql::http::ServerOptions;
using testing::HasSubstr;

/// The target and the lines as one text.
std::string headOf(const ql::HttpBaseRequest& request) {
    std::string text = request.getMethodToken() + " " + request.getOriginalRequestUrl() + "\n";
    for (const ql::HeaderLine& line : request.getHeaderLines()) {
        text.append(line.name).append(": ").append(line.value).append("\n");
    }
    return text;
}

class HeaderLines : public ServerTest {
protected:
    static ServerOptions options(bool isStrict, ServerOptions::Filing filing = ServerOptions::Filing::Lines) {
        ServerOptions options = optionsOfTests();
        options.setStrictHttp(isStrict);
        options.setFiling(filing);
        return options;
    }

    /// What the application gets of a head, and that it is nothing else.
    static std::string filed(const std::string& request, bool isStrict) {
        Behaviour behaviour;
        behaviour.handler = [](TestRequest& got) { got.reply(headOf(got) + got.getClientAddress().toString()); };
        TestServer server(std::move(behaviour), TestServer::parametersOfTests(), options(isStrict));
        RawResponse response = server.connect().exchange(request);
        const SeenRequest seen = server.application().seen()[0];
        EXPECT_THAT(seen.headers, testing::IsEmpty());
        EXPECT_THAT(seen.cookies, testing::IsEmpty());
        EXPECT_THAT(seen.query, testing::IsEmpty());
        EXPECT_FALSE(seen.isUrlValid);
        EXPECT_FALSE(seen.hasParseError) << seen.parseError;
        return std::move(response.body);
    }
};

TEST_F(HeaderLines, AreWhatTheClientSentInItsOrder) {
    const std::string request = "GET /a%20b?c=%64&e HTTP/1.1\r\nX-Z: 1, 2\r\nHost:  x.test\r\ncookie: a=b; c\r\n"
                                "X-Z: \xC3\xA4 \r\nAccept:\r\n\r\n";
    const std::string expected = "GET /a%20b?c=%64&e\nX-Z: 1, 2\nHost: x.test\ncookie: a=b; c\nX-Z: \xC3\xA4\n"
                                 "Accept: \n127.0.0.1";
    EXPECT_EQ(filed(request, false), expected);
    EXPECT_EQ(filed(request, true), expected);
}

TEST_F(HeaderLines, TargetIsAsItCameUnlessStrictHttpTakesTheAuthorityFromIt) {
    const std::string request = "GET http://a.test:81/b?c HTTP/1.1\r\nA: 1\r\nHost: x.test\r\n\r\n";
    EXPECT_THAT(filed(request, false), testing::StartsWith("GET http://a.test:81/b?c\nA: 1\nHost: x.test\n127"));
    EXPECT_THAT(filed(request, true), testing::StartsWith("GET /b?c\nA: 1\nHost: a.test:81\n127"));
}

TEST_F(HeaderLines, OpeningsHaveThemToo) {
    for (const bool isStrict : {false, true}) {
        SessionLog log;
        const auto acceptor = std::make_shared<TestAcceptor>(log, [&log](const ql::http::WebSocketOpening& opening) {
            log.add(headOf(opening.getRequest()) + "path '" + opening.getPath() + "'");
            return ql::http::WebSocketAnswer::Refuse(403);
        });
        ServerOptions ofSessions = options(isStrict);
        ofSessions.setWebSockets(acceptor);
        TestServer server({}, TestServer::parametersOfTests(), ofSessions);
        const Handshake handshake;
        EXPECT_EQ(server.connect().exchange(handshake.text()).status, 403);
        const std::string filed = log.wait(1)[0];
        EXPECT_THAT(filed, testing::StartsWith("GET /chat\n"));
        EXPECT_THAT(filed, HasSubstr("\nHost: example.org\n"));
        EXPECT_THAT(filed, HasSubstr("\nUpgrade: websocket\n"));
        EXPECT_THAT(filed, testing::EndsWith("path ''"));
    }
}

TEST_F(HeaderLines, OnDemandAreParsedAsWell) {
    for (const bool isStrict : {false, true}) {
        Behaviour behaviour;
        behaviour.handler = [](TestRequest& request) {
            EXPECT_THAT(request.getHeader("x"), testing::Pointee(testing::ElementsAre("1", "2")));
            EXPECT_THAT(request.getCookie("k"), testing::Pointee(testing::ElementsAre("v")));
            EXPECT_EQ(request.getParsedUrl().getDecodedPath(), "/a b");
            request.reply(headOf(request) + request.getQueryParameters().at("q").front());
        };
        TestServer server(std::move(behaviour), TestServer::parametersOfTests(),
                          options(isStrict, ServerOptions::Filing::OnDemand));
        EXPECT_EQ(server.connect()
                      .exchange("GET /a%20b?q=%C3%A4 HTTP/1.1\r\nHost: x.test\r\nX: 1, 2\r\nCookie: k=v\r\n\r\n")
                      .body,
                  "GET /a%20b?q=%C3%A4\nHost: x.test\nX: 1, 2\nCookie: k=v\n\xC3\xA4");
    }
}

TEST_F(HeaderLines, OnDemandAnUnknownMethodIsAParseError) {
    Behaviour behaviour;
    behaviour.handler = [](TestRequest& request) { request.reply(request.getParseError()); };
    TestServer server(std::move(behaviour), TestServer::parametersOfTests(),
                      options(false, ServerOptions::Filing::OnDemand));
    EXPECT_EQ(server.connect().exchange("BREW / HTTP/1.1\r\nHost: x.test\r\n\r\n").body, "Unexpected HTTP method");
}

TEST_F(HeaderLines, OnDemandOpeningsHaveAPath) {
    SessionLog log;
    const auto acceptor = std::make_shared<TestAcceptor>(log, [&log](const ql::http::WebSocketOpening& opening) {
        log.add(opening.getPath());
        return ql::http::WebSocketAnswer::Refuse(403);
    });
    ServerOptions ofSessions = options(true, ServerOptions::Filing::OnDemand);
    ofSessions.setWebSockets(acceptor);
    TestServer server({}, TestServer::parametersOfTests(), ofSessions);
    EXPECT_EQ(server.connect().exchange(Handshake().text()).status, 403);
    EXPECT_EQ(log.wait(1)[0], "/chat");
}

} // namespace
} // namespace vireotest
