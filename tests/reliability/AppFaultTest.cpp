// Every allocation that an app makes while it serves fails once: the client is answered or let go, and the next one
// served.

#include "integration/EchoSocket.h"
#include "reliability/Faults.h"
#include "support/FailingAllocation.h"
#include "support/RawClient.h"
#include "vireo/app.h"
#include "vireo/app/Compression.h"
#include "vireo/app/EventChannel.h"
#include "vireo/app/Json.h"
#include "vireo/app/Session.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <ostream>
#include <string>

#include <gtest/gtest.h>

namespace vireo {
namespace {

using vireotest::RawClient;

/// An app with a route of each kind.
class Serving {
public:
    Serving() {
        const Sessions sessions(SessionOptions(std::string(32, 'k')));
        app_.use(compression()).use(sessions.middleware());
        app_.get("/next", [](Request&, Response& response) { response.text("next"); });
        app_.get("/quick/{name}", [](Request& request, Response& response) { response.text(request.path("name")); })
            .quick();
        app_.post("/json", [sessions](Request& request, Response& response) {
            sessions.of(request).set("user", "ada");
            response.json(readJson<Json>(request));
        });
        app_.post("/form", [](Request& request, Response& response) { response.text(request.form()["name"]); });
        app_.get("/late", [](Request&, Response& response) {
            response.later().answer([](Response& late) { late.text(std::string(1000, 'x')); });
        });
        app_.get("/events", [](Request&, Response& response) {
            const EventChannel channel; // which ends with this function, behind what was published
            response.events(channel);
            channel.publish("news");
        });
        app_.webSocket("/echo", [](Request&, SocketOpening& opening) {
            opening.accept().onText([](Socket& socket, std::string_view text) { socket.send(text); });
        });
        app_.start({.port = 0, .workers = 1, .quiet = true});
    }

    RawClient connect() const { return RawClient(app_.port()); }

private:
    App app_;
};

/// What a client does.
struct Visit {
    const char* name;
    std::function<void(RawClient&)> act;

    friend void PrintTo(const Visit& visit, std::ostream* out) { *out << visit.name; }
};

void echo(RawClient& client) {
    client.send(vireotest::get("/echo", "Upgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Version: 13\r\n"
                                        "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n"));
    if (client.readHead().status == 101) {
        client.send(vireotest::clientFrame("message", 1) + vireotest::clientFrame("\x03\xe8", 8));
        client.readToEnd();
    }
}

Visit request(const char* name, const std::string& text) {
    return {name, [text](RawClient& client) { client.exchange(text); }};
}

class AppFault : public vireotest::Fault, public testing::WithParamInterface<Visit> {
protected:
    /// Each allocation and those behind it, so many in a row: then there is none to say so either.
    void failInARow(std::size_t inARow);
};

void AppFault::failInARow(std::size_t inARow) {
    const Visit& visitor = GetParam();
    const Serving serving;
    const auto serveTheNext = [&] {
        RawClient client = serving.connect();
        EXPECT_EQ(client.exchange(vireotest::get("/next")).body, "next");
    };
    const auto come = [&] {
        RawClient client = serving.connect();
        visitor.act(client);
    };
    come();
    serveTheNext();
    const vireotest::Kind kind{"Allocation",
                               [inARow](std::size_t nth) { vireotest::failAllocationsOfOthers(nth, inARow); },
                               [] { return vireotest::allocationFailures.load(); }};
    const std::size_t failures = failOneAfterTheOther(kind, [&] {
        vireotest::visit(come);
        kind.arm(0);
        serveTheNext();
    });
    EXPECT_GT(failures, 0U);
}

TEST_P(AppFault, OfAnAllocationIsSurvived) {
    failInARow(1);
}

TEST_P(AppFault, OfAllocationsInARowIsSurvived) {
    for (const std::size_t inARow : {2U, 4U, 16U}) {
        failInARow(inARow);
    }
}

std::string nameOf(const testing::TestParamInfo<Visit>& info) {
    return info.param.name;
}

// The JSON component takes memory to destroy a list or an object, and ends the process where there is none.
constexpr const char* JsonText = R"("a text that is too long to lie in the string itself")";
const std::string Type = "Content-Type: ";

INSTANTIATE_TEST_SUITE_P(
    Visits, AppFault,
    testing::Values(request("ByAWorker", vireotest::get("/next")),
                    request("OnADaemonThread", vireotest::get("/quick/ada?a=b", "Cookie: a=b\r\n")),
                    request("Json", vireotest::post("/json", JsonText, Type + "application/json\r\n")),
                    request("Form",
                            vireotest::post("/form", "name=ada", Type + "application/x-www-form-urlencoded\r\n")),
                    request("Late", vireotest::get("/late", "Accept-Encoding: gzip\r\n")),
                    request("Events", vireotest::get("/events")), request("NoRoute", vireotest::get("/none")),
                    Visit{"Socket", echo}),
    nameOf);

} // namespace
} // namespace vireo
