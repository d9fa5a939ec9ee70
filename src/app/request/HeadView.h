// SPDX-License-Identifier: MIT
#pragma once

#include "app/request/ForwardedClient.h"
#include "app/routing/PathSegments.h"
#include "vireo/HeaderLine.h"
#include "vireo/app/Request.h"
#include "vireo/support/IpAddress.h"
#include "vireo/support/ThreadAnnotations.h"
#include "vireo/support/qlMutex.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace ql {
class HttpBaseRequest;
}
namespace ql::http {
class TlsPeer;
}

namespace vireo::impl {

struct Match;

/// The head of a request, of which everything is understood when it is asked for, and then kept: references that it
/// gives live as long as it does. What it is made of has to live as long, too.
///
/// split() and setMatch() come first, on the daemon thread; then any thread.
class HeadView {
public:
    /// @param target a path with its query, or "*".
    /// @param tls null without TLS.
    /// @param proxies null: nobody is trusted.
    HeadView(std::string_view method, std::string_view target, std::span<const ql::HeaderLine> lines,
             const ql::IpAddress& peer, const ql::http::TlsPeer* tls, std::shared_ptr<const ProxyRules> proxies);
    HeadView(const HeadView&) = delete;
    HeadView& operator=(const HeadView&) = delete;

    /// Why a path is refused with 400.
    using Fault = PathFault;

    /// Splits the path at its slashes and decodes what is between them.
    Fault split();
    /// Those between the slashes, decoded; none in the target "*". Their text lives as long as this.
    std::span<const std::string_view> segments() const { return segments_; }

    /// As they came: without the "?" between them.
    ///@{
    std::string_view rawPath() const { return rawPath_; }
    std::string_view rawQuery() const { return rawQuery_; }
    ///@}
    /// The target with a slash at the end of its path, or without the one that it has there.
    std::string toggledTarget() const;

    /// Keeps the route's pattern and the values of its parameters.
    void setMatch(const Match& match);
    /// The pattern; empty without a route.
    const std::string& route() const { return route_; }
    /// The segments that the rest of the path takes; none where the pattern has no such parameter.
    std::span<const std::string_view> restSegments() const { return segments().subspan(restFrom_); }

    const std::string& method() const { return method_; }
    /// As it came.
    const std::string& target() const QL_EXCLUDES(mutex_);
    /// Decoded.
    const std::string& path() const QL_EXCLUDES(mutex_);

    // Empty when it is missing.

    /// The parameter of the pattern; null without one of this name.
    const std::string* findPath(std::string_view name) const;
    /// The first of its values.
    const std::string& query(std::string_view name) const QL_EXCLUDES(mutex_);
    bool hasQuery(std::string_view name) const QL_EXCLUDES(mutex_);
    std::vector<std::string> queryAll(std::string_view name) const QL_EXCLUDES(mutex_);
    const std::vector<QueryArgument>& queryArguments() const QL_EXCLUDES(mutex_);
    /// All its lines, joined by ", ".
    const std::string& header(std::string_view name) const QL_EXCLUDES(mutex_);
    std::vector<std::string> headerAll(std::string_view name) const;
    const std::string& cookie(std::string_view name) const QL_EXCLUDES(mutex_);
    const std::vector<Cookie>& cookies() const QL_EXCLUDES(mutex_);

    /// The first line of this name, not copied.
    std::string_view line(std::string_view name) const;
    std::span<const ql::HeaderLine> lines() const { return lines_; }

    /// Who the client is, behind trusted proxies.
    const ql::IpAddress& clientAddress() const QL_EXCLUDES(mutex_);
    /// The same as text; "unix:" without an address.
    const std::string& client() const QL_EXCLUDES(mutex_);
    const std::string& host() const QL_EXCLUDES(mutex_);
    /// "http" or "https".
    const std::string& scheme() const QL_EXCLUDES(mutex_);
    /// Whether a page of this origin, "https://example.org", was loaded from here: its host is host(), in any case of
    /// letters and with the port that its scheme has by default. Where scheme() is "https" the page's has to be; else
    /// either will do, since a proxy may stand in front that does not tell.
    bool isFrom(std::string_view origin) const QL_EXCLUDES(mutex_);
    /// What a trusted proxy calls the request; else of this process's own making.
    const std::string& id() const QL_EXCLUDES(mutex_);
    const ql::http::TlsPeer* tls() const { return tls_; }
    /// Those who keep the head longer than its connection say that there is no TLS peer any more.
    void dropTls() { tls_ = nullptr; }

    // Which of those on offer the client likes best; empty when it wants none of them.
    ///@{
    std::string accepts(std::span<const std::string_view> offers) const;
    std::string acceptsLanguage(std::span<const std::string_view> offers) const;
    std::string acceptsEncoding(std::span<const std::string_view> offers) const;
    ///@}

private:
    const std::vector<QueryArgument>& allQuery() const QL_REQUIRES(mutex_);
    const std::string* findQuery(std::string_view name) const QL_REQUIRES(mutex_);
    const std::vector<Cookie>& allCookies() const QL_REQUIRES(mutex_);
    const ql::IpAddress& foundClient() const QL_REQUIRES(mutex_);
    /// All lines of a header, joined by ", "; none without one.
    std::optional<std::string> joined(std::string_view name) const;
    /// What the nearest proxy says in a line of this name; empty when it is not trusted.
    std::string_view forwarded(std::string_view name) const;
    bool isPeerTrusted() const { return proxies_ && proxies_->isTrusted(peer_); }

    // Constant once the daemon thread has handed the request on.
    const std::string method_;
    const std::string_view target_;
    const std::span<const ql::HeaderLine> lines_;
    const ql::IpAddress peer_;
    const ql::http::TlsPeer* tls_;
    const std::shared_ptr<const ProxyRules> proxies_;
    const std::string empty_;
    std::string_view rawPath_;
    std::string_view rawQuery_;
    /// What the decoded segments refer to, where the path has escapes.
    std::string decoded_;
    std::vector<std::string_view> segments_;
    std::string route_;
    std::vector<std::string> values_;
    std::size_t restFrom_ = 0;

    mutable qlMutex mutex_;
    mutable std::optional<std::string> targetText_ QL_GUARDED_BY(mutex_);
    mutable std::optional<std::string> path_ QL_GUARDED_BY(mutex_);
    mutable std::optional<std::vector<QueryArgument>> query_ QL_GUARDED_BY(mutex_);
    mutable std::optional<std::vector<Cookie>> cookies_ QL_GUARDED_BY(mutex_);
    /// By their names in lower case.
    mutable std::map<std::string, std::string> headers_ QL_GUARDED_BY(mutex_);
    mutable std::optional<ql::IpAddress> clientAddress_ QL_GUARDED_BY(mutex_);
    mutable std::optional<std::string> client_ QL_GUARDED_BY(mutex_);
    mutable std::optional<std::string> host_ QL_GUARDED_BY(mutex_);
    mutable std::optional<std::string> scheme_ QL_GUARDED_BY(mutex_);
    mutable std::optional<std::string> id_ QL_GUARDED_BY(mutex_);
};

/// A copy of what a head is made of, for an opening whose session outlives it.
struct OwnedHead {
    static OwnedHead Of(const ql::HttpBaseRequest& request);

    /// A vector, since its bytes stay where they are when it is moved.
    std::vector<char> bytes;
    std::string_view method;
    std::string_view target;
    std::vector<ql::HeaderLine> lines;
};

} // namespace vireo::impl
