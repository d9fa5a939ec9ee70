// SPDX-License-Identifier: MIT
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

namespace vireo::impl {

struct Endpoint;
struct ScopeRules;

/// The method of a WebSocket's route. No request can have it: it is no token.
inline constexpr std::string_view SocketMethod = "(WebSocket)";

/// The most parameters of a pattern.
inline constexpr std::size_t MaxParameters = 16;

/// What a RouteTable has for a path and a method.
struct Match {
    enum class Outcome : std::uint8_t {
        Found,
        OtherMethod,  ///< the path has routes, none for this method
        SocketOnly,   ///< nothing but WebSockets are there
        ToggledSlash, ///< there is a route for the path with a slash at its end, or without the one that it has
        Nothing,
    };
    Outcome outcome = Outcome::Nothing;
    /// Of Found.
    std::shared_ptr<const Endpoint> endpoint;
    /// Whose rules an automatic answer goes by; null in a table without scopes. Of Found: null, or the scope within the
    /// endpoint's own whose rules hold here.
    std::shared_ptr<const ScopeRules> scope;
    /// It is what there is beside directories of files.
    bool isBesideDirectories = false;
    /// Those of the parameters, in the pattern's order, but for the rest of the path; they refer to the segments.
    std::array<std::string_view, MaxParameters> values;
    std::size_t count = 0;
    /// The first segment of the rest of the path, which is the last parameter then; else NoRest.
    std::size_t restFrom = NoRest;

    static constexpr std::size_t NoRest = static_cast<std::size_t>(-1);
};

/// Routes as a tree of their segments. At the first segment in which two patterns differ a literal goes before a typed
/// parameter, that before one of any text, and that before the rest of the path; the order of adding means nothing.
///
/// A directory of files goes by the rules of the scope that the path falls into where that has a longer prefix than the
/// directory and lies within the directory's own; below the prefix of any other such scope it is passed over. Constant
/// once it is filled; then for any number of threads.
class RouteTable {
public:
    /// The most nodes that any path may visit.
    static constexpr std::uint64_t MostVisits = 4096;

    RouteTable();
    ~RouteTable();
    RouteTable(RouteTable&&) noexcept;
    RouteTable& operator=(RouteTable&&) noexcept;

    /// @throws std::invalid_argument for what is no pattern, and for one that the table cannot tell from another of the
    ///         same method.
    void add(std::shared_ptr<const Endpoint> endpoint);
    /// Automatic answers below its prefix go by this scope's rules. A scope comes after its parent; of several with the
    /// same prefix the first counts.
    /// @throws std::invalid_argument for what is no prefix.
    void addScope(std::shared_ptr<const ScopeRules> scope);

    /// The most nodes that a path can visit: so long a match may take. It grows where routes overlap, not with their
    /// number.
    std::uint64_t mostVisits() const;
    /// @throws std::invalid_argument that names the place where routes overlap too often.
    void checkVisits() const;

    /// Allocates nothing. HEAD is served by GET where it has no route of its own.
    /// @param segments the decoded ones between the slashes; that of "/" is empty.
    Match match(std::string_view method, std::span<const std::string_view> segments) const;
    /// What there is where the directory of files that was found has nothing: all but Found.
    Match matchBesideDirectories(std::string_view method, std::span<const std::string_view> segments) const;

    /// The value of "Allow", sorted.
    /// @param isBesideDirectories whether directories of files are passed over.
    std::string allow(std::span<const std::string_view> segments, bool isBesideDirectories = false) const;

private:
    struct Node;
    struct Place;
    class Walk;

    /// The scope with the longest prefix that the path falls into.
    Place place(std::span<const std::string_view> segments) const;
    /// Says of a path that nothing takes what there is instead.
    void matchOthers(std::string_view method, std::span<const std::string_view> segments, Match& match) const;

    std::unique_ptr<Node> root_;
};

} // namespace vireo::impl
