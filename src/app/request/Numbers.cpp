#include "vireo/app/Request.h"

#include <charconv>
#include <cmath>
#include <system_error>

namespace vireo::impl {

namespace {

template <class Number>
bool readWhole(std::string_view text, Number& value) {
    const char* const end = text.data() + text.size();
    Number number{};
    const auto [parsed, error] = std::from_chars(text.data(), end, number);
    if (parsed != end || error != std::errc()) {
        return false;
    }
    value = number;
    return true;
}

template <class Number>
bool readFinite(std::string_view text, Number& value) {
    Number number{};
    if (!readWhole(text, number) || !std::isfinite(number)) {
        return false;
    }
    value = number;
    return true;
}

} // namespace

bool readNumber(std::string_view text, std::int64_t& value) {
    return readWhole(text, value);
}

bool readNumber(std::string_view text, std::uint64_t& value) {
    return readWhole(text, value);
}

bool readNumber(std::string_view text, double& value) {
    return readFinite(text, value);
}

bool readNumber(std::string_view text, float& value) {
    return readFinite(text, value);
}

bool readBool(std::string_view text, bool& value) {
    for (const std::string_view yes : {"true", "1", "on", "yes"}) {
        if (text == yes) {
            value = true;
            return true;
        }
    }
    for (const std::string_view no : {"false", "0", "off", "no"}) {
        if (text == no) {
            value = false;
            return true;
        }
    }
    return false;
}

} // namespace vireo::impl
