#include "integration/ServerTest.h"

#include <stdexcept>
#include <string>

// An application that fails: the client gets an answer, the log a line, and the server goes on.

namespace vireotest {
namespace {

using Operation = TestResponse::Operation;
using testing::ElementsAre;

class ApplicationFault : public ServerTest {
protected:
    /// Twice: the server still serves.
    static void expectInternalErrors(TestServer& server, const std::string& request) {
        for (int i = 0; i < 2; ++i) {
            const RawResponse response = server.connect().exchange(request);
            EXPECT_EQ(response.status, 500);
            EXPECT_EQ(response.body, "internal error text");
        }
    }

    void expectFailuresLogged(const std::string& line) const {
        EXPECT_THAT(log_.texts(qlLogType::Failure), ElementsAre(line, line));
    }
};

TEST_F(ApplicationFault, NoRequestIsAnInternalError) {
    Behaviour behaviour;
    behaviour.createsNull = true;
    TestServer server(std::move(behaviour));
    expectInternalErrors(server, get("/"));
    expectFailuresLogged("a request threw an exception : createRequest made no request");
}

TEST_F(ApplicationFault, ExceptionInCreateRequestIsAnInternalError) {
    Behaviour behaviour;
    behaviour.createThrows = true;
    TestServer server(std::move(behaviour));
    expectInternalErrors(server, get("/"));
    expectFailuresLogged("a request threw an exception : thrown by createRequest");
}

TEST_F(ApplicationFault, ExceptionInCreateRequestBeforeAnUploadIsAnInternalError) {
    Behaviour behaviour;
    behaviour.createThrows = true;
    TestServer server(std::move(behaviour));
    expectInternalErrors(server, post("/", std::string(100, 'x')));
    expectFailuresLogged("a request threw an exception : thrown by createRequest");
}

TEST_F(ApplicationFault, ExceptionInHandleRequestIsAnInternalError) {
    Behaviour behaviour;
    behaviour.inlineHandler = [](TestRequest&) { throw std::runtime_error("thrown by handleRequest"); };
    TestServer server(std::move(behaviour));
    expectInternalErrors(server, get("/"));
    expectFailuresLogged("a request threw an exception : thrown by handleRequest");
    server.application().finished(2);
}

TEST_F(ApplicationFault, ExceptionThatIsNoExceptionObjectIsAnInternalError) {
    Behaviour behaviour;
    behaviour.inlineHandler = [](TestRequest&) { throw 42; };
    TestServer server(std::move(behaviour));
    expectInternalErrors(server, get("/"));
    expectFailuresLogged("a request threw an exception of an unknown type");
}

TEST_F(ApplicationFault, ExceptionInGetResponseIsAnInternalError) {
    Behaviour behaviour;
    behaviour.inlineHandler = [](TestRequest& request) {
        request.getResponseThrows = true;
        request.reply("body");
    };
    TestServer server(std::move(behaviour));
    expectInternalErrors(server, get("/"));
    expectFailuresLogged("a request threw an exception : thrown by getResponse");
}

TEST_F(ApplicationFault, ExceptionInNotifySchedulerIsLogged) {
    Behaviour behaviour;
    behaviour.inlineHandler = [](TestRequest& request) { request.reply("fine"); };
    behaviour.onNotify = [] { throw std::runtime_error("thrown by notifyScheduler"); };
    TestServer server(std::move(behaviour));
    EXPECT_EQ(server.connect().exchange(get("/")).body, "fine");
    EXPECT_EQ(server.connect().exchange(get("/")).body, "fine");
    server.application().finished(2);
    expectFailuresLogged("notifyScheduler threw an exception : thrown by notifyScheduler");
}

TEST_F(ApplicationFault, ExceptionInOnServerStoppedDoesNotKeepTheServerFromStopping) {
    Behaviour behaviour;
    behaviour.onStopped = [] { throw std::runtime_error("thrown by onServerStopped"); };
    TestServer server(std::move(behaviour));
    server.stop();
    EXPECT_EQ(server.server().getStatus(), Status::Stopped);
    EXPECT_THAT(log_.texts(qlLogType::Failure),
                ElementsAre("onServerStopped threw an exception : thrown by onServerStopped"));
}

TEST_F(ApplicationFault, InternalErrorBeforeTheBodyEndsTheConnection) {
    Behaviour behaviour;
    behaviour.createThrows = true;
    TestServer server(std::move(behaviour));
    RawClient client = server.connect();
    client.send(head("POST", "/", "Content-Length: 1000\r\n"));
    const RawResponse response = client.readResponse();
    EXPECT_EQ(response.status, 500);
    EXPECT_EQ(response.value("Connection"), "close");
    EXPECT_EQ(client.readToEnd(), "");
}

TEST_F(ApplicationFault, InternalErrorAfterTheBodyKeepsTheConnection) {
    Behaviour behaviour;
    // On the daemon thread: a worker's fault could come between a look at the description and one at the state.
    behaviour.inlineHandler = [](TestRequest& request) {
        request.getResponseThrows = request.getOriginalRequestUrl() == "/bad";
        request.reply("good");
    };
    TestServer server(std::move(behaviour));
    RawClient client = server.connect();
    EXPECT_EQ(client.exchange(post("/bad", "body")).status, 500);
    EXPECT_EQ(client.exchange(post("/", "body")).body, "good");
}

struct DescriptionFault {
    const char* name;
    Operation operation;
    bool isStreamed;
};

class ApplicationDescriptionFault : public ApplicationFault, public testing::WithParamInterface<DescriptionFault> {};

TEST_P(ApplicationDescriptionFault, ExceptionIsAnInternalError) {
    TestServer server([](TestRequest& request) {
        request.response.throwing = GetParam().operation;
        if (GetParam().isStreamed) {
            request.out().releaseResponse();
        } else {
            request.reply("body");
        }
    });
    expectInternalErrors(server, get("/"));
    expectFailuresLogged("a request threw an exception : thrown by a response description");
    server.application().finished(2);
}

INSTANTIATE_TEST_SUITE_P(Description, ApplicationDescriptionFault,
                         testing::Values(DescriptionFault{"HeadersOfABuffer", Operation::GetHeaders, false},
                                         DescriptionFault{"CookiesOfABuffer", Operation::GetCookies, false},
                                         DescriptionFault{"StatusOfABuffer", Operation::GetStatusCode, false},
                                         DescriptionFault{"HeadersOfAStream", Operation::GetHeaders, true},
                                         DescriptionFault{"CookiesOfAStream", Operation::GetCookies, true},
                                         DescriptionFault{"StatusOfAStream", Operation::GetStatusCode, true},
                                         DescriptionFault{"LengthOfAStream", Operation::GetContentLength, true}),
                         [](const auto& test) { return test.param.name; });

TEST_F(ApplicationFault, StatusThatIsNoneClosesTheConnection) {
    TestServer server([](TestRequest& request) { request.reply("body", 42); });
    RawClient client = server.connect();
    client.send(get("/"));
    EXPECT_EQ(client.readToEnd(), "");
    server.application().finished();
}

} // namespace
} // namespace vireotest
