#include "support/TestServer.h"
#include "vireo/AccessLog.h"
#include "vireo/ListenEndpoint.h"
#include "vireo/TlsContext.h"
#include "vireo/TlsPeer.h"
#include "vireo/Vireo.h"

#include <csignal>
#include <cstdint>
#include <exception>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

// A server for listen.sh and client_certificates.sh: listens where its arguments say, or what the environment gives for
// "environment", and answers with its client's address. It says "listening" and its ports, writes an access log, and
// drains at SIGTERM. With "--tls CHAIN KEY TRUSTED" before the other arguments it speaks TLS with clients whose
// certificate is of who is trusted, and answers with their subject as well.

namespace {

using ql::http::ListenEndpoint;
using ql::http::ServerOptions;
using ql::http::TlsOptions;

void addListeners(ServerOptions& options, const std::string& argument) {
    if (argument == "environment") {
        for (const ListenEndpoint& endpoint : ListenEndpoint::FromEnvironment()) {
            options.addListener(endpoint);
        }
        return;
    }
    options.addListener(ListenEndpoint::Parse(argument).value());
}

void addTlsListener(ServerOptions& options, const TlsOptions& tls, const std::string& argument) {
    std::string error;
    const auto context = ql::http::TlsContext::Create(tls, &error);
    if (!context) {
        throw std::runtime_error(error);
    }
    options.addListener(ListenEndpoint::Parse(argument).value().setTls(context));
}

void addListeners(ServerOptions& options, const std::vector<std::string>& arguments) {
    constexpr std::size_t TlsArguments = 4;
    if (arguments.size() > TlsArguments && arguments[0] == "--tls") {
        TlsOptions tls;
        tls.addCertificateFiles(arguments[1], arguments[2]);
        tls.addTrustedFile(arguments[3]);
        tls.setClientCertificates(TlsOptions::ClientCertificates::Required);
        for (std::size_t i = TlsArguments; i < arguments.size(); ++i) {
            addTlsListener(options, tls, arguments[i]);
        }
        return;
    }
    for (const std::string& argument : arguments) {
        addListeners(options, argument);
    }
}

/// Who has sent a request.
std::string clientOf(const vireotest::TestRequest& request) {
    const std::string address = request.getClientAddress().toString();
    const ql::http::TlsPeer* const peer = request.getTlsPeer();
    return peer == nullptr ? address : address + " " + peer->getSubject();
}

void writeLine(std::string_view line) {
    std::cout << line << std::endl;
}

void serveUntilSignal(const ServerOptions& options, const sigset_t& signals) {
    vireotest::TestImpl::Behaviour behaviour;
    behaviour.handler = [](vireotest::TestRequest& request) {
        request.readBody();
        request.reply("from " + clientOf(request) + "\n");
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
        addListeners(options, std::vector<std::string>(argv + 1, argv + argc));
        serveUntilSignal(options, signals);
        ql::terminateVireo();
    } catch (const std::exception& error) {
        writeLine(error.what());
        return 1;
    }
    return 0;
}
