// Conditional requests and dates, beside the rules of RFC 9110 section 13, read by tags that are cut out first.
//
// An input is a byte, which header it is and of which file, and the header.

#include "Check.h"
#include "app/files/Conditions.h"
#include "app/files/HttpDate.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace {

using namespace vireofuzz;
using vireo::impl::Conditions;
using vireo::impl::ConditionVerdict;
using vireo::impl::Validators;

/// 2026-11-23, and the second in which the file was changed.
constexpr std::int64_t Now = 1795392000;
constexpr std::int64_t Changed = 784111777;

struct Tag {
    std::string opaque;
    bool isWeak = false;
};

/// The tags of a list, up to what is none.
std::vector<Tag> tagsOf(std::string_view list) {
    std::vector<Tag> tags;
    std::size_t at = 0;
    while (at < list.size()) {
        if (list[at] == ' ' || list[at] == ',' || list[at] == '\t') {
            ++at;
            continue;
        }
        Tag tag;
        if (list.size() - at > 1 && list[at] == 'W' && list[at + 1] == '/') {
            tag.isWeak = true;
            at += 2;
        }
        if (at >= list.size() || list[at] != '"') {
            break;
        }
        const std::size_t end = list.find('"', at + 1);
        if (end == std::string_view::npos) {
            break;
        }
        tag.opaque = list.substr(at, end - at + 1);
        tags.push_back(tag);
        at = end + 1;
    }
    return tags;
}

bool names(std::string_view list, const Validators& file, bool isStrong) {
    if (list == "*") {
        return true;
    }
    const Tag own{file.etag.substr(file.isWeak() ? 2 : 0), file.isWeak()};
    for (const Tag& tag : tagsOf(list)) {
        if (tag.opaque == own.opaque && (!isStrong || (!tag.isWeak && !own.isWeak))) {
            return true;
        }
    }
    return false;
}

ConditionVerdict expected(const Conditions& conditions, const Validators& file, bool isRead) {
    const auto since = [](std::string_view header) { return vireo::impl::parseHttpDate(header, Now); };
    if (!conditions.ifMatch.empty() && !names(conditions.ifMatch, file, true)) {
        return ConditionVerdict::PreconditionFailed;
    }
    if (conditions.ifMatch.empty() && since(conditions.ifUnmodifiedSince) &&
        file.lastModified > *since(conditions.ifUnmodifiedSince)) {
        return ConditionVerdict::PreconditionFailed;
    }
    if (!conditions.ifNoneMatch.empty()) {
        if (!names(conditions.ifNoneMatch, file, false)) {
            return ConditionVerdict::Proceed;
        }
        return isRead ? ConditionVerdict::NotModified : ConditionVerdict::PreconditionFailed;
    }
    if (isRead && since(conditions.ifModifiedSince) && file.lastModified <= *since(conditions.ifModifiedSince)) {
        return ConditionVerdict::NotModified;
    }
    return ConditionVerdict::Proceed;
}

/// Every second has one text in the form that is sent; the other forms name some second of a year of four digits.
void checkDate(std::string_view text) {
    const std::optional<std::int64_t> seconds = vireo::impl::parseHttpDate(text, Now);
    if (!seconds || *seconds < 0) {
        return;
    }
    const std::string written = vireo::impl::httpDate(*seconds);
    check(vireo::impl::parseHttpDate(written, Now) == seconds, "a date is read as another than it was written");
    const bool isFixed = text.size() == written.size() && text[3] == ',';
    const bool isLeapSecond = text.size() > 6 && isFixed && text.substr(23, 2) == "60";
    check(!isFixed || isLeapSecond || written.substr(3) == text.substr(3), "a date has another text");
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const std::string header(reinterpret_cast<const char*>(data) + 1, size - 1);
    const bool isRead = (data[0] & 8U) != 0;
    const Validators file{(data[0] & 16U) != 0 ? "W/\"a,b\"" : "\"a,b\"", Changed};
    Conditions conditions;
    switch (data[0] % 6) {
    case 0:
        conditions.ifMatch = header;
        break;
    case 1:
        conditions.ifNoneMatch = header;
        break;
    case 2:
        conditions.ifModifiedSince = header;
        break;
    case 3:
        conditions.ifUnmodifiedSince = header;
        break;
    case 4:
        conditions = {header, header, header, header};
        break;
    default: {
        const std::vector<Tag> tags = tagsOf(header);
        const bool isTag = tags.size() == 1 && header == (tags[0].isWeak ? "W/" : "") + tags[0].opaque;
        const bool isDate = !file.isWeak() && vireo::impl::parseHttpDate(header, Now) == Changed;
        const bool isCurrent = isTag ? !tags[0].isWeak && !file.isWeak() && tags[0].opaque == file.etag : isDate;
        check(vireo::impl::isRangeCurrent(header, file, Now) == (header.empty() || isCurrent), "another range");
    }
    }
    check(vireo::impl::checkConditions(conditions, file, isRead, Now) == expected(conditions, file, isRead),
          "another verdict");
    checkDate(header);
    return 0;
}
