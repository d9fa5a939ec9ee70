#include "app/files/Conditions.h"

#include "app/files/HttpDate.h"

#include <cstddef>

namespace vireo::impl {

namespace {

constexpr std::string_view WeakMark = "W/";
constexpr char Quote = '"';

std::string_view opaqueOf(std::string_view etag) {
    return etag.starts_with(WeakMark) ? etag.substr(WeakMark.size()) : etag;
}

enum class Comparison : std::uint8_t { Strong, Weak };

bool areSame(std::string_view left, std::string_view right, Comparison comparison) {
    const bool isStrong = !left.starts_with(WeakMark) && !right.starts_with(WeakMark);
    return (isStrong || comparison == Comparison::Weak) && opaqueOf(left) == opaqueOf(right);
}

/// Takes the entity tag at the beginning of a list away. @return empty when there is none.
std::string_view takeTag(std::string_view& list) {
    const std::size_t mark = list.starts_with(WeakMark) ? WeakMark.size() : 0;
    if (mark >= list.size() || list[mark] != Quote) {
        return {};
    }
    const std::size_t end = list.find(Quote, mark + 1);
    if (end == std::string_view::npos) {
        return {};
    }
    const std::string_view tag = list.substr(0, end + 1);
    list.remove_prefix(tag.size());
    return tag;
}

bool isListed(std::string_view list, std::string_view etag, Comparison comparison) {
    if (list == "*") {
        return true;
    }
    while (!list.empty()) {
        if (list.front() == ',' || list.front() == ' ' || list.front() == '\t') {
            list.remove_prefix(1);
            continue;
        }
        const std::string_view tag = takeTag(list);
        if (tag.empty()) {
            return false;
        }
        if (areSame(tag, etag, comparison)) {
            return true;
        }
    }
    return false;
}

} // namespace

ConditionVerdict checkConditions(const Conditions& conditions, const Validators& now, bool isRead,
                                 std::int64_t nowSeconds) {
    if (!conditions.ifMatch.empty()) {
        if (!isListed(conditions.ifMatch, now.etag, Comparison::Strong)) {
            return ConditionVerdict::PreconditionFailed;
        }
    } else if (const auto date = parseHttpDate(conditions.ifUnmodifiedSince, nowSeconds);
               date && now.lastModified > *date) {
        return ConditionVerdict::PreconditionFailed;
    }
    if (!conditions.ifNoneMatch.empty()) {
        if (isListed(conditions.ifNoneMatch, now.etag, Comparison::Weak)) {
            return isRead ? ConditionVerdict::NotModified : ConditionVerdict::PreconditionFailed;
        }
    } else if (isRead) {
        if (const auto date = parseHttpDate(conditions.ifModifiedSince, nowSeconds);
            date && now.lastModified <= *date) {
            return ConditionVerdict::NotModified;
        }
    }
    return ConditionVerdict::Proceed;
}

bool isRangeCurrent(std::string_view ifRange, const Validators& now, std::int64_t nowSeconds) {
    if (ifRange.empty()) {
        return true;
    }
    if (std::string_view rest = ifRange; !takeTag(rest).empty()) {
        return rest.empty() && areSame(ifRange, now.etag, Comparison::Strong);
    }
    // A file that is too young for a strong tag could have changed twice within the second that the date names.
    return !now.isWeak() && parseHttpDate(ifRange, nowSeconds) == now.lastModified;
}

} // namespace vireo::impl
