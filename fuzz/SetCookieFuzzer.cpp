// Cookies that are set, read back as RFC 6265 section 5.2 has browsers do it: what was said arrives, and nothing that
// was given as a value says something else.

#include "Check.h"
#include "ModelText.h"
#include "reliability/Choices.h"
#include "vireo/SetCookie.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace {

using namespace vireofuzz;
using ql::http::SetCookie;
using vireotest::Choices;

/// Name and value first, then the attributes.
std::vector<std::pair<std::string, std::string>> readAsBrowser(std::string_view header) {
    std::vector<std::pair<std::string, std::string>> parts;
    for (const std::string_view part : split(header, ';')) {
        const std::size_t equals = std::min(part.find('='), part.size());
        parts.emplace_back(trimmed(part.substr(0, equals)),
                           equals < part.size() ? trimmed(part.substr(equals + 1)) : std::string_view());
    }
    return parts;
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Choices choices(data, size);
    const std::string name = choices.takeText(choices.takeNumber(20));
    const std::string value = choices.takeText(choices.takeNumber(40));
    std::map<std::string, std::string> said;
    try {
        SetCookie cookie(name, value);
        while (!choices.isUsedUp()) {
            const unsigned int what = choices.takeByte() % 7;
            const std::string text = what < 2 ? choices.takeText(choices.takeNumber(30)) : "";
            const std::int64_t number = what == 2 || what == 3 ? choices.takeNumber(0xFFFFFFFF) : 0;
            try {
                if (what == 0) {
                    cookie.setPath(text);
                    said["Path"] = text;
                } else if (what == 1) {
                    cookie.setDomain(text);
                    said["Domain"] = text;
                } else if (what == 2) {
                    cookie.setMaxAge(number);
                    said["Max-Age"] = std::to_string(number);
                } else if (what == 3) {
                    cookie.setExpires(number);
                    said["Expires"];
                } else if (what == 4) {
                    cookie.setSecure();
                    said["Secure"];
                } else if (what == 5) {
                    cookie.setHttpOnly();
                    said["HttpOnly"];
                } else {
                    cookie.setSameSite(SetCookie::SameSite::Strict);
                    said["SameSite"] = "Strict";
                }
            } catch (const std::invalid_argument&) {
                // It changes nothing.
                continue;
            }
        }
        const std::string header = cookie.toString();
        check(header == name + "=" + cookie.getValueAndAttributes(), "the two texts differ");
        const auto parts = readAsBrowser(header);
        check(parts[0].first == name, "another name");
        check(parts[0].second == value, "another value");
        // What the prefixes of names ask for is there by itself.
        std::map<std::string, std::string> arrived(parts.begin() + 1, parts.end());
        check(arrived.size() == parts.size() - 1, "an attribute is there twice");
        if (name.size() >= 7 && name.starts_with("__")) {
            for (const char* implied : {"Secure", "Path"}) {
                if (!said.contains(implied)) {
                    arrived.erase(implied);
                }
            }
        }
        check(arrived.size() == said.size(), "more attributes, or fewer");
        for (const auto& [attribute, text] : said) {
            check(arrived.contains(attribute), "an attribute is missing");
            check(attribute == "Expires" || arrived[attribute] == text, "an attribute has another value");
        }
    } catch (const std::invalid_argument&) {
        return 0;
    }
    return 0;
}
