#include "request/LineIntake.h"

#include "frame/HttpSyntax.h"
#include "request/RequestAccess.h"
#include "request/RequestState.h"

#include <algorithm>
#include <cstddef>

namespace ql::impl {

namespace {

/// Puts a text behind the others. @return where it is now.
std::string_view keep(std::string& bytes, std::string_view text) {
    const std::size_t begin = bytes.size();
    bytes.append(text);
    return std::string_view(bytes).substr(begin);
}

} // namespace

void fileLines(HttpBaseRequest& request, std::string_view method, std::string&& target,
               const std::vector<std::pair<std::string_view, std::string_view>>& fields,
               const std::optional<std::string>& authority) {
    RequestAccess::setMethod(request, method);
    RequestAccess::setTargetAsItCame(request, std::move(target));
    std::vector<HeaderLine> lines;
    lines.reserve(fields.size() + 1);
    for (const auto& [name, value] : fields) {
        const bool isReplaced = authority && isSameWord(name, "Host");
        // Engine 0.9.75 keeps the blanks behind a value.
        lines.push_back({name, isReplaced ? std::string_view(*authority) : withoutBlanks(value)});
    }
    if (authority &&
        std::ranges::none_of(lines, [](const HeaderLine& line) { return isSameWord(line.name, "Host"); })) {
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
