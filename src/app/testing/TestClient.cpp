// SPDX-License-Identifier: MIT
#include "vireo/app/TestClient.h"

#include "app/kernel/Throw.h"
#include "app/run/RunPlan.h"
#include "app/testing/ClientState.h"
#include "app/testing/EventReader.h"
#include "app/testing/SocketClient.h"
#include "vireo/app/App.h"

#include <utility>

namespace vireo {

namespace {

TestRequest withBody(std::string method, std::string&& target, std::string&& body, std::string&& type) {
    TestRequest request(std::move(method), std::move(target));
    // A body of no bytes is one, too: "Content-Length: 0".
    request.body(std::move(body), std::move(type));
    return request;
}

/// Starts the App on a port of its own.
impl::ServerPlace placeOf(App& app, RunSettings settings) {
    const impl::RunPlan& plan = settings.plan();
    if (!plan.listen.empty() || !plan.certificate.empty() || !plan.key.empty() || plan.tls != nullptr) {
        impl::throwLogicError("a test client takes a port of its own, without TLS: leave listen, certificate, key and "
                              "tls alone");
    }
    settings.setAddress("127.0.0.1");
    settings.setPort(0);
    settings.setQuiet(true);
    settings.setPatience(std::chrono::milliseconds(0));
    settings.setGrace(std::chrono::milliseconds(0));
    app.startWith(settings);
    return {"127.0.0.1", std::to_string(app.port())};
}

} // namespace

TestClient::TestClient(App& app, const RunSettings& settings)
    : state_(std::make_unique<impl::ClientState>(placeOf(app, settings), &app)) {}

TestClient::TestClient(const std::string& url)
    : state_(std::make_unique<impl::ClientState>(impl::ServerPlace::Of(url), nullptr)) {}

TestClient::~TestClient() {
    state_->closeConnections();
    if (App* const app = state_->app()) {
        app->stop();
    }
}

TestResponse TestClient::get(std::string target) {
    return send(TestRequest("GET", std::move(target)));
}

TestResponse TestClient::head(std::string target) {
    return send(TestRequest("HEAD", std::move(target)));
}

TestResponse TestClient::del(std::string target) {
    return send(TestRequest("DELETE", std::move(target)));
}

TestResponse TestClient::options(std::string target) {
    return send(TestRequest("OPTIONS", std::move(target)));
}

TestResponse TestClient::post(std::string target, std::string body, std::string type) {
    return send(withBody("POST", std::move(target), std::move(body), std::move(type)));
}

TestResponse TestClient::put(std::string target, std::string body, std::string type) {
    return send(withBody("PUT", std::move(target), std::move(body), std::move(type)));
}

TestResponse TestClient::patch(std::string target, std::string body, std::string type) {
    return send(withBody("PATCH", std::move(target), std::move(body), std::move(type)));
}

TestResponse TestClient::send(const TestRequest& request) {
    return TestResponse(state_->exchange(request.plan()));
}

TestEvents TestClient::events(std::string target, const std::string& lastId) {
    TestRequest request("GET", std::move(target));
    request.header("Accept", "text/event-stream");
    if (!lastId.empty()) {
        request.header("Last-Event-ID", lastId);
    }
    return TestEvents(std::make_unique<impl::EventReader>(state_->open(request.plan())));
}

TestSocket TestClient::webSocket(std::string target, const TestRequest& request) {
    TestRequest opening("GET", std::move(target));
    opening.header("Connection", "Upgrade").header("Upgrade", "websocket").header("Sec-WebSocket-Version", "13");
    opening.header("Sec-WebSocket-Key", "dGhlIHNhbXBsZSBub25jZQ==");
    for (const auto& [name, value] : request.plan().headers) {
        opening.header(name, value);
    }
    return TestSocket(std::make_unique<impl::SocketClient>(state_->open(opening.plan())));
}

void TestClient::begin(const TestRequest& request, std::size_t bodyBytes) {
    state_->begin(request.plan(), bodyBytes);
}

void TestClient::abort() {
    state_->abort();
}

void TestClient::setHeader(const std::string& name, const std::string& value) {
    state_->setHeader(name, value);
}

void TestClient::setBasic(std::string_view user, std::string_view password) {
    setHeader("Authorization", impl::basicCredentials(user, password));
}

void TestClient::setBearer(std::string_view token) {
    setHeader("Authorization", impl::bearerCredentials(token));
}

void TestClient::clearCookies() {
    state_->cookies().clear();
}

void TestClient::setPatience(std::chrono::milliseconds patience) {
    state_->setPatience(patience);
}

std::string TestClient::url() const {
    return state_->url();
}

} // namespace vireo
