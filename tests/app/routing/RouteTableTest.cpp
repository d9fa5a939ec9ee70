#include "app/routing/RouteTable.h"

#include "app/kernel/Endpoint.h"
#include "app/routing/NaiveTable.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

namespace {

using vireo::impl::Endpoint;
using vireo::impl::Match;
using vireo::impl::RouteTable;
using vireo::impl::ScopeRules;
using vireo::impl::SocketMethod;
using vireotest::NaiveTable;
using Outcome = Match::Outcome;
using Scope = std::shared_ptr<const ScopeRules>;

using Path = std::vector<std::string>;

/// A path as a table takes it; its texts are the path's.
std::vector<std::string_view> viewsOf(const Path& path) {
    return {path.begin(), path.end()};
}

Path pathOf(std::string_view text) {
    return NaiveTable::split(text.substr(1));
}

void add(RouteTable& table, std::string_view method, std::string_view pattern, Scope scope = nullptr) {
    auto endpoint = std::make_shared<Endpoint>();
    endpoint->method = method;
    endpoint->pattern = pattern;
    endpoint->scope = std::move(scope);
    table.add(std::move(endpoint));
}

Scope addScope(RouteTable& table, std::string_view prefix, Scope parent) {
    auto scope = std::make_shared<ScopeRules>();
    scope->prefix = prefix;
    scope->parent = std::move(parent);
    table.addScope(scope);
    return scope;
}

std::string rest(const Match& match, const Path& path) {
    std::string text;
    for (std::size_t i = match.restFrom; i < path.size(); ++i) {
        text += (i == match.restFrom ? "" : "/") + path[i];
    }
    return text;
}

/// What a table finds, in words: the pattern and the values, or the outcome.
std::string find(const RouteTable& table, std::string_view method, const Path& path) {
    const std::vector<std::string_view> segments = viewsOf(path);
    const Match match = table.match(method, segments);
    switch (match.outcome) {
    case Outcome::Found:
        break;
    case Outcome::OtherMethod:
        return "other method";
    case Outcome::SocketOnly:
        return "socket only";
    case Outcome::ToggledSlash:
        return "toggled slash";
    case Outcome::Nothing:
        return "nothing";
    }
    std::string text = match.endpoint->pattern;
    for (std::size_t i = 0; i < match.count; ++i) {
        text += " " + std::string(match.values[i]);
    }
    return match.restFrom == Match::NoRest ? text : text + " " + rest(match, path);
}

std::string find(const RouteTable& table, std::string_view method, std::string_view path) {
    return find(table, method, pathOf(path));
}

TEST(RouteTable, FindsTheMostSpecialInEachOrderOfAdding) {
    std::vector<std::string> patterns{"/a/b", "/a/{n:int}", "/a/{u:uuid}", "/a/{t}", "/{first}/b", "/a/{rest:path}"};
    constexpr std::string_view Uuid = "01234567-89ab-cdef-0123-456789abcdef";
    const std::vector<std::pair<std::string, std::string>> cases{
        {"/a/b", "/a/b"},
        {"/a/12", "/a/{n:int} 12"},
        {"/a/" + std::string(Uuid), "/a/{u:uuid} " + std::string(Uuid)},
        {"/a/c", "/a/{t} c"},
        {"/c/b", "/{first}/b c"},
        {"/a/b/c", "/a/{rest:path} b/c"},
        {"/a//", "/a/{rest:path} /"},
        {"/a//c", "/a/{rest:path} /c"},
        {"/a/c/", "/a/{rest:path} c/"},
        {"/a/", "nothing"},
        {"/c/d", "nothing"},
        {"/", "nothing"},
        {"/A/b", "/{first}/b A"},
    };
    std::ranges::sort(patterns);
    do {
        RouteTable table;
        for (const std::string& pattern : patterns) {
            add(table, "GET", pattern);
        }
        for (const auto& [path, expected] : cases) {
            ASSERT_EQ(find(table, "GET", path), expected) << path;
        }
    } while (std::ranges::next_permutation(patterns).found);
}

TEST(RouteTable, ALeafWithoutTheMethodIsPassedOver) {
    RouteTable table;
    add(table, "GET", "/a/b");
    add(table, "PUT", "/a/{n:int}");
    add(table, "POST", "/a/{t}");
    add(table, "DELETE", "/{rest:path}");
    EXPECT_EQ(find(table, "GET", "/a/b"), "/a/b");
    EXPECT_EQ(find(table, "POST", "/a/b"), "/a/{t} b");
    EXPECT_EQ(find(table, "POST", "/a/1"), "/a/{t} 1");
    EXPECT_EQ(find(table, "DELETE", "/a/1"), "/{rest:path} a/1");
    EXPECT_EQ(find(table, "PATCH", "/a/1"), "other method");
}

TEST(RouteTable, AWayThatLeadsNowhereIsGivenUp) {
    RouteTable table;
    add(table, "GET", "/a/b/c");
    add(table, "GET", "/{x}/b/d");
    add(table, "GET", "/{x}/{y}/{z}/e");
    add(table, "GET", "/a/{all:path}");
    EXPECT_EQ(find(table, "GET", "/a/b/c"), "/a/b/c");
    EXPECT_EQ(find(table, "GET", "/a/b/d"), "/a/{all:path} b/d");
    EXPECT_EQ(find(table, "GET", "/z/b/d"), "/{x}/b/d z");
    EXPECT_EQ(find(table, "GET", "/z/b/d/e"), "/{x}/{y}/{z}/e z b d");
    EXPECT_EQ(find(table, "GET", "/z/b/d/f"), "nothing");
}

TEST(RouteTable, HeadIsServedByGetUnlessItHasARouteOfItsOwn) {
    RouteTable table;
    add(table, "GET", "/a");
    add(table, "GET", "/b");
    add(table, "HEAD", "/{x}");
    add(table, "HEAD", "/b");
    EXPECT_EQ(find(table, "HEAD", "/a"), "/a");
    const Path path{"b"};
    EXPECT_EQ(table.match("HEAD", viewsOf(path)).endpoint->method, "HEAD");
    EXPECT_EQ(find(table, "HEAD", "/c"), "/{x} c");
    EXPECT_EQ(find(table, "POST", "/a"), "other method");
}

TEST(RouteTable, MethodsThatTakeTheSamePathsAreRefusedWithBothPatterns) {
    RouteTable table;
    add(table, "GET", "/a/{id:int}/b");
    add(table, "POST", "/a/{id:int}/b");
    add(table, "GET", "/a/{id}/b");
    try {
        add(table, "GET", "/%61/{number:int}/b");
        FAIL() << "not refused";
    } catch (const std::invalid_argument& error) {
        const std::string text = error.what();
        EXPECT_NE(text.find("/a/{id:int}/b"), std::string::npos) << text;
        EXPECT_NE(text.find("/%61/{number:int}/b"), std::string::npos) << text;
        EXPECT_NE(text.find("GET"), std::string::npos) << text;
    }
    EXPECT_THROW(add(table, "GET", "bad"), std::invalid_argument);
}

TEST(RouteTable, AllowHasAllMethodsOfThePath) {
    RouteTable table;
    add(table, "PUT", "/a/{n:int}");
    add(table, "GET", "/a/{t}");
    add(table, "DELETE", "/{rest:path}");
    add(table, std::string(SocketMethod), "/a/1");
    const auto allow = [&](std::string_view text) {
        const Path path = pathOf(text);
        return table.allow(viewsOf(path));
    };
    EXPECT_EQ(allow("/a/1"), "DELETE, GET, HEAD, OPTIONS, PUT");
    EXPECT_EQ(allow("/a/x"), "DELETE, GET, HEAD, OPTIONS");
    EXPECT_EQ(allow("/b"), "DELETE, OPTIONS");
}

TEST(RouteTable, WebSocketsAreFoundByTheirOwnMethodAlone) {
    RouteTable table;
    add(table, SocketMethod, "/chat/{room}");
    add(table, SocketMethod, "/both");
    add(table, "GET", "/both");
    EXPECT_EQ(find(table, SocketMethod, "/chat/tea"), "/chat/{room} tea");
    EXPECT_EQ(find(table, "GET", "/chat/tea"), "socket only");
    EXPECT_EQ(find(table, "GET", "/both"), "/both");
    EXPECT_EQ(find(table, "POST", "/both"), "other method");
    EXPECT_EQ(find(table, "WEBSOCKET", "/both"), "other method");
}

TEST(RouteTable, ATrailingSlashIsToggledWhereThereIsNothingElse) {
    RouteTable table;
    add(table, "GET", "/a");
    add(table, "GET", "/b/");
    add(table, "POST", "/b");
    add(table, "GET", "/c/{x}/");
    add(table, "PUT", "/{x}/d");
    EXPECT_EQ(find(table, "GET", "/a/"), "toggled slash");
    EXPECT_EQ(find(table, "HEAD", "/a/"), "toggled slash");
    EXPECT_EQ(find(table, "POST", "/a/"), "nothing");
    EXPECT_EQ(find(table, "GET", "/c/1"), "toggled slash");
    // A path that is there for other methods is answered by them.
    EXPECT_EQ(find(table, "GET", "/b"), "other method");
    EXPECT_EQ(find(table, "GET", "/a//"), "nothing");
    EXPECT_EQ(find(table, "GET", "/"), "nothing");
}

TEST(RouteTable, NoPathThatWouldLeadToAnotherHostIsToggled) {
    RouteTable table;
    add(table, "GET", "/{all:path}");
    add(table, "PUT", "/");
    EXPECT_EQ(find(table, "GET", "//example.org/"), "/{all:path} /example.org/");
    EXPECT_EQ(find(table, "PUT", "//"), "other method");
    RouteTable slash;
    add(slash, "GET", "/");
    EXPECT_EQ(find(slash, "GET", "//"), "nothing");
    RouteTable rest;
    add(rest, "GET", "/a/{x:path}");
    EXPECT_EQ(find(rest, "GET", "/a"), "nothing");
}

TEST(RouteTable, TheTargetOfTheWholeServerHasNoRoute) {
    RouteTable table;
    const Scope app = addScope(table, "", nullptr);
    add(table, "GET", "/{all:path}", app);
    add(table, "OPTIONS", "/", app);
    const Match match = table.match("OPTIONS", {});
    EXPECT_EQ(match.outcome, Outcome::Nothing);
    EXPECT_EQ(match.scope, app);
}

TEST(RouteTable, AutomaticAnswersGoByTheDeepestScopeOfAllRoutesOfTheBestLeaf) {
    RouteTable table;
    const Scope app = addScope(table, "", nullptr);
    const Scope api = addScope(table, "/api", app);
    const Scope users = addScope(table, "/api/users", api);
    const Scope notes = addScope(table, "/api/notes", api);
    add(table, "GET", "/api/users/{id}", users);
    add(table, "PUT", "/api/{kind}/{id}", api);
    add(table, "GET", "/api/notes/all", notes);
    add(table, "POST", "/api/notes/all", notes);
    add(table, "GET", "/api/notes/{id}", users);
    const auto scopeOf = [&](std::string_view method, std::string_view text) {
        const Path path = pathOf(text);
        const Match match = table.match(method, viewsOf(path));
        EXPECT_NE(match.outcome, Outcome::Found) << text;
        return match.scope;
    };
    add(table, "GET", "/{path:path}", app);
    add(table, "GET", "/api/mixed", users);
    add(table, "PUT", "/api/mixed", notes);
    EXPECT_EQ(scopeOf("POST", "/api/users/1"), users);
    EXPECT_EQ(scopeOf("OPTIONS", "/api/notes/all"), notes);
    EXPECT_EQ(scopeOf("PUT", "/api/notes/all/files"), app);
    EXPECT_EQ(scopeOf("POST", "/api/mixed"), api);
}

TEST(RouteTable, NothingGoesByTheDeepestPrefix) {
    RouteTable table;
    const Scope app = addScope(table, "", nullptr);
    const Scope users = addScope(table, "/users/{id:int}", app);
    const Scope deep = addScope(table, "/{any}/{thing}/x", app);
    const Scope me = addScope(table, "/users/me", app);
    addScope(table, "/users/me", app);
    const auto scopeOf = [&](std::string_view text) {
        const Path path = pathOf(text);
        return table.match("GET", viewsOf(path)).scope;
    };
    EXPECT_EQ(scopeOf("/"), app);
    EXPECT_EQ(scopeOf("/other"), app);
    EXPECT_EQ(scopeOf("/users"), app);
    EXPECT_EQ(scopeOf("/users/ada"), app);
    EXPECT_EQ(scopeOf("/users/7"), users);
    EXPECT_EQ(scopeOf("/users/7/y"), users);
    EXPECT_EQ(scopeOf("/users/7/x/y"), deep);
    EXPECT_EQ(scopeOf("/users/me/y"), me);
    EXPECT_EQ(scopeOf("/users/mean"), app);
}

TEST(RouteTable, DirectoriesGoByTheRulesOfGroupsWithin) {
    RouteTable table;
    const Scope app = addScope(table, "", nullptr);
    const Scope site = addScope(table, "", app);
    const Scope api = addScope(table, "/api", app);
    const Scope inner = addScope(table, "/site/inner", site);
    const auto addDirectory = [&table](std::string_view method, std::string_view pattern, const Scope& scope) {
        auto endpoint = std::make_shared<Endpoint>();
        endpoint->method = method;
        endpoint->pattern = pattern;
        endpoint->scope = scope;
        endpoint->isDirectory = true;
        table.add(std::move(endpoint));
    };
    addDirectory("GET", "/{path:path}", app);
    addDirectory("GET", "/site/{path:path}", site);
    addDirectory("GET", "/api/static/{path:path}", app);
    add(table, "POST", "/login", app);
    add(table, "GET", "/site/{any}/page", app);
    const auto match = [&table](std::string_view method, std::string_view text, bool isBeside = false) {
        const Path path = pathOf(text);
        return isBeside ? table.matchBesideDirectories(method, viewsOf(path)) : table.match(method, viewsOf(path));
    };
    const auto patternOf = [](const Match& found) {
        return found.outcome == Outcome::Found ? found.endpoint->pattern : std::string();
    };
    EXPECT_EQ(patternOf(match("GET", "/x")), "/{path:path}");
    EXPECT_EQ(match("GET", "/x").scope, nullptr);
    EXPECT_EQ(patternOf(match("HEAD", "/api/x")), "/{path:path}");
    EXPECT_EQ(match("GET", "/api/x").scope, api);
    EXPECT_EQ(match("GET", "/api").scope, api);
    EXPECT_EQ(patternOf(match("GET", "/api/static/x")), "/api/static/{path:path}");
    EXPECT_EQ(match("GET", "/api/static/x").scope, nullptr) << "the directory has the longer prefix";
    EXPECT_EQ(patternOf(match("GET", "/site/inner/x")), "/site/{path:path}");
    EXPECT_EQ(match("GET", "/site/inner/x").scope, inner);
    EXPECT_EQ(match("POST", "/x").outcome, Outcome::OtherMethod);
    EXPECT_EQ(match("POST", "/api/x").outcome, Outcome::Nothing);
    EXPECT_EQ(match("POST", "/api/x").scope, api);

    EXPECT_EQ(match("GET", "/x", true).outcome, Outcome::Nothing);
    EXPECT_EQ(match("GET", "/login", true).outcome, Outcome::OtherMethod);
    EXPECT_EQ(match("POST", "/login/", true).outcome, Outcome::ToggledSlash);
    EXPECT_EQ(match("GET", "/site/a/page", true).outcome, Outcome::Nothing) << "it is not handed on";
    const Path login{"login"};
    EXPECT_EQ(table.allow(viewsOf(login)), "GET, HEAD, OPTIONS, POST");
    EXPECT_EQ(table.allow(viewsOf(login), true), "OPTIONS, POST");
}

TEST(RouteTable, DirectoriesArePassedOverBelowGroupsElsewhere) {
    RouteTable table;
    const Scope app = addScope(table, "", nullptr);
    const Scope site = addScope(table, "", app);
    const Scope api = addScope(table, "/api", app);
    auto endpoint = std::make_shared<Endpoint>();
    endpoint->method = "GET";
    endpoint->pattern = "/{path:path}";
    endpoint->scope = site;
    endpoint->isDirectory = true;
    table.add(std::move(endpoint));
    const Path below{"api", "x"};
    const Match match = table.match("GET", viewsOf(below));
    EXPECT_EQ(match.outcome, Outcome::Nothing);
    EXPECT_EQ(match.scope, api);
    EXPECT_EQ(find(table, "GET", "/x"), "/{path:path} x");
}

TEST(RouteTable, VisitsGrowWhereRoutesOverlapAndNotWithTheirNumber) {
    RouteTable table;
    EXPECT_EQ(table.mostVisits(), 1U);
    for (int i = 0; i < 1000; ++i) {
        add(table, "GET", "/route" + std::to_string(i) + "/{id}");
    }
    EXPECT_EQ(table.mostVisits(), 3U);
    table.checkVisits();
    add(table, "GET", "/{x}/y");
    EXPECT_EQ(table.mostVisits(), 5U);
    add(table, "GET", "/{x:int}/y");
    add(table, "GET", "/{x:uuid}/y/z");
    EXPECT_EQ(table.mostVisits(), 8U);
    add(table, "GET", "/{rest:path}");
    EXPECT_EQ(table.mostVisits(), 9U);
}

TEST(RouteTable, RoutesThatOverlapTooOftenAreRefusedWithTheirPlace) {
    RouteTable table;
    // Each segment is "a" or any other: twice as many ways each time.
    for (unsigned ways = 0; ways < (1U << 12U); ++ways) {
        std::string pattern;
        for (unsigned i = 0; i < 12; ++i) {
            pattern += (ways >> i & 1U) != 0 ? "/a" : "/{p" + std::to_string(i) + "}";
        }
        add(table, "GET", pattern);
    }
    EXPECT_EQ(table.mostVisits(), 8191U);
    try {
        table.checkVisits();
        FAIL() << "not refused";
    } catch (const std::invalid_argument& error) {
        EXPECT_NE(std::string(error.what()).find("/{}/{}"), std::string::npos) << error.what();
    }
}

// ---- Beside the naive reading ----

class RandomTables {
public:
    explicit RandomTables(std::uint32_t seed) : random_(seed) {}

    std::size_t below(std::size_t end) { return std::uniform_int_distribution<std::size_t>(0, end - 1)(random_); }

    template <std::size_t Size>
    std::string one(const std::string_view (&of)[Size]) {
        return std::string(of[below(Size)]);
    }

    std::string method() {
        static constexpr std::string_view Methods[] = {"GET", "HEAD", "POST", "OPTIONS", "PROPFIND"};
        return one(Methods);
    }

    std::string pattern() {
        static constexpr std::string_view Parts[] = {"a", "b", "1", "{}", "{:int}", "{:uuid}", "{}", "a%2Fb"};
        std::string pattern;
        const std::size_t length = 1 + below(4);
        for (std::size_t i = 0; i < length; ++i) {
            std::string part = one(Parts);
            if (part[0] == '{') {
                part.insert(1, "p" + std::to_string(i));
            }
            pattern += "/" + part;
        }
        static constexpr std::string_view Ends[] = {"", "", "", "/", "/{rest:path}"};
        return below(20) == 0 ? "/" : pattern + one(Ends);
    }

    Path path() {
        static constexpr std::string_view Parts[] = {
            "a", "b", "1", "-12", "c", "", "a/b", "01234567-89ab-cdef-0123-456789abcdef", "99999999999999999999"};
        Path path;
        const std::size_t length = 1 + below(5);
        for (std::size_t i = 0; i < length; ++i) {
            path.push_back(one(Parts));
        }
        return path;
    }

private:
    std::mt19937 random_;
};

TEST(RouteTable, RandomTablesFindWhatANaiveReadingFinds) {
    RandomTables random(20261122);
    std::size_t found = 0;
    for (int round = 0; round < 100000; ++round) {
        RouteTable table;
        NaiveTable naive;
        std::vector<std::string> patterns;
        const std::size_t count = 1 + random.below(8);
        for (std::size_t i = 0; i < count; ++i) {
            const std::string method = random.method();
            const std::string pattern = random.pattern();
            try {
                add(table, method, pattern);
            } catch (const std::invalid_argument&) {
                continue;
            }
            naive.add(method, pattern);
            patterns.push_back(pattern);
        }
        for (int i = 0; i < 3; ++i) {
            const Path path = random.path();
            const std::string method = random.method();
            const auto best = naive.match(method, path);
            std::string expected;
            if (best) {
                ++found;
                expected = patterns[best->route];
                for (const std::string& value : best->values) {
                    expected += " " + value;
                }
            } else {
                const auto methods = naive.methods(path);
                const bool isToggled = [&] {
                    Path other = path;
                    if (other[0].empty()) {
                        return false;
                    }
                    if (other.back().empty()) {
                        other.pop_back();
                    } else {
                        other.emplace_back();
                    }
                    return naive.match(method, other).has_value();
                }();
                expected = !methods.empty() ? "other method" : isToggled ? "toggled slash" : "nothing";
            }
            ASSERT_EQ(find(table, method, path), expected) << "round " << round;
        }
    }
    EXPECT_GT(found, 5000U);
}

} // namespace
