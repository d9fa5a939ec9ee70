// A chat: who has logged in at "/" may talk in a room. Pages from elsewhere get no WebSocket, which is the default: a
// browser sends our cookie along for them, too.

#include <vireo/app.h>
#include <vireo/app/Session.h>

#include <cstdlib>
#include <string>
#include <string_view>

namespace {

constexpr const char* Page = R"page(<input id=who placeholder="your name"><button onclick=enter()>Enter</button>
<input onchange="room.send(value); value = ''" placeholder="say something"><pre id=log></pre><script>
async function enter() {
    await fetch('/', {method: 'POST', body: new URLSearchParams({name: who.value})});
    room = new WebSocket(location.origin.replace('http', 'ws') + '/room');
    room.onmessage = event => log.textContent += event.data + '\n';
}</script>)page";

} // namespace

int main(int argc, char** argv) {
    // With another key each time the program starts, so that everybody logs in again then.
    const vireo::Sessions sessions(
        vireo::SessionOptions(vireo::newKey()).cookie("chat").sameSite(vireo::SetCookie::SameSite::Strict));
    const vireo::Room room;

    vireo::App app;
    app.use(sessions.middleware());
    app.get("/", [](vireo::Request&, vireo::Response& response) { response.html(Page); });
    app.post("/", [sessions](vireo::Request& request, vireo::Response& response) {
        sessions.of(request).clear(); // whatever somebody else may have left there
        sessions.of(request).set("name", request.form(vireo::FormOptions().maxFieldBytes(40))["name"]);
        response.html(Page);
    });
    app.webSocket("/room", [sessions, room](vireo::Request& request, vireo::SocketOpening& opening) {
        const std::string name = sessions.of(request).get("name");
        if (name.empty()) {
            opening.refuse(401, "log in first");
            return;
        }
        opening.accept()
            .onOpen([room](vireo::Socket& socket) { room.add(socket); })
            .onText(
                [room, name](vireo::Socket&, std::string_view text) { room.send(name + ": " + std::string(text)); });
    });
    return app.run({.port = argc > 1 ? std::atoi(argv[1]) : 8181});
}
