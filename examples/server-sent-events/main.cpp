// Server-sent events: an answer that never ends, of which each event is sent when it happens. Many clients may listen
// and no thread waits with any of them: between two events a request pauses.
//
//     curl --no-buffer http://127.0.0.1:8181/events
//
// In a browser: new EventSource("/events").onmessage = event => console.log(event.data)

#include "skeleton/Application.h"
#include "skeleton/Request.h"

#include <charconv>
#include <chrono>
#include <memory>
#include <string>

namespace {

constexpr std::chrono::milliseconds Period(200);

class Events final : public skeleton::Request {
public:
    using Request::Request;

private:
    /// Who was cut off tells the last event it has seen, and goes on from there.
    std::uint64_t lastEventId() const {
        const std::string text = header("last-event-id");
        std::uint64_t id = 0;
        std::from_chars(text.data(), text.data() + text.size(), id);
        return id;
    }

    /// Each turn sends one event.
    Pause serve() override {
        if (!begun_) {
            if (refusesBadHead()) {
                return {};
            }
            if (getParsedUrl().getPath() != "/events") {
                answer(404, "text/plain", "listen to /events\n");
                return {};
            }
            response().setHeader("Cache-Control", "no-store");
            response().setHeader("X-Accel-Buffering", "no"); // nginx passes each event on at once
            if (!beginAnswer("text/event-stream", -1)) {
                return {};
            }
            begun_ = true;
            id_ = lastEventId();
        }
        ++id_;
        if (!write("id: " + std::to_string(id_) + "\ndata: tick " + std::to_string(id_) + "\n\n")) {
            return {}; // the client has gone
        }
        flush();
        return Period;
    }

    bool begun_ = false;
    std::uint64_t id_ = 0;
};

} // namespace

int main(int argc, char** argv) {
    return skeleton::serveUntilSignal("server-sent-events", skeleton::parametersOf(argc, argv), [] {
        return std::make_unique<skeleton::PooledServer>(
            [](ql::http::HttpServerImpl& server) { return std::make_unique<Events>(server); });
    });
}
