// Routes and paths: a table of patterns beside a reading that looks at each of them by itself.
//
// An input is lines: those of the routes, each a letter for the method and a pattern, an empty one, and those of the
// requests, each a letter and a target.

#include "Check.h"
#include "app/kernel/Endpoint.h"
#include "app/request/HeadView.h"
#include "app/routing/NaiveTable.h"
#include "app/routing/Pattern.h"
#include "app/routing/RouteTable.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace {

using namespace vireofuzz;
using vireo::impl::Endpoint;
using vireo::impl::HeadView;
using vireo::impl::Match;
using vireo::impl::Pattern;
using vireo::impl::RouteTable;
using vireotest::NaiveTable;

constexpr std::size_t MaxRoutes = 32;
constexpr std::size_t MaxRequests = 8;

std::string_view takeLine(std::string_view& text) {
    const std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(line.size() + 1, text.size()));
    return line;
}

std::string methodOf(std::string_view line) {
    constexpr std::array<const char*, 4> Methods{"GET", "HEAD", "POST", "PROPFIND"};
    return Methods[static_cast<unsigned char>(line[0]) % Methods.size()];
}

struct Tables {
    RouteTable table;
    NaiveTable naive;
    std::vector<std::shared_ptr<const Endpoint>> endpoints;

    /// @return false when the route is wrong.
    bool add(std::string_view line) {
        auto endpoint = std::make_shared<Endpoint>();
        endpoint->method = methodOf(line);
        endpoint->pattern = line.substr(1);
        try {
            table.add(endpoint);
        } catch (const std::invalid_argument&) {
            return false;
        }
        naive.add(endpoint->method, endpoint->pattern);
        endpoints.push_back(endpoint);
        return true;
    }
};

/// The parameters of a match, by their names.
void checkValues(const HeadView& head, const std::string& pattern, const std::vector<std::string>& values) {
    std::size_t index = 0;
    for (const Pattern::Segment& segment : Pattern::parse(pattern).segments) {
        if (segment.kind != Pattern::Kind::Literal) {
            const std::string* const value = head.findPath(segment.text);
            check(value != nullptr && index < values.size() && *value == values[index],
                  "a parameter has another value");
            ++index;
        }
    }
    check(index == values.size(), "there are other parameters");
}

std::string allowOf(const std::vector<std::string>& methods) {
    std::set<std::string> all(methods.begin(), methods.end());
    all.insert("OPTIONS");
    if (all.contains("GET")) {
        all.insert("HEAD");
    }
    std::string text;
    for (const std::string& method : all) {
        text += (text.empty() ? "" : ", ") + method;
    }
    return text;
}

bool isToggled(const NaiveTable& naive, const std::string& method, std::vector<std::string> path) {
    if (path.empty() || path.front().empty()) {
        return false;
    }
    if (path.back().empty()) {
        path.pop_back();
    } else {
        path.emplace_back();
    }
    return naive.match(method, path).has_value();
}

void ask(const Tables& tables, std::string_view line) {
    const std::string method = methodOf(line);
    const std::string target(line.substr(1));
    HeadView head(method, target, std::span<const ql::HeaderLine>(), ql::IpAddress(), nullptr, nullptr);
    if (head.split() != HeadView::Fault::None) {
        return;
    }
    const std::vector<std::string> path(head.segments().begin(), head.segments().end());
    const Match match = tables.table.match(method, head.segments());
    const std::optional<NaiveTable::Found> best = tables.naive.match(method, path);
    check((match.outcome == Match::Outcome::Found) == best.has_value(), "one finds a route, the other doesn't");
    if (best) {
        check(match.endpoint == tables.endpoints[best->route], "they find two routes");
        head.setMatch(match);
        checkValues(head, match.endpoint->pattern, best->values);
        return;
    }
    const std::vector<std::string> methods = tables.naive.methods(path);
    check((match.outcome == Match::Outcome::OtherMethod) == !methods.empty(), "other methods are there, or not");
    check(tables.table.allow(head.segments()) == allowOf(methods), "other methods are allowed");
    check((match.outcome == Match::Outcome::ToggledSlash) == (methods.empty() && isToggled(tables.naive, method, path)),
          "a slash is toggled, or not");
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::string_view text(reinterpret_cast<const char*>(data), size);
    Tables tables;
    // A wrong one throws, which takes as long as all the rest: the first is the last that is added.
    bool isRight = true;
    for (std::size_t i = 0; i < MaxRoutes; ++i) {
        const std::string_view line = takeLine(text);
        if (line.empty()) {
            break;
        }
        isRight = isRight && tables.add(line);
    }
    check(tables.table.mostVisits() > 0, "nothing is visited");
    for (std::size_t i = 0; i < MaxRequests && !text.empty(); ++i) {
        const std::string_view line = takeLine(text);
        if (!line.empty()) {
            ask(tables, line);
        }
    }
    return 0;
}
