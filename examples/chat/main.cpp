// A chat: who has logged in at "/" may talk in a room. Pages from elsewhere get no WebSocket, which is the default: a
// browser sends our cookie along for them, too.

#include "skeleton/Application.h"
#include "skeleton/Request.h"
#include "vireo/WebSocketAcceptor.h"
#include "vireo/WebSocketGroup.h"
#include "vireo/WebSocketSession.h"
#include "vireo/support/Base64.h"
#include "vireo/support/qlMutex.h"
#include "vireo/support/qlRandomUtils.h"

using namespace ql::http;

constexpr const char* Page = R"page(<input id=who placeholder="your name"><button onclick=enter()>Enter</button>
<input onchange="room.send(value); value = ''" placeholder="say something"><pre id=log></pre><script>
async function enter() {
    await fetch('/', {method: 'POST', body: who.value});
    room = new WebSocket(location.origin.replace('http', 'ws') + '/room');
    room.onmessage = event => log.textContent += event.data + '\n';
}</script>)page";

struct Member : WebSocketSession {
    Member(std::string who, WebSocketGroup& where) : name(std::move(who)), room(where) {}
    void onOpen() override { room.add(getHandle()); }
    void onText(std::string_view text) override { room.sendText(name + ": " + std::string(text)); }
    const std::string name;
    WebSocketGroup& room;
};

/// Knows who has logged in. Any thread.
struct Chat : WebSocketAcceptor {
    /// @return what their cookie is to say, which nobody can guess.
    std::string logIn(const std::string& name) {
        std::string secret(24, '\0');
        qlRandomUtils::Rand(secret.data(), secret.size());
        ql::base64Encode(secret.data(), secret.size(), secret, ql::Base64CharSet::Standard);
        const qlMutexLocker lock(mutex);
        names[secret] = name;
        return secret;
    }
    WebSocketAnswer decide(const WebSocketOpening& opening) override {
        const auto* const secrets = opening.getRequest().getCookie("chat");
        const qlMutexLocker lock(mutex);
        const auto user = secrets == nullptr ? names.end() : names.find(secrets->front());
        return user == names.end() ? WebSocketAnswer::Refuse(401, "log in first\n")
                                   : WebSocketAnswer::Accept(std::make_unique<Member>(user->second, room));
    }
    qlMutex mutex;
    std::map<std::string, std::string> names QL_GUARDED_BY(mutex);
    WebSocketGroup room;
};

struct Login : skeleton::Request {
    Login(HttpServerImpl& server, Chat& of) : Request(server), chat(of) {}
    Pause serve() override {
        if (getRequestType() == RequestType::Post) {
            std::vector<char> name(40);
            name.resize(readBody(name));
            const std::string secret = chat.logIn(std::string(name.begin(), name.end()));
            response().setHeader("Set-Cookie", "chat=" + secret + "; Path=/; HttpOnly; SameSite=Strict");
        }
        answer(200, "text/html; charset=utf-8", Page);
        return {};
    }
    Chat& chat;
};

int main(int argc, char** argv) {
    const auto chat = std::make_shared<Chat>();
    ServerOptions options;
    options.setStrictHttp(true);
    options.setWebSockets(chat);
    const auto makeRequest = [&](HttpServerImpl& server) { return std::make_unique<Login>(server, *chat); };
    const auto makeServer = [&] { return std::make_unique<skeleton::PooledServer>(makeRequest); };
    return skeleton::serveUntilSignal("chat", skeleton::parametersOf(argc, argv), makeServer, options);
}
