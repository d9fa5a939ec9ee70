// The splitting of header values at their commas, beside a model.

#include "Check.h"
#include "reliability/Choices.h"
#include "vireo/support/HttpHeaders.h"

#include <cstddef>
#include <cstdint>
#include <list>
#include <string>

namespace {

using namespace vireofuzz;
using namespace vireotest;

bool isBlank(char c) {
    return c == ' ' || c == '\t';
}

/// Whether the quoted string that begins here also ends.
bool isClosed(const std::string& value, std::size_t quote) {
    for (std::size_t i = quote + 1; i < value.size(); ++i) {
        if (value[i] == '"') {
            return true;
        }
        i += value[i] == '\\' ? 1U : 0U;
    }
    return false;
}

/// Splits character by character. @return false for what is no value.
bool split(const std::string& value, std::list<std::string>& elements) {
    std::string element;
    const auto end = [&] {
        while (!element.empty() && isBlank(element.back())) {
            element.pop_back();
        }
        if (!element.empty()) {
            elements.push_back(element);
        }
        element.clear();
    };
    bool inQuotes = false;
    for (std::size_t i = 0; i < value.size(); ++i) {
        const char c = value[i];
        const auto byte = static_cast<unsigned char>(c);
        if ((byte < 32 && byte != 9) || byte == 127) {
            return false;
        }
        if (!inQuotes && c == ',') {
            end();
        } else if (!element.empty() || !isBlank(c)) {
            element += c;
            if (c == '"') {
                inQuotes = !inQuotes && isClosed(value, i);
            } else if (inQuotes && c == '\\' && i + 1 < value.size()) {
                const auto next = static_cast<unsigned char>(value[i + 1]);
                if ((next >= 32 && next != 127) || next == 9) {
                    element += value[++i];
                }
            }
        }
    }
    end();
    if (elements.empty()) {
        elements.emplace_back();
    }
    return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Choices input(data, size);
    std::string value = input.takeRest();
    value.resize(value.find('\0') == std::string::npos ? value.size() : value.find('\0'));

    const std::list<std::string> before{"was here"};
    std::list<std::string> elements = before;
    const bool isValue = ql::http::HttpHeaders::ParseMultiValueHeader(value.c_str(), elements);
    check(elements.front() == "was here", "a value that was there is touched");
    elements.pop_front();

    std::list<std::string> expected;
    const bool isExpected = split(value, expected);
    check(isValue == isExpected, "a value is taken or refused against the rules");
    if (!isValue) {
        check(elements.empty(), "a refused value leaves elements");
        return 0;
    }
    check(elements == expected, "other elements than the rules give");

    // What was split once is not split again.
    for (const std::string& element : elements) {
        std::list<std::string> again;
        check(ql::http::HttpHeaders::ParseMultiValueHeader(element.c_str(), again) &&
                  again == std::list<std::string>{element},
              "an element is split again");
    }
    return 0;
}
