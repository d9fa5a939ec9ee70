// What the toolkit serves: the plain answer, at "/" and by as many routes as there are to be, files, and event streams.
#include "support/Program.h"
#include "support/Work.h"
#include "vireo/app.h"

#include <cstddef>
#include <cstdio>
#include <exception>
#include <string>
#include <string_view>

namespace {

/// What the client puts around the text of an event, which a channel does itself.
constexpr std::string_view EventBegin = "data: ";
constexpr std::string_view EventEnd = "\n\n";

void answerPlain(vireo::Request& /*request*/, vireo::Response& response) {
    response.text(std::string(bench::PlainBody));
}

void publish(vireo::EventChannel& channel, const std::string& event) {
    if (event.size() > EventBegin.size() + EventEnd.size()) {
        std::string_view text = event;
        text.remove_prefix(EventBegin.size());
        text.remove_suffix(EventEnd.size());
        channel.publish(text);
    }
}

void addRoutes(vireo::App& app, const bench::ServerOptions& options) {
    const auto answer = [isQuick = options.answer == "quick"](vireo::Route route) {
        if (isQuick) {
            route.quick();
        }
    };
    answer(app.get("/", answerPlain));
    for (unsigned int i = 0; i < options.routes; ++i) {
        answer(app.get("/routes/" + std::to_string(i) + "/items/{id}", answerPlain));
    }
    if (!options.files.empty()) {
        answer(app.files("/files", options.files));
    }
    vireo::EventChannel channel;
    answer(app.get("/events", [channel](vireo::Request&, vireo::Response& response) { response.events(channel); }));
    answer(app.post("/events", [channel](vireo::Request& request, vireo::Response& response) mutable {
        publish(channel, request.body().text());
        answerPlain(request, response);
    }));
}

vireo::RunOptions runOptionsOf(const bench::ServerOptions& options) {
    vireo::RunOptions run;
    run.port = options.port;
    run.threads = options.threads;
    run.workers = options.workers;
    // Event streams would be waited for.
    run.patience = {};
    run.quiet = true;
    return run;
}

} // namespace

int main(int argc, char** argv) {
    const bench::ServerOptions options = bench::ServerOptions::parse(argc, argv, {"quick", "workers"});
    const bench::StopSignal stop;
    bench::raiseDescriptorLimit();
    try {
        vireo::App app;
        addRoutes(app, options);
        app.start(runOptionsOf(options));
        stop.wait();
        app.stop();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "bench-app: %s\n", error.what());
        return 1;
    }
    return 0;
}
