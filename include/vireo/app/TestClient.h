// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/app/Response.h"
#include "vireo/app/RunOptions.h"
#include "vireo/app/RunSettings.h"
#include "vireo/app/export.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace vireo {

class App;

namespace impl {
class ClientState;
class EventReader;
class SocketClient;
struct RequestPlan;
struct ResponseText;
} // namespace impl

/// A request of TestClient: `TestRequest("POST", "/notes").field("title", "milk")`.
///
/// A value. One that was moved from may only be assigned to or destroyed.
class VIREO_APP_API TestRequest {
public:
    /// @param target path and query, encoded as they are to be sent.
    explicit TestRequest(std::string method = "GET", std::string target = "/");
    /// Copies, or takes over.
    ///@{
    TestRequest(const TestRequest& other);
    TestRequest(TestRequest&& other) noexcept;
    TestRequest& operator=(const TestRequest& other);
    TestRequest& operator=(TestRequest&& other) noexcept;
    ///@}
    ~TestRequest();

    /// Adds a header as it is, besides those that the client sends of its own: Host, Cookie, Content-Length,
    /// Content-Type or Transfer-Encoding. One of these names takes the place of the client's.
    TestRequest& header(std::string name, std::string value);
    /// Adds a name and a password, as for basicAuth(), or a token, as for bearerAuth().
    ///@{
    TestRequest& basic(std::string_view user, std::string_view password);
    TestRequest& bearer(std::string_view token);
    ///@}
    /// The body.
    TestRequest& body(std::string bytes, std::string type = "application/octet-stream");
    /// A value as JSON for the body, with vireo/app/Json.h: `json(vireo::Json{{"id", 1}})`.
    template <class Value = impl::JsonList>
    TestRequest& json(const Value& value) {
        return body(JsonText<Value>::of(value), "application/json");
    }
    /// Adds a field of a form, in place of a body.
    TestRequest& field(std::string name, std::string value);
    /// Adds a file of a form, which so becomes a multipart one.
    TestRequest& file(std::string name, std::string fileName, std::string bytes,
                      std::string type = "application/octet-stream");
    /// Sends the body in chunks of so many bytes, so that only its end tells its length.
    ///
    /// Throws std::invalid_argument for 0.
    TestRequest& chunked(std::size_t chunkBytes = 4096);

    /// For the client: what was set.
    const impl::RequestPlan& plan() const;

private:
    std::unique_ptr<impl::RequestPlan> plan_;
};

/// What a TestClient was answered.
///
/// A value. One that was moved from may only be assigned to or destroyed.
class VIREO_APP_API TestResponse {
public:
    /// For the client.
    explicit TestResponse(impl::ResponseText&& text);
    /// Copies, or takes over.
    ///@{
    TestResponse(const TestResponse& other);
    TestResponse(TestResponse&& other) noexcept;
    TestResponse& operator=(const TestResponse& other);
    TestResponse& operator=(TestResponse&& other) noexcept;
    ///@}
    ~TestResponse();

    /// 200, 404, ...
    int status() const;
    /// The values of a header, in any case of letters, joined by ", "; empty when it is missing.
    std::string header(std::string_view name) const;
    /// All headers in order, names and values as they came.
    const std::vector<std::pair<std::string, std::string>>& headers() const;
    /// The body, without chunks.
    const std::string& body() const;
    /// The value of a cookie that this answer sets; empty when it does not.
    std::string cookie(std::string_view name) const;

private:
    std::unique_ptr<impl::ResponseText> text_;
};

/// A stream of server-sent events that a TestClient listens to. Its connection is
/// closed with its client. One thread at a time.
class VIREO_APP_API TestEvents {
public:
    /// For the client.
    explicit TestEvents(std::unique_ptr<impl::EventReader>&& reader);
    /// Takes over. One that was moved from may only be assigned to or destroyed.
    ///@{
    TestEvents(TestEvents&& other) noexcept;
    TestEvents& operator=(TestEvents&& other) noexcept;
    ///@}
    /// Closes its connection.
    ~TestEvents();

    /// 200, or what the server answered in place of a stream, which is over then.
    int status() const;
    /// Waits for the next event. @return false at the stream's end.
    ///
    /// Throws std::runtime_error when none comes in the client's patience.
    bool next();
    /// Of the event that next() came to: the lines of its data, joined by line feeds; its type, "message" without; the
    /// last id so far.
    ///@{
    const std::string& data() const;
    const std::string& event() const;
    const std::string& id() const;
    ///@}

private:
    std::unique_ptr<impl::EventReader> reader_;
};

/// A WebSocket that a TestClient has opened, or tried to. Answers pings by itself while it receives. Lives no longer
/// than its client. One thread at a time.
class VIREO_APP_API TestSocket {
public:
    /// For the client.
    explicit TestSocket(std::unique_ptr<impl::SocketClient>&& socket);
    /// Takes over. One that was moved from may only be assigned to or destroyed.
    ///@{
    TestSocket(TestSocket&& other) noexcept;
    TestSocket& operator=(TestSocket&& other) noexcept;
    ///@}
    /// Closes its connection, without a close frame.
    ~TestSocket();

    /// 101 when it was opened, otherwise what the server answered: nothing comes then.
    int status() const;
    /// What the server answered as a whole: the text of SocketOpening::refuse() is its body.
    TestResponse answer() const;
    /// The one that the server has chosen, or empty.
    const std::string& subprotocol() const;

    /// Sends a message.
    ///@{
    void sendText(std::string_view text);
    void sendBinary(std::string_view bytes);
    ///@}
    /// Waits for a message of either kind. @return none once the server has closed.
    ///
    /// Throws std::runtime_error when none comes in the client's patience.
    std::optional<std::string> receive();
    /// Sends a close frame, and waits until the server has closed, too; what comes before that is dropped.
    void close(std::uint16_t code = 1000);
    /// Of the server's close frame; 0 without a code or before one, 1006 when the connection ended without a frame.
    std::uint16_t closeCode() const;

private:
    std::unique_ptr<impl::SocketClient> socket_;
};

/// Asks an App as a client over the network would, for tests: it starts the App on a port of its own, keeps cookies
/// and, where it can, its connection.
///
/// ```cpp
/// vireo::TestClient client(app);
/// EXPECT_EQ(client.get("/hello/you").body(), "hello you\n");
/// ```
///
/// Each wait takes 10 s at most, see setPatience(); then it throws std::runtime_error that says what for, as it does
/// when the connection breaks. One thread at a time; for several at once make more by TestClient(first.url()).
class TestClient {
public:
    /// Starts the App, which the client stops in the end: 127.0.0.1, a port that the system finds, without signals or
    /// a line that tells the URL, and without a patience for what is under way then. The rest is as the options say.
    ///
    /// Throws std::logic_error for options with TLS or `listen`, and what App::start() throws.
    explicit TestClient(App& app, const RunOptions& options = {}) : TestClient(app, options.toSettings()) {}
    /// The same with what options have become.
    VIREO_APP_API TestClient(App& app, const RunSettings& settings);
    /// Asks a server that runs already.
    ///
    /// Throws std::invalid_argument for anything but "http://host", with a port or not.
    VIREO_APP_API explicit TestClient(const std::string& url);
    TestClient(const TestClient&) = delete;
    TestClient& operator=(const TestClient&) = delete;
    /// Closes the connections of the client, of begin(), events() and webSocket(), then stops the App that it started.
    VIREO_APP_API ~TestClient();

    /// Requests without a body.
    ///@{
    VIREO_APP_API TestResponse get(std::string target);
    VIREO_APP_API TestResponse head(std::string target);
    VIREO_APP_API TestResponse del(std::string target);
    VIREO_APP_API TestResponse options(std::string target);
    ///@}
    /// Requests with one.
    ///@{
    VIREO_APP_API TestResponse post(std::string target, std::string body = {}, std::string type = "application/json");
    VIREO_APP_API TestResponse put(std::string target, std::string body = {}, std::string type = "application/json");
    VIREO_APP_API TestResponse patch(std::string target, std::string body = {}, std::string type = "application/json");
    ///@}
    /// Any request. Redirections are not followed.
    VIREO_APP_API TestResponse send(const TestRequest& request);

    /// Listens to server-sent events, on a connection of their own.
    /// @param lastId the id after which they are to go on.
    VIREO_APP_API TestEvents events(std::string target, const std::string& lastId = {});
    /// Opens a WebSocket, on a connection of its own.
    /// @param request gives headers to send besides; nothing else of it counts.
    VIREO_APP_API TestSocket webSocket(std::string target, const TestRequest& request = TestRequest());

    /// Begins a request on a connection of its own, and leaves it at that: its head, and so much of its body, as it
    /// would be sent.
    VIREO_APP_API void begin(const TestRequest& request, std::size_t bodyBytes);
    /// Resets the connections of all begin(), as clients do that go away in the middle.
    VIREO_APP_API void abort();

    /// Has all requests from now on, also those of events() and webSocket(), send a header, in place of one of that
    /// name that was set before; an empty value takes it away. A request's own header goes before.
    VIREO_APP_API void setHeader(const std::string& name, const std::string& value);
    /// The same for a name and a password, and for a token.
    ///@{
    VIREO_APP_API void setBasic(std::string_view user, std::string_view password);
    VIREO_APP_API void setBearer(std::string_view token);
    ///@}
    /// Cookies that were set so far are forgotten.
    VIREO_APP_API void clearCookies();
    /// For how long each wait is; 10 s by default.
    VIREO_APP_API void setPatience(std::chrono::milliseconds patience);
    /// Where the server is: "http://127.0.0.1:40123".
    VIREO_APP_API std::string url() const;

private:
    std::unique_ptr<impl::ClientState> state_;
};

} // namespace vireo
