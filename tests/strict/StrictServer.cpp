// Serves on a free port until its standard input ends, and tells in each answer, as JSON, what the application saw of
// the request. usage: strict_server --defined | --strict [--event]
//
// Its first line of output is "PORT VERSION-OF-THE-ENGINE". A byte outside printable ASCII is the JSON escape of that
// number, so that a client has each byte of a text back as it was. The answers to HEAD and CONNECT, which have none,
// tell it in the header "Seen". The strict server knows one method of its own, BREW.

#include "support/TestServer.h"
#include "vireo/Vireo.h"

#include <iostream>
#include <limits>
#include <set>
#include <string>
#include <string_view>

#include <microhttpd.h>

namespace {

using ql::http::ServerOptions;
using vireotest::TestRequest;
using vireotest::TestServer;

std::string jsonText(std::string_view text) {
    static const char* const digits = "0123456789abcdef";
    std::string json = "\"";
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x20 || byte > 0x7e || c == '"' || c == '\\') {
            json += "\\u00";
            json += digits[byte >> 4];
            json += digits[byte & 15];
        } else {
            json += c;
        }
    }
    return json + "\"";
}

/// From name to values, whatever kind of list and map they are in.
template <typename Map>
std::string object(const Map& map) {
    std::string json;
    for (const auto& [name, values] : map) {
        std::string list;
        for (const std::string& value : values) {
            list += (list.empty() ? "" : ",") + jsonText(value);
        }
        json += (json.empty() ? "" : ",") + jsonText(name) + ":[" + list + "]";
    }
    return "{" + json + "}";
}

std::string describe(TestRequest& request) {
    const ql::http::HttpUrl& url = request.getParsedUrl();
    const std::string& method = request.getMethodToken();
    return "{\"method\":" + jsonText(method) + ",\"target\":" + jsonText(request.getOriginalRequestUrl()) +
           ",\"path\":" + jsonText(url.getPath()) + ",\"query\":" + jsonText(url.getQuery()) +
           ",\"headers\":" + object(request.getHeaders().getAll()) + ",\"cookies\":" + object(request.getCookies()) +
           ",\"arguments\":" + object(request.getQueryParameters()) + ",\"body\":" + jsonText(request.readBody()) +
           ",\"parseError\":" + (request.hasParseError() ? jsonText(request.getParseError()) : "null") + "}";
}

void answer(TestRequest& request) {
    using RequestType = ql::HttpBaseRequest::RequestType;
    const std::string seen = describe(request);
    const RequestType method = request.getRequestType();
    if (method == RequestType::Head || method == RequestType::Connect) {
        request.response.headers["Seen"] = {"Seen", seen};
        request.reply();
        return;
    }
    request.response.headers["Content-Type"] = {"Content-Type", "application/json"};
    request.reply(seen);
}

} // namespace

int main(int argc, char** argv) {
    const std::set<std::string_view> arguments(argv + 1, argv + argc);
    ServerOptions options;
    if (arguments.count("--strict") != 0) {
        options.setStrictHttp(true);
        options.addMethod("BREW");
    }
    if (arguments.count("--event") != 0) {
        options.setWaiting(ServerOptions::Waiting::Event);
        options.setEndOnClientClose(false);       // as where the engine polls
        options.setConnectionMemoryBytes(262144); // likewise
    }
    ql::initializeVireo();
    {
        vireotest::TestImpl::Behaviour behaviour;
        behaviour.handler = answer;
        behaviour.workers = 16; // a client may keep one of them waiting for its body
        const TestServer server(behaviour, TestServer::parametersOfTests(), options);
        std::cout << server.port() << " " << MHD_get_version() << std::endl;
        std::cin.ignore(std::numeric_limits<std::streamsize>::max());
    }
    ql::terminateVireo();
    return 0;
}
