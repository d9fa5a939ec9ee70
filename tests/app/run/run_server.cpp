// Runs an App as its arguments say, for a test that drives it as a process. usage: run_server NAME=VALUE...

#include "support/Event.h"
#include "vireo/TlsContext.h"
#include "vireo/TlsPeer.h"
#include "vireo/app.h"
#include "vireo/app/SecurityHeaders.h"
#include "vireo/app/Session.h"

#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <thread>

namespace {

std::map<std::string, std::string> settingsOf(int argc, char** argv) {
    std::map<std::string, std::string> settings;
    for (int i = 1; i < argc; ++i) {
        const std::string text = argv[i];
        const std::size_t end = text.find('=');
        settings[text.substr(0, end)] = text.substr(end + 1);
    }
    return settings;
}

/// TLS for clients that show a certificate which one of the trusted ones is or has issued; null without such.
std::shared_ptr<ql::http::TlsContext> tlsOf(std::map<std::string, std::string>& settings) {
    if (!settings.contains("trusted")) {
        return nullptr;
    }
    ql::http::TlsOptions options;
    options.addCertificateFiles(settings["chain"], settings["key"]);
    options.addTrustedFile(settings["trusted"]);
    options.setClientCertificates(ql::http::TlsOptions::ClientCertificates::Required);
    return ql::http::TlsContext::Create(options);
}

/// Never returns.
void waitForEver() {
    while (true) {
        std::this_thread::sleep_for(std::chrono::hours(1));
    }
}

/// Has a handler destroy its App; then the process ends, by the handler itself or, as `main`, by this.
int leave(const std::string& how) {
    vireotest::Event destroyed;
    auto* const app = new vireo::App;
    vireo::Route route = app->get("/", [app, &destroyed, isMain = how == "main"](vireo::Request&, vireo::Response&) {
        if (isMain) {
            vireotest::Event& told = destroyed;
            delete app; // and with it, once it has returned, this function
            told.set();
        } else {
            delete app;
            std::exit(0);
        }
    });
    if (how == "quick") {
        route.quick();
    }
    app->start({.port = 0});
    return destroyed.wait() ? 0 : 1;
}

} // namespace

int main(int argc, char** argv) {
    std::map<std::string, std::string> settings = settingsOf(argc, argv);
    if (settings.contains("leave")) {
        return leave(settings["leave"]);
    }
    vireo::App app;
    app.get("/hello", [](vireo::Request&, vireo::Response& response) { response.text("hello"); });
    app.post("/echo", [](vireo::Request& request, vireo::Response& response) { response.text(request.body().text()); });
    app.get("/stop", [&](vireo::Request&, vireo::Response& response) {
        app.stop();
        response.text("stopping");
    });
    app.get("/stuck", [](vireo::Request&, vireo::Response&) { waitForEver(); });
    const vireo::Sessions sessions(vireo::SessionOptions(std::string(32, 'k')));
    vireo::Group members = app.group("/members").use(sessions.middleware()).use(vireo::securityHeaders());
    members.get("/me", [sessions](vireo::Request& request, vireo::Response& response) {
        sessions.of(request).set("name", "ada");
        const ql::http::TlsPeer* const peer = request.tls();
        response.text(request.scheme() + " " + (peer == nullptr ? "nobody" : peer->getSubject()));
    });
    const bool hasOwnTls = settings.contains("trusted") && !settings.contains("certificate");
    return app.run({.port = std::atoi(settings["port"].c_str()),
                    .certificate = settings["certificate"],
                    .key = hasOwnTls ? std::string() : settings["key"],
                    .tls = tlsOf(settings),
                    .patience = std::chrono::milliseconds(60000),
                    .accessLog = settings["log"],
                    .accessLogFormat = settings["format"] == "json" ? vireo::AccessLogFormat::Json
                                                                    : vireo::AccessLogFormat::Combined});
}
