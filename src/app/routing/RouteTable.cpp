#include "app/routing/RouteTable.h"

#include "app/kernel/Endpoint.h"
#include "app/routing/Pattern.h"
#include "frame/InvalidArgument.h"

#include <algorithm>
#include <functional>
#include <initializer_list>
#include <set>
#include <tuple>
#include <unordered_map>
#include <utility>
#include <vector>

namespace vireo::impl {

namespace {

struct TextHash {
    using is_transparent = void;
    std::size_t operator()(std::string_view text) const { return std::hash<std::string_view>()(text); }
};

using Scope = std::shared_ptr<const ScopeRules>;

std::size_t depthOf(const ScopeRules* scope) {
    std::size_t depth = 0;
    for (; scope != nullptr; scope = scope->parent.get()) {
        ++depth;
    }
    return depth;
}

/// The deepest scope that holds both.
Scope commonScope(Scope left, Scope right) {
    while (left != right) {
        Scope& deeper = depthOf(left.get()) >= depthOf(right.get()) ? left : right;
        deeper = Scope(deeper->parent);
    }
    return left;
}

/// Whether a scope is another one or lies within it.
bool isWithin(const ScopeRules* scope, const ScopeRules* outer) {
    while (scope != nullptr && scope != outer) {
        scope = scope->parent.get();
    }
    return scope == outer;
}

/// Whether an endpoint takes requests of this method: that of GET also HEAD.
bool serves(const Endpoint& endpoint, std::string_view method) {
    return endpoint.method == method || (method == "HEAD" && endpoint.method == "GET");
}

} // namespace

/// Where a path falls.
struct RouteTable::Place {
    Scope scope;
    /// How many segments its prefix has.
    std::size_t depth = 0;

    /// Whether that is more than those before the rest of a path.
    bool isBelow(std::size_t restFrom) const { return depth > restFrom; }
};

struct RouteTable::Node {
    using Children = std::unordered_map<std::string, std::unique_ptr<Node>, TextHash, std::equal_to<>>;

    Children literals;
    std::unique_ptr<Node> integer;
    std::unique_ptr<Node> uuid;
    std::unique_ptr<Node> text;
    std::unique_ptr<Node> rest;
    /// The routes that end here, one for each method.
    std::vector<std::shared_ptr<const Endpoint>> endpoints;
    /// The one whose prefix ends here.
    Scope scope;

    Node& child(const Pattern::Segment& segment) {
        std::unique_ptr<Node>& place = slot(segment);
        if (!place) {
            place = std::make_unique<Node>();
        }
        return *place;
    }

    const std::shared_ptr<const Endpoint>* find(std::string_view method) const {
        const auto found =
            std::ranges::find(endpoints, method, [](const auto& e) { return std::string_view(e->method); });
        return found == endpoints.end() ? nullptr : &*found;
    }

    /// The endpoint that serves the method: that of GET for HEAD as well.
    const std::shared_ptr<const Endpoint>* findTaking(std::string_view method) const {
        const auto* const found = find(method);
        return found == nullptr && method == "HEAD" ? find("GET") : found;
    }

    const Node* literal(std::string_view name) const {
        const auto found = literals.find(name);
        return found == literals.end() ? nullptr : found->second.get();
    }

    /// The child that takes the segment as a number or the like: it cannot be both.
    const Node* typed(std::string_view segment) const {
        if (integer && isInt(segment)) {
            return integer.get();
        }
        return uuid && isUuid(segment) ? uuid.get() : nullptr;
    }

    /// The most nodes that a path can visit from here on. No path can take two literals, or two types.
    std::uint64_t mostVisits() const {
        std::uint64_t ofLiterals = 0;
        for (const auto& [name, node] : literals) {
            ofLiterals = (std::max)(ofLiterals, node->mostVisits());
        }
        return 1 + ofLiterals + (std::max)(visits(integer), visits(uuid)) + visits(text) + visits(rest);
    }

    static std::uint64_t visits(const std::unique_ptr<Node>& node) { return node ? node->mostVisits() : 0; }

    /// The child that most visits come from, and its segment as a pattern has it.
    std::pair<const Node*, std::string> costliest() const {
        std::pair<const Node*, std::string> most{nullptr, {}};
        const auto look = [&](const std::unique_ptr<Node>& node, std::string_view name) {
            if (node && (most.first == nullptr || node->mostVisits() > most.first->mostVisits())) {
                most = {node.get(), std::string(name)};
            }
        };
        look(integer, "{:int}");
        look(uuid, "{:uuid}");
        look(text, "{}");
        for (const auto& [name, node] : literals) {
            look(node, name);
        }
        return most;
    }

private:
    std::unique_ptr<Node>& slot(const Pattern::Segment& segment) {
        switch (segment.kind) {
        case Pattern::Kind::Int:
            return integer;
        case Pattern::Kind::Uuid:
            return uuid;
        case Pattern::Kind::Text:
            return text;
        case Pattern::Kind::Rest:
            return rest;
        case Pattern::Kind::Literal:
            break;
        }
        return literals[segment.text];
    }
};

/// Goes through the nodes that a path can take, the most special first.
class RouteTable::Walk {
public:
    /// @param count of segments, one less than there are or one more, which is empty then.
    Walk(std::span<const std::string_view> segments, std::size_t count) : segments_(segments), count_(count) {}

    /// Calls onLeaf(node) where a path ends, until it returns true, and onNode(node, depth) on its way.
    template <class OnLeaf, class OnNode>
    bool go(const Node& node, const OnLeaf& onLeaf, const OnNode& onNode, std::size_t at = 0) {
        onNode(node, at);
        if (at == count_) {
            return onLeaf(node);
        }
        const std::string_view segment = at < segments_.size() ? segments_[at] : std::string_view();
        if (const Node* const literal = node.literal(segment);
            literal != nullptr && go(*literal, onLeaf, onNode, at + 1)) {
            return true;
        }
        if (!segment.empty()) {
            for (const Node* const child : {node.typed(segment), static_cast<const Node*>(node.text.get())}) {
                if (child == nullptr) {
                    continue;
                }
                values[valueCount++] = segment;
                if (go(*child, onLeaf, onNode, at + 1)) {
                    return true;
                }
                --valueCount;
            }
        }
        if (node.rest && (!segment.empty() || at + 1 < count_)) {
            restFrom = at;
            if (onLeaf(*node.rest)) {
                return true;
            }
            restFrom = Match::NoRest;
        }
        return false;
    }

    template <class OnLeaf>
    bool findLeaf(const Node& root, const OnLeaf& onLeaf) {
        return go(root, onLeaf, [](const Node&, std::size_t) {});
    }

    // Of the way to the leaf that was taken.
    std::array<std::string_view, MaxParameters> values;
    std::size_t valueCount = 0;
    std::size_t restFrom = Match::NoRest;

private:
    std::span<const std::string_view> segments_;
    std::size_t count_;
};

RouteTable::RouteTable() : root_(std::make_unique<Node>()) {}
RouteTable::~RouteTable() = default;
RouteTable::RouteTable(RouteTable&&) noexcept = default;
RouteTable& RouteTable::operator=(RouteTable&&) noexcept = default;

void RouteTable::add(std::shared_ptr<const Endpoint> endpoint) {
    Node* node = root_.get();
    for (const Pattern::Segment& segment : Pattern::parse(endpoint->pattern).segments) {
        node = &node->child(segment);
    }
    if (const auto* const other = node->find(endpoint->method)) {
        ql::impl::throwInvalidArgument("the patterns \"" + (*other)->pattern + "\" and \"" + endpoint->pattern +
                                       "\" for " + endpoint->method + " take the same paths");
    }
    node->endpoints.push_back(std::move(endpoint));
}

void RouteTable::addScope(std::shared_ptr<const ScopeRules> scope) {
    Node* node = root_.get();
    for (const Pattern::Segment& segment : Pattern::parsePrefix(scope->prefix).segments) {
        node = &node->child(segment);
    }
    if (!node->scope) {
        node->scope = std::move(scope);
    }
}

std::uint64_t RouteTable::mostVisits() const {
    return root_->mostVisits();
}

void RouteTable::checkVisits() const {
    if (mostVisits() <= MostVisits) {
        return;
    }
    std::string place;
    for (auto [node, segment] = root_->costliest(); node != nullptr; std::tie(node, segment) = node->costliest()) {
        place += "/" + segment;
    }
    ql::impl::throwInvalidArgument("the routes overlap too often: for a path such as \"" + place + "\" up to " +
                                   std::to_string(mostVisits()) + " places are to be looked at, more than " +
                                   std::to_string(MostVisits));
}

RouteTable::Place RouteTable::place(std::span<const std::string_view> segments) const {
    Place place;
    // Deeper nodes come later or not at all, but those of a second way may be deeper than those of the first.
    const auto takeScope = [&](const Node& node, std::size_t at) {
        if (node.scope && (!place.scope || at > place.depth)) {
            place.scope = node.scope;
            place.depth = at;
        }
    };
    Walk(segments, segments.size())
        .go(
            *root_, [](const Node&) { return false; }, takeScope);
    return place;
}

Match RouteTable::match(std::string_view method, std::span<const std::string_view> segments) const {
    Match match;
    Walk walk(segments, segments.size());
    const auto takeMethod = [&](const Node& leaf) {
        const auto* const found = leaf.findTaking(method);
        if (found == nullptr) {
            return false;
        }
        if ((*found)->isDirectory) {
            if (const Place at = place(segments); at.isBelow(walk.restFrom)) {
                if (!isWithin(at.scope.get(), (*found)->scope.get())) {
                    return false;
                }
                match.scope = at.scope;
            }
        }
        match.endpoint = *found;
        return true;
    };
    if (walk.findLeaf(*root_, takeMethod)) {
        match.outcome = Match::Outcome::Found;
        match.values = walk.values;
        match.count = walk.valueCount;
        match.restFrom = walk.restFrom;
    } else {
        matchOthers(method, segments, match);
    }
    return match;
}

Match RouteTable::matchBesideDirectories(std::string_view method, std::span<const std::string_view> segments) const {
    Match match;
    match.isBesideDirectories = true;
    matchOthers(method, segments, match);
    return match;
}

void RouteTable::matchOthers(std::string_view method, std::span<const std::string_view> segments, Match& match) const {
    const Place at = place(segments);
    // The leaf that fits best says which rules hold: others may be files, or whatever else the rest goes to.
    bool hasScope = false;
    bool areSockets = true;
    bool isTaken = false;
    Walk walk(segments, segments.size());
    const auto lookAtAll = [&](const Node& leaf) {
        const bool passDirectories = match.isBesideDirectories || at.isBelow(walk.restFrom);
        Scope scope;
        bool isCounted = false;
        for (const auto& endpoint : leaf.endpoints) {
            if (endpoint->isDirectory && passDirectories) {
                continue;
            }
            scope = isCounted ? commonScope(scope, endpoint->scope) : endpoint->scope;
            isCounted = true;
            areSockets = areSockets && endpoint->method == SocketMethod;
            isTaken = isTaken || serves(*endpoint, method);
        }
        if (!hasScope && isCounted) {
            match.scope = scope;
            hasScope = true;
        }
        return false;
    };
    walk.findLeaf(*root_, lookAtAll);
    if (hasScope && !isTaken) {
        match.outcome = areSockets ? Match::Outcome::SocketOnly : Match::Outcome::OtherMethod;
        return;
    }
    match.scope = at.scope;

    // "/" is nothing without its slash, and a path that begins with two of them would lead to another host.
    const bool hasSlash = !segments.empty() && segments.back().empty();
    if (!isTaken && segments.size() > (hasSlash ? 1U : 0U) && !segments.front().empty()) {
        const std::size_t count = hasSlash ? segments.size() - 1 : segments.size() + 1;
        // A directory takes its path in both forms.
        const auto takesMethod = [method](const Node& leaf) {
            const auto* const found = leaf.findTaking(method);
            return found != nullptr && !(*found)->isDirectory;
        };
        if (Walk(segments, count).findLeaf(*root_, takesMethod)) {
            match.outcome = Match::Outcome::ToggledSlash;
        }
    }
}

std::string RouteTable::allow(std::span<const std::string_view> segments, bool isBesideDirectories) const {
    const Place at = place(segments);
    std::set<std::string_view> methods{"OPTIONS"};
    Walk walk(segments, segments.size());
    const auto collect = [&](const Node& leaf) {
        const bool passDirectories = isBesideDirectories || at.isBelow(walk.restFrom);
        for (const auto& endpoint : leaf.endpoints) {
            if (endpoint->method == SocketMethod || (endpoint->isDirectory && passDirectories)) {
                continue;
            }
            methods.insert(endpoint->method);
            if (endpoint->method == "GET") {
                methods.insert("HEAD");
            }
        }
        return false;
    };
    walk.findLeaf(*root_, collect);
    std::string text;
    for (const std::string_view method : methods) {
        text += (text.empty() ? "" : ", ") + std::string(method);
    }
    return text;
}

} // namespace vireo::impl
