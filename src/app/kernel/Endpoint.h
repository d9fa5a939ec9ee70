// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/app/Handler.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace vireo::impl {

/// What a scope's routes have in common, with that of the scopes around it. Constant once the app runs.
struct ScopeRules {
    std::string prefix;
    std::shared_ptr<const ScopeRules> parent;
    /// All of them, the app's first.
    std::vector<std::shared_ptr<const Middleware>> chain;
    // Inherited; null: the kernel's own.
    std::shared_ptr<const ErrorHandler> onError;
    std::shared_ptr<const Handler> notFound;
    std::shared_ptr<const Handler> methodNotAllowed;
};

/// The longest body where nobody says otherwise.
inline constexpr std::uint64_t DefaultMaxBody = 8388608;
/// The longest body of a quick route: what a server keeps of one.
inline constexpr std::uint64_t MaxQuickBody = 1048576;

/// What was said of a route.
struct RouteRules {
    std::string method;
    /// With the prefixes of its groups.
    std::string pattern;
    /// For the log; empty: the pattern.
    std::string name;
    std::shared_ptr<const Handler> handler;
    std::shared_ptr<const SocketHandler> socket;
    bool isQuick = false;
    /// It reads directories, for which no daemon thread has the time.
    bool isListing = false;
    /// A directory of files: what it has not got is answered as if it were not there.
    bool isDirectory = false;
    /// What Route::maxBody() says.
    std::optional<std::uint64_t> ownMaxBody;

    const std::string& label() const { return name.empty() ? pattern : name; }
};

/// A route as one run of an App has it, which may have more said of it afterwards; or an automatic answer, for which
/// one is made. Constant.
struct Endpoint : RouteRules {
    Endpoint() = default;
    explicit Endpoint(const RouteRules& rules) : RouteRules(rules) {}

    std::shared_ptr<const ScopeRules> scope;
    std::uint64_t maxBody = DefaultMaxBody;
    /// A directory's, by the rules of a group below whose prefix the path falls.
    bool isBelowGroup = false;
    /// Quick, and it took its time: the log has a line.
    mutable std::atomic<bool> wasSlow{false};
    /// A middleware has changed its answer too late: the log has a line.
    mutable std::atomic<bool> wasChangedLate{false};
};

} // namespace vireo::impl
