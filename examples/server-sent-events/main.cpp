// Server-sent events: an answer that never ends, of which each event is sent when it happens. Many clients may listen,
// and no thread waits with any of them.
//
//     curl --no-buffer http://127.0.0.1:8181/events
//
// In a browser: new EventSource("/events").onmessage = event => console.log(event.data)
//
// A browser that was cut off names the last event that it has seen, and goes on behind it.

#include <vireo/app.h>

#include <chrono>
#include <cstdlib>
#include <string>
#include <thread>

using namespace std::chrono_literals;

int main(int argc, char** argv) {
    vireo::EventChannel ticks;
    vireo::App app;
    app.notFound([](vireo::Request&, vireo::Response& response) { response.text("listen to /events\n"); });
    app.get("/events", [ticks](vireo::Request&, vireo::Response& response) { response.events(ticks); });

    std::jthread clock([&ticks](const std::stop_token& stop) {
        for (int i = 1; !stop.stop_requested(); ++i) {
            ticks.publish("tick " + std::to_string(i));
            std::this_thread::sleep_for(200ms);
        }
    });
    return app.run({.port = argc > 1 ? std::atoi(argv[1]) : 8181});
}
