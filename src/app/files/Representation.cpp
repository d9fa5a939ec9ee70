#include "app/files/Representation.h"

#include "app/files/HttpDate.h"
#include "app/files/Ranges.h"
#include "app/kernel/Answer.h"
#include "app/kernel/Throw.h"
#include "app/request/HeadView.h"
#include "vireo/app/HttpError.h"
#include "vireo/support/qlRandomUtils.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <ctime>
#include <utility>
#include <vector>

namespace vireo::impl {

namespace {

constexpr int Ok = 200;
constexpr int PartialContent = 206;
constexpr int NotModified = 304;
constexpr int PreconditionFailed = 412;
constexpr int RangeNotSatisfiable = 416;
constexpr std::int64_t NsPerSecond = 1000000000;
constexpr std::int64_t UnsettledNs = 2 * NsPerSecond;
/// Of several ranges, which are put together in memory.
constexpr std::uint64_t MaxRangesBytes = 1048576;
constexpr std::size_t MaxRanges = 16;
constexpr std::size_t BoundaryBytes = 12;

std::string hexOf(std::uint64_t value) {
    constexpr std::string_view Digits = "0123456789abcdef";
    std::string text;
    do {
        text.insert(text.begin(), Digits[value & 15U]);
        value >>= 4U;
    } while (value != 0);
    return text;
}

std::int64_t secondsOf(std::int64_t ns) {
    return ns < 0 ? 0 : ns / NsPerSecond;
}

/// Of the clock that Date is made of: a finer one may be in the next second already.
std::int64_t nowNs() {
    return static_cast<std::int64_t>(std::time(nullptr)) * NsPerSecond;
}

std::string contentOf(const OwnFile& file, std::uint64_t offset, std::uint64_t size) {
    std::string content(static_cast<std::size_t>(size), '\0');
    if (!file.readAt(offset, content)) {
        throwRuntimeError("a file has become shorter while it was read");
    }
    return content;
}

void setPart(Answer& answer, OwnFile&& file, const ByteRange& part) {
    if (part.size <= MaxBufferedFileBytes) {
        answer.body = contentOf(file, part.offset, part.size);
    } else {
        answer.file = FilePart{std::move(file), part.offset, part.size};
    }
    answer.isSet = true;
}

std::string boundary() {
    std::array<char, BoundaryBytes> random{};
    qlRandomUtils::Rand(random.data(), random.size());
    std::string text;
    for (const char c : random) {
        text += hexOf(static_cast<unsigned char>(c));
    }
    return text;
}

/// Several parts as one body (RFC 9110 section 14.6).
void setParts(Answer& answer, const Representation& representation, const std::vector<ByteRange>& parts) {
    const std::string mark = boundary();
    const std::string type = *answer.headers.find("Content-Type");
    std::string body;
    for (const ByteRange& part : parts) {
        body.append("\r\n--").append(mark).append("\r\nContent-Type: ").append(type);
        body.append("\r\nContent-Range: ").append(contentRange(part, representation.found.facts.size));
        body.append("\r\n\r\n").append(contentOf(representation.found.file, part.offset, part.size));
    }
    body.append("\r\n--").append(mark).append("--\r\n");
    answer.headers.set("Content-Type", "multipart/byteranges; boundary=" + mark);
    answer.isTypeOfBody = true;
    answer.body = std::move(body);
    answer.isSet = true;
}

/// The whole file.
void setWhole(Answer& answer, Representation&& representation) {
    const std::uint64_t size = representation.found.facts.size;
    setPart(answer, std::move(representation.found.file), {0, size});
}

/// What there is instead of it for a client that has it already: the head alone, with the length of the file.
void setNotModified(Answer& answer, Representation&& representation) {
    answer.status = NotModified;
    answer.isSet = true;
    const std::uint64_t size = representation.found.facts.size;
    answer.file = FilePart{std::move(representation.found.file), 0, size};
}

/// Whether several parts are worth it: else the whole file is sent.
bool areFew(const std::vector<ByteRange>& parts) {
    std::uint64_t bytes = 0;
    for (const ByteRange& part : parts) {
        bytes += part.size;
    }
    return parts.size() == 1 || (parts.size() <= MaxRanges && bytes <= MaxRangesBytes);
}

/// What the header Range chooses, if it counts.
RangeChoice rangesOf(const HeadView& head, const Representation& representation, const Validators& validators,
                     std::int64_t now) {
    if (head.method() != "GET" || !representation.coding.empty() ||
        !isRangeCurrent(head.header("If-Range"), validators, secondsOf(now))) {
        return {};
    }
    RangeChoice choice = chooseRanges(head.header("Range"), representation.found.facts.size);
    return choice.kind == RangeChoice::Kind::Parts && !areFew(choice.parts) ? RangeChoice{} : choice;
}

} // namespace

Validators validatorsOf(const FileFacts& facts, std::string_view coding, std::int64_t nowNs) {
    std::string etag = nowNs - facts.modifiedNs < UnsettledNs ? "W/\"" : "\"";
    etag.append(hexOf(facts.size)).append("-").append(hexOf(static_cast<std::uint64_t>(facts.modifiedNs)));
    etag.append("-").append(hexOf(static_cast<std::uint64_t>(facts.changedNs)));
    if (!coding.empty()) {
        etag.append("-").append(coding);
    }
    return {etag.append("\""), secondsOf((std::min)(facts.modifiedNs, nowNs))};
}

void setRepresentation(const HeadView& head, Answer& answer, Representation&& representation) {
    answer.dropBody();
    answer.setTypeOfBody(representation.mimeType);
    if (!representation.coding.empty()) {
        answer.headers.set("Content-Encoding", representation.coding);
    }
    if (representation.hasVariants) {
        answer.headers.add("Vary", "Accept-Encoding");
    }
    answer.isOfFile = true;
    if (answer.status != Ok || (head.method() != "GET" && head.method() != "HEAD")) {
        // The page of an error, or what came of a POST: conditions are not about that.
        setWhole(answer, std::move(representation));
        return;
    }
    const std::int64_t now = nowNs();
    const Validators validators = validatorsOf(representation.found.facts, representation.coding, now);
    const Conditions conditions{head.header("If-Match"), head.header("If-None-Match"), head.header("If-Modified-Since"),
                                head.header("If-Unmodified-Since")};
    const ConditionVerdict verdict = checkConditions(conditions, validators, true, secondsOf(now));
    if (verdict == ConditionVerdict::PreconditionFailed) {
        throw HttpError(PreconditionFailed);
    }
    answer.headers.set("ETag", validators.etag);
    answer.headers.set("Last-Modified", httpDate(validators.lastModified));
    if (verdict == ConditionVerdict::NotModified) {
        setNotModified(answer, std::move(representation));
        return;
    }
    answer.headers.set("Accept-Ranges", "bytes");
    const std::uint64_t size = representation.found.facts.size;
    const RangeChoice choice = rangesOf(head, representation, validators, now);
    switch (choice.kind) {
    case RangeChoice::Kind::Unsatisfiable:
        throw HttpError(HttpError(RangeNotSatisfiable).header("Content-Range", "bytes */" + std::to_string(size)));
    case RangeChoice::Kind::Whole:
        setWhole(answer, std::move(representation));
        return;
    case RangeChoice::Kind::Parts:
        break;
    }
    answer.status = PartialContent;
    if (choice.parts.size() == 1) {
        answer.headers.set("Content-Range", contentRange(choice.parts.front(), size));
        setPart(answer, std::move(representation.found.file), choice.parts.front());
    } else {
        setParts(answer, representation, choice.parts);
    }
}

} // namespace vireo::impl
