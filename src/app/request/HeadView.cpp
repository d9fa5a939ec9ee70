#include "app/request/HeadView.h"

#include "app/kernel/Endpoint.h"
#include "app/request/Accept.h"
#include "app/request/Authority.h"
#include "app/request/Cookies.h"
#include "app/request/Query.h"
#include "app/routing/Pattern.h"
#include "app/routing/RouteTable.h"
#include "frame/HttpSyntax.h"
#include "vireo/HttpBaseRequest.h"
#include "vireo/support/qlRandomUtils.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <bit>
#include <charconv>

namespace vireo::impl {

namespace {

using ql::impl::isSameWord;

std::string join(std::span<const std::string_view> segments) {
    std::string text;
    for (std::size_t i = 0; i < segments.size(); ++i) {
        text += i == 0 ? "" : "/";
        text += segments[i];
    }
    return text;
}

std::string inHex(std::uint64_t number) {
    std::array<char, 16> digits{};
    return {digits.data(), std::to_chars(digits.data(), digits.data() + digits.size(), number, 16).ptr};
}

/// Random for the process, and a counter.
std::string makeId() {
    static const std::uint64_t Process = [] {
        std::array<char, sizeof(std::uint64_t)> bytes{};
        qlRandomUtils::Rand(bytes.data(), bytes.size());
        return std::bit_cast<std::uint64_t>(bytes);
    }();
    static std::atomic<std::uint64_t> counter{0};
    return inHex(Process) + "-" + inHex(counter.fetch_add(1, std::memory_order_relaxed) + 1);
}

bool isId(std::string_view text) {
    constexpr std::string_view Characters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789._-";
    return !text.empty() && text.size() <= 64 && text.find_first_not_of(Characters) == std::string_view::npos;
}

} // namespace

HeadView::HeadView(std::string_view method, std::string_view target, std::span<const ql::HeaderLine> lines,
                   const ql::IpAddress& peer, const ql::http::TlsPeer* tls, std::shared_ptr<const ProxyRules> proxies)
    : method_(method), target_(target), lines_(lines), peer_(peer), tls_(tls), proxies_(std::move(proxies)) {
    const std::size_t mark = (std::min)(target.find('?'), target.size());
    rawPath_ = target.substr(0, mark);
    rawQuery_ = target.substr((std::min)(mark + 1, target.size()));
}

HeadView::Fault HeadView::split() {
    const Fault fault = splitPath(rawPath_, decoded_, segments_);
    restFrom_ = segments_.size();
    return fault;
}

std::string HeadView::toggledTarget() const {
    std::string text(rawPath_);
    if (text.ends_with('/')) {
        text.pop_back();
    } else {
        text += '/';
    }
    return text += target_.substr(rawPath_.size());
}

void HeadView::setMatch(const Match& match) {
    route_ = match.endpoint ? match.endpoint->pattern : std::string();
    values_.assign(match.values.begin(), match.values.begin() + static_cast<std::ptrdiff_t>(match.count));
    restFrom_ = (std::min)(match.restFrom, segments_.size());
    if (match.restFrom != Match::NoRest) {
        values_.push_back(join(restSegments()));
    }
}

const std::string& HeadView::target() const {
    const qlMutexLocker locker(mutex_);
    if (!targetText_) {
        targetText_ = std::string(target_);
    }
    return *targetText_;
}

const std::string& HeadView::path() const {
    const qlMutexLocker locker(mutex_);
    if (!path_) {
        path_ = segments_.empty() ? std::string(rawPath_) : std::string("/").append(join(segments_));
    }
    return *path_;
}

const std::string* HeadView::findPath(std::string_view name) const {
    const std::optional<std::size_t> index = findParameter(route_, name);
    return index && *index < values_.size() ? &values_[*index] : nullptr;
}

const std::string& HeadView::query(std::string_view name) const {
    const qlMutexLocker locker(mutex_);
    const std::string* const value = findQuery(name);
    return value != nullptr ? *value : empty_;
}

bool HeadView::hasQuery(std::string_view name) const {
    const qlMutexLocker locker(mutex_);
    return findQuery(name) != nullptr;
}

std::vector<std::string> HeadView::queryAll(std::string_view name) const {
    const qlMutexLocker locker(mutex_);
    std::vector<std::string> values;
    for (const QueryArgument& argument : allQuery()) {
        if (argument.name == name) {
            values.push_back(argument.value);
        }
    }
    return values;
}

const std::vector<QueryArgument>& HeadView::queryArguments() const {
    const qlMutexLocker locker(mutex_);
    return allQuery();
}

const std::string& HeadView::header(std::string_view name) const {
    std::string key(name);
    std::ranges::transform(key, key.begin(), [](char c) { return c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c; });
    const qlMutexLocker locker(mutex_);
    const auto found = headers_.find(key);
    if (found != headers_.end()) {
        return found->second;
    }
    std::optional<std::string> value = joined(name);
    return value ? headers_.emplace(std::move(key), std::move(*value)).first->second : empty_;
}

std::vector<std::string> HeadView::headerAll(std::string_view name) const {
    std::vector<std::string> values;
    for (const ql::HeaderLine& line : lines_) {
        if (isSameWord(line.name, name)) {
            values.emplace_back(line.value);
        }
    }
    return values;
}

const std::string& HeadView::cookie(std::string_view name) const {
    const qlMutexLocker locker(mutex_);
    const std::vector<Cookie>& all = allCookies();
    const auto found = std::ranges::find(all, name, &Cookie::name);
    return found == all.end() ? empty_ : found->value;
}

const std::vector<Cookie>& HeadView::cookies() const {
    const qlMutexLocker locker(mutex_);
    return allCookies();
}

std::string_view HeadView::line(std::string_view name) const {
    const auto found = std::ranges::find_if(lines_, [name](const auto& line) { return isSameWord(line.name, name); });
    return found == lines_.end() ? std::string_view() : found->value;
}

const ql::IpAddress& HeadView::clientAddress() const {
    const qlMutexLocker locker(mutex_);
    return foundClient();
}

const std::string& HeadView::client() const {
    const qlMutexLocker locker(mutex_);
    if (!client_) {
        const ql::IpAddress& address = foundClient();
        client_ = address.isEmpty() ? "unix:" : address.toString();
    }
    return *client_;
}

const std::string& HeadView::host() const {
    const qlMutexLocker locker(mutex_);
    if (!host_) {
        const std::string_view said = forwarded("X-Forwarded-Host");
        // Links are made of it, and not every proxy looks at it.
        host_ = Authority::Parse(said) ? said : line("Host");
    }
    return *host_;
}

const std::string& HeadView::scheme() const {
    const qlMutexLocker locker(mutex_);
    if (!scheme_) {
        const std::string_view said = forwarded("X-Forwarded-Proto");
        const bool isSaid = isSameWord(said, "http") || isSameWord(said, "https");
        scheme_ = (isSaid ? isSameWord(said, "https") : tls_ != nullptr) ? "https" : "http";
    }
    return *scheme_;
}

bool HeadView::isFrom(std::string_view origin) const {
    // A proxy in front may speak TLS and not tell: its pages come by https, and reach this server by http.
    return isSameOrigin(origin, "https://" + host()) || isSameOrigin(origin, scheme() + "://" + host());
}

const std::string& HeadView::id() const {
    const qlMutexLocker locker(mutex_);
    if (!id_) {
        const std::string_view said = forwarded("X-Request-Id");
        id_ = isId(said) ? std::string(said) : makeId();
    }
    return *id_;
}

std::string HeadView::accepts(std::span<const std::string_view> offers) const {
    return chooseMediaType(joined("Accept"), offers);
}

std::string HeadView::acceptsLanguage(std::span<const std::string_view> offers) const {
    return chooseLanguage(joined("Accept-Language"), offers);
}

std::string HeadView::acceptsEncoding(std::span<const std::string_view> offers) const {
    return chooseEncoding(joined("Accept-Encoding"), offers);
}

const std::vector<QueryArgument>& HeadView::allQuery() const {
    if (!query_) {
        query_ = parseQuery(rawQuery_);
    }
    return *query_;
}

const std::string* HeadView::findQuery(std::string_view name) const {
    const std::vector<QueryArgument>& arguments = allQuery();
    const auto found = std::ranges::find(arguments, name, &QueryArgument::name);
    return found == arguments.end() ? nullptr : &found->value;
}

const std::vector<Cookie>& HeadView::allCookies() const {
    if (!cookies_) {
        cookies_.emplace();
        for (const ql::HeaderLine& line : lines_) {
            if (isSameWord(line.name, "Cookie")) {
                parseCookies(line.value, *cookies_);
            }
        }
    }
    return *cookies_;
}

const ql::IpAddress& HeadView::foundClient() const {
    if (!clientAddress_) {
        clientAddress_ = proxies_ ? findForwardedClient(lines_, peer_, *proxies_) : peer_;
    }
    return *clientAddress_;
}

std::optional<std::string> HeadView::joined(std::string_view name) const {
    std::optional<std::string> value;
    for (const ql::HeaderLine& line : lines_) {
        if (!isSameWord(line.name, name)) {
            continue;
        }
        if (value) {
            (*value += ", ") += line.value;
        } else {
            value = std::string(line.value);
        }
    }
    return value;
}

std::string_view HeadView::forwarded(std::string_view name) const {
    if (!isPeerTrusted()) {
        return {};
    }
    std::string_view last;
    for (const ql::HeaderLine& line : lines_) {
        if (isSameWord(line.name, name)) {
            last = line.value;
        }
    }
    const std::size_t comma = last.rfind(',');
    return ql::impl::withoutBlanks(comma == std::string_view::npos ? last : last.substr(comma + 1));
}

OwnedHead OwnedHead::Of(const ql::HttpBaseRequest& request) {
    OwnedHead head;
    const std::string& method = request.getMethodToken();
    const std::string& target = request.getOriginalRequestUrl();
    std::size_t size = method.size() + target.size();
    for (const ql::HeaderLine& line : request.getHeaderLines()) {
        size += line.name.size() + line.value.size();
    }
    head.bytes.reserve(size);
    const auto keep = [&head](std::string_view text) {
        const std::size_t begin = head.bytes.size();
        head.bytes.insert(head.bytes.end(), text.begin(), text.end());
        return std::string_view(head.bytes.data() + begin, text.size());
    };
    head.method = keep(method);
    head.target = keep(target);
    for (const ql::HeaderLine& line : request.getHeaderLines()) {
        const std::string_view name = keep(line.name);
        head.lines.push_back({name, keep(line.value)});
    }
    return head;
}

} // namespace vireo::impl
