#include "frame/HttpSyntax.h"
#include "vireo/app/HttpError.h"
#include "vireo/app/Request.h"

#include <string_view>

namespace vireo::impl {

void requireJsonType(const Request& request) {
    const std::string_view header = request.header("Content-Type");
    const std::string_view type = ql::impl::withoutBlanks(header.substr(0, header.find(';')));
    constexpr std::string_view Begin = "application/";
    constexpr std::string_view Suffix = "+json";
    const bool hasSuffix = type.size() > Begin.size() + Suffix.size() &&
                           ql::impl::isSameWord(type.substr(0, Begin.size()), Begin) &&
                           ql::impl::isSameWord(type.substr(type.size() - Suffix.size()), Suffix) &&
                           ql::impl::isToken(type.substr(Begin.size()));
    const bool isJson = hasSuffix || ql::impl::isSameWord(type, "application/json");
    if (!isJson) {
        throw HttpError(415, "the body is to be application/json");
    }
}

} // namespace vireo::impl
