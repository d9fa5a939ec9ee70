#include "request/LineIntake.h"

#include "frame/HttpSyntax.h"
#include "request/RequestAccess.h"
#include "request/RequestState.h"

#include <cstddef>
#include <utility>

namespace ql::impl {

namespace {

/// Puts a text behind the others. @return where it is now.
std::string_view keep(std::string& bytes, std::string_view text) {
    const std::size_t begin = bytes.size();
    bytes.append(text);
    return std::string_view(bytes).substr(begin);
}

} // namespace

void fileLines(HttpBaseRequest& request, std::string_view method, std::string&& target, std::vector<HeaderLine>&& lines,
               const std::optional<std::string>& authority) {
    RequestAccess::setMethod(request, method);
    RequestAccess::setTargetAsItCame(request, std::move(target));
    bool isReplaced = false;
    for (HeaderLine& line : lines) {
        if (authority && isSameWord(line.name, "Host")) {
            line.value = *authority;
            isReplaced = true;
        }
        // Engine 0.9.75 keeps the blanks behind a value.
        line.value = withoutBlanks(line.value);
    }
    if (authority && !isReplaced) {
        lines.push_back({"Host", *authority});
    }
    std::size_t size = 0;
    for (const HeaderLine& line : lines) {
        size += line.name.size() + line.value.size();
    }
    std::string& bytes = RequestAccess::state(request).lineBytes;
    bytes.reserve(size);
    for (HeaderLine& line : lines) {
        line.name = keep(bytes, line.name);
        line.value = keep(bytes, line.value);
        RequestAccess::countHeaderLine(request, line.name.size() + line.value.size());
    }
    RequestAccess::state(request).lines = std::move(lines);
}

} // namespace ql::impl
