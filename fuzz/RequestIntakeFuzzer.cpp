// Headers, cookies, query arguments, methods and targets, in any order, beside a model.

#include "Check.h"
#include "reliability/Choices.h"
#include "support/FakeRequest.h"
#include "vireo/Vireo.h"

#include <cstddef>
#include <cstdint>
#include <list>
#include <map>
#include <string>
#include <utility>

namespace {

using namespace vireofuzz;
using namespace vireotest;
using Values = std::map<std::string, std::list<std::string>>;

/// By decoding: each sequence must give a code point that takes so many bytes.
bool isUtf8(const std::string& text) {
    std::size_t i = 0;
    while (i < text.size()) {
        const auto lead = static_cast<unsigned char>(text[i]);
        const std::size_t count = lead < 0x80        ? 1
                                  : lead >> 5U == 6  ? 2
                                  : lead >> 4U == 14 ? 3
                                  : lead >> 3U == 30 ? 4
                                                     : 0;
        if (count == 0 || text.size() - i < count) {
            return false;
        }
        std::uint32_t point = count == 1 ? lead : lead & (0xFFU >> (count + 1));
        for (std::size_t k = 1; k < count; ++k) {
            const auto next = static_cast<unsigned char>(text[i + k]);
            if (next >> 6U != 2) {
                return false;
            }
            point = point << 6U | (next & 0x3FU);
        }
        const std::uint32_t least = count == 1 ? 0 : count == 2 ? 0x80 : count == 3 ? 0x800 : 0x10000;
        if (point < least || point > 0x10FFFF || (point >= 0xD800 && point <= 0xDFFF)) {
            return false;
        }
        i += count;
    }
    return true;
}

bool isPrintable(const std::string& text) {
    for (const char c : text) {
        if (c < ' ' || c > '~') {
            return false;
        }
    }
    return true;
}

/// What the request must have filed.
struct Model {
    Values headers;
    Values cookies;
    Values query;
    std::uint64_t bytes = 0;
    bool failed = false;
    std::string error;

    void fail(const std::string& message) {
        failed = true;
        if (error.empty()) {
            error = message;
        }
    }

    bool isText(const std::string& what, const std::string& text) {
        if (!isUtf8(text)) {
            fail(what + " is non utf8");
            return false;
        }
        if (!isPrintable(text)) {
            fail(what + " contains ASCII forbidden characters");
            return false;
        }
        return true;
    }

    void addHeader(const std::string& name, const std::string& value) {
        if (name.size() + value.size() > 8096) {
            fail("header too long");
            return;
        }
        if (!isText("header name", name)) {
            return;
        }
        std::string key;
        for (const char c : name) {
            key += c >= 'A' && c <= 'Z' ? static_cast<char>(c | 0x20) : c;
        }
        std::list<std::string> elements; // the splitting has a fuzzer of its own
        if (!ql::http::HttpHeaders::ParseMultiValueHeader(value.c_str(), elements)) {
            fail("fail to parse header '" + key + "'");
            return;
        }
        headers[key].splice(headers[key].end(), elements);
        bytes += name.size() + 3 + value.size();
    }

    void addCookie(const std::string& name, const std::string& value) {
        if (name.size() + value.size() > 8096) {
            fail("cookie too long");
            return;
        }
        if (isText("cookie name", name) && isText("cookie data", value)) {
            cookies[name].push_back(value);
            bytes += name.size() + 11 + value.size();
        }
    }

    void addQueryParameter(const std::string& name, const std::string& value) {
        if (isText("query parameter name", name) && isText("query parameter value", value)) {
            query[name].push_back(value);
        }
    }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const bool isInitialized = (ql::initializeVireo(), true);
    check(isInitialized, "not initialized");

    Choices input(data, size);
    vireotest::FakeServerImpl application;
    vireotest::FakeRequest request(application);
    Model model;
    while (!input.isUsedUp()) {
        const unsigned int operation = input.takeNumber(7);
        std::string name = input.takeCText();
        std::string value = input.takeCText();
        if (input.takeByte() == 255) {
            value.append(input.takeNumber(9000), 'v'); // beyond the limits
        }
        switch (operation) {
        case 0:
        case 1:
            request.addHeader(name.c_str(), value.c_str());
            model.addHeader(name, value);
            break;
        case 2:
            request.addCookie(name.c_str(), value.c_str());
            model.addCookie(name, value);
            break;
        case 3:
            request.addCookie(name.c_str(), nullptr);
            model.addCookie(name, {});
            break;
        case 4:
            request.addQueryParameter(name.c_str(), value.c_str());
            model.addQueryParameter(name, value);
            break;
        case 5:
            request.addQueryParameter(name.c_str(), nullptr);
            model.addQueryParameter(name, {});
            break;
        case 6: {
            const auto before = request.getRequestType();
            request.setHttpMethod(name);
            if (ql::HttpBaseRequest::sRequestTypes.count(name) == 0) {
                model.fail("Unexpected HTTP method");
                check(request.getRequestType() == before, "an unknown method changes the type");
            } else {
                check(ql::HttpBaseRequest::RequestTypeToString(request.getRequestType()) == name, "another method");
            }
            break;
        }
        default: {
            const std::string target = name + value;
            request.setOriginalFullUrl(name + value);
            if (target.size() > 4096) {
                model.fail("URI is too long");
            } else if (!request.getParsedUrl().isValid()) {
                check(request.hasParseError(), "a target is refused without an error");
                model.fail(request.getParseError());
            } else {
                check(request.getOriginalRequestUrl() == target, "another target");
                check(request.getParsedUrl().toString() == "http://127.0.0.1:80" + target, "another URL");
                break;
            }
            check(request.getOriginalRequestUrl() == "Invalid URI", "a refused target is kept");
            break;
        }
        }
        check(request.hasParseError() == model.failed, "an error is missed or made up");
        check(request.getParseError() == model.error, "another error than the first");
    }
    check(request.getHeaders().getAll() == model.headers, "other headers");
    check(request.getCookies() == model.cookies, "other cookies");
    check(request.getQueryParameters() == model.query, "other query parameters");
    check(request.getHeaderReceivedByteCountEstimation() == model.bytes, "another estimate");
    for (const auto& [name, values] : model.cookies) {
        check(*request.getCookie(name.c_str()) == values, "a cookie is not found");
    }
    for (const auto& [name, values] : model.headers) {
        check(*request.getHeader(name.c_str()) == values, "a header is not found");
    }
    return 0;
}
