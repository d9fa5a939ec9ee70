#include "app/request/Cookies.h"

#include "frame/HttpSyntax.h"

#include <algorithm>
#include <cstddef>
#include <string>

namespace vireo::impl {

void parseCookies(std::string_view line, std::vector<Cookie>& cookies) {
    while (!line.empty()) {
        const std::string_view pair = line.substr(0, line.find(';'));
        line.remove_prefix((std::min)(pair.size() + 1, line.size()));
        const std::size_t equals = pair.find('=');
        if (equals == std::string_view::npos) {
            continue;
        }
        const std::string_view name = ql::impl::withoutBlanks(pair.substr(0, equals));
        std::string_view value = ql::impl::withoutBlanks(pair.substr(equals + 1));
        if (value.size() > 1 && value.front() == '"' && value.back() == '"') {
            value = value.substr(1, value.size() - 2);
        }
        if (!name.empty()) {
            cookies.push_back({std::string(name), std::string(value)});
        }
    }
}

} // namespace vireo::impl
