// JSON as bodies bring it, beside the parser's own way to make a value, which has no bounds.

#include "Check.h"
#include "vireo/app/HttpError.h"
#include "vireo/app/Json.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace {

using namespace vireofuzz;
using vireo::Json;

/// Few, so that short texts reach it.
constexpr std::size_t MaxValues = 40;

std::size_t valuesIn(const Json& json) {
    std::size_t count = 1;
    for (const Json& part : json) {
        count += json.is_structured() ? valuesIn(part) : 0;
    }
    return count;
}

std::size_t depthOf(const Json& json) {
    std::size_t deepest = 0;
    if (json.is_structured()) {
        for (const Json& part : json) {
            deepest = std::max(deepest, depthOf(part));
        }
        ++deepest;
    }
    return deepest;
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    vireo::impl::JsonReader reader(MaxValues);
    std::optional<int> refusal;
    try {
        Json::sax_parse(text, &reader);
    } catch (const vireo::HttpError& error) {
        refusal = error.status();
    }
    const Json expected = Json::parse(text, nullptr, false);
    if (!refusal) {
        check(!expected.is_discarded(), "what is no JSON is taken");
        check(reader.take() == expected, "another value");
        check(valuesIn(expected) <= MaxValues, "too many values are taken");
        check(depthOf(expected) <= static_cast<std::size_t>(vireo::MaxJsonDepth), "too deep a nesting is taken");
    } else if (!expected.is_discarded()) {
        // A name that comes twice counts twice.
        const bool isLarge =
            std::count(text.begin(), text.end(), ',') + 1 >= static_cast<std::ptrdiff_t>(MaxValues / 2);
        const bool isDeep = depthOf(expected) > static_cast<std::size_t>(vireo::MaxJsonDepth);
        check(*refusal == (isDeep ? *refusal : 413) && (isDeep || isLarge || valuesIn(expected) > MaxValues),
              "what is JSON is refused");
    }
    return 0;
}
