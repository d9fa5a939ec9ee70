#include "app/kernel/FieldRules.h"

#include "frame/HttpSyntax.h"
#include "frame/InvalidArgument.h"

#include <algorithm>
#include <array>
#include <string>

namespace vireo::impl {

namespace {

constexpr std::array<std::string_view, 16> SingularFields = {"Accept-Ranges",
                                                             "Access-Control-Allow-Origin",
                                                             "Age",
                                                             "Content-Disposition",
                                                             "Content-Encoding",
                                                             "Content-Location",
                                                             "Date",
                                                             "Content-Range",
                                                             "Content-Type",
                                                             "ETag",
                                                             "Expires",
                                                             "Last-Modified",
                                                             "Location",
                                                             "Retry-After",
                                                             "Server",
                                                             "Strict-Transport-Security"};

} // namespace

void checkField(std::string_view name, std::string_view value) {
    if (!ql::impl::isToken(name)) {
        ql::impl::throwInvalidArgument("\"" + std::string(name) + "\" is no name of a header");
    }
    if (!ql::impl::isFieldValue(value)) {
        ql::impl::throwInvalidArgument("the header " + std::string(name) + " is given a value with control characters");
    }
    if (ql::impl::isSameWord(name, "Content-Length") || ql::impl::isSameWord(name, "Transfer-Encoding")) {
        ql::impl::throwInvalidArgument("the header " + std::string(name) + " is set by the library");
    }
}

bool isSingular(std::string_view name) {
    return std::ranges::any_of(SingularFields,
                               [name](std::string_view singular) { return ql::impl::isSameWord(name, singular); });
}

} // namespace vireo::impl
