// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <memory>

namespace vireo {
class Request;
class Response;
} // namespace vireo

namespace vireo::impl {

class HeadView;
class RouteTable;
struct Endpoint;
struct Match;
struct ScopeRules;

// Answers where no handler of a route is called: endpoints of their own, with the chain of their scope.

/// For a request that has found no route.
std::shared_ptr<const Endpoint> automaticEndpoint(const HeadView& head, const Match& match, const RouteTable& table);

/// For a path of a directory that falls below the prefix of a group within the directory's scope: by its rules.
std::shared_ptr<const Endpoint> endpointBelowGroup(const Endpoint& directory, std::shared_ptr<const ScopeRules> group);

/// Answers in the handler of a directory that has nothing for the path, as if it were not there.
void answerBesideDirectories(Request& request, Response& response);

/// For one whose body is longer than the route takes.
std::shared_ptr<const Endpoint> endpointOfTooLargeBody(const Endpoint& route, std::uint64_t limit);

} // namespace vireo::impl
