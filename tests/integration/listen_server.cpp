#include "support/TestServer.h"
#include "vireo/AccessLog.h"
#include "vireo/ListenEndpoint.h"
#include "vireo/Vireo.h"

#include <csignal>
#include <cstdint>
#include <exception>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

// A server for listen.sh: listens where its arguments say, or what the environment gives for "environment", and answers
// with its client's address. It says "listening" and its ports, writes an access log, and drains at SIGTERM.

namespace {

using ql::http::ListenEndpoint;
using ql::http::ServerOptions;

void addListeners(ServerOptions& options, const std::string& argument) {
    if (argument == "environment") {
        for (const ListenEndpoint& endpoint : ListenEndpoint::FromEnvironment()) {
            options.addListener(endpoint);
        }
        return;
    }
    options.addListener(ListenEndpoint::Parse(argument).value());
}

void writeLine(std::string_view line) {
    std::cout << line << std::endl;
}

void serveUntilSignal(const ServerOptions& options, const sigset_t& signals) {
    vireotest::TestImpl::Behaviour behaviour;
    behaviour.handler = [](vireotest::TestRequest& request) {
        request.readBody();
        request.reply("from " + request.getClientAddress().toString() + "\n");
    };
    ql::http::HttpServer server(new vireotest::TestImpl(behaviour), options);
    server.startServer(vireotest::TestServer::parametersOfTests());
    if (!server.waitUntilRunning(qlWaitCondition::NoTimeLimit)) {
        throw std::runtime_error(server.getStartErrorText());
    }
    std::string ports;
    for (const std::uint16_t port : server.getPorts()) {
        ports += " " + std::to_string(port);
    }
    writeLine("listening" + ports);
    int received = 0;
    sigwait(&signals, &received);
    constexpr std::uint32_t DrainMs = 10000;
    server.drain(DrainMs);
}

} // namespace

int main(int argc, char** argv) {
    // Before there are threads, which take after this one.
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    try {
        ql::initializeVireo();
        ServerOptions options = vireotest::optionsOfTests();
        if (vireotest::isEventMode()) {
            options.addExchangeObserver(
                std::make_shared<ql::http::AccessLog>(ql::http::AccessLog::Format::Combined, writeLine));
        }
        for (int i = 1; i < argc; ++i) {
            addListeners(options, argv[i]);
        }
        serveUntilSignal(options, signals);
        ql::terminateVireo();
    } catch (const std::exception& error) {
        writeLine(error.what());
        return 1;
    }
    return 0;
}
