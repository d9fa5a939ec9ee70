#include "app/encoding/CompressionRules.h"

#include "app/encoding/Brotli.h"
#include "app/encoding/Gzip.h"
#include "app/kernel/Answer.h"
#include "frame/HttpSyntax.h"

#include <algorithm>
#include <array>
#include <memory>

namespace vireo::impl {

namespace {

using ql::impl::isSameWord;

/// Files up to this size are read to be encoded. Larger ones are sent from the disk as they are.
constexpr std::uint64_t MaxEncodedFileBytes = 1048576;

char lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

/// @param member lower case or not.
bool hasMember(const AnswerHeaders& headers, std::string_view name, std::string_view member) {
    for (const auto& [key, line] : headers.asMap()) {
        if (!isSameWord(line.first, name)) {
            continue;
        }
        for (std::string_view rest = line.second; !rest.empty();) {
            if (isSameWord(ql::impl::takeElement(rest), member)) {
                return true;
            }
        }
    }
    return false;
}

/// Besides all of "text/*" and those that end like JSON and XML.
constexpr std::array<std::string_view, 14> CompressibleTypes = {"application/javascript",
                                                                "application/json",
                                                                "application/manifest+json",
                                                                "application/rtf",
                                                                "application/sql",
                                                                "application/wasm",
                                                                "application/x-javascript",
                                                                "application/x-ndjson",
                                                                "application/xml",
                                                                "application/x-yaml",
                                                                "application/yaml",
                                                                "font/otf",
                                                                "font/ttf",
                                                                "image/vnd.microsoft.icon"};

bool isOfKind(std::string_view type, std::string_view kind) {
    return kind.ends_with("/*") ? type.starts_with(kind.substr(0, kind.size() - 1)) : type == kind;
}

/// @param contentType with its parameters.
bool isCompressible(const CompressionRules& rules, std::string_view contentType) {
    std::string type(ql::impl::withoutBlanks(contentType.substr(0, contentType.find(';'))));
    std::transform(type.begin(), type.end(), type.begin(), lower);
    if (type == "text/event-stream") {
        return false; // whose events wait for nothing
    }
    return type.starts_with("text/") || type.ends_with("+json") || type.ends_with("+xml") ||
           std::find(CompressibleTypes.begin(), CompressibleTypes.end(), type) != CompressibleTypes.end() ||
           std::any_of(rules.types.begin(), rules.types.end(),
                       [&](const std::string& kind) { return isOfKind(type, kind); });
}

bool isOfWorthySize(const CompressionRules& rules, const Answer& answer) {
    if (answer.isStream) {
        return true;
    }
    if (answer.file) {
        return answer.file->size >= rules.minBytes && answer.file->size <= MaxEncodedFileBytes;
    }
    return answer.body.size() >= rules.minBytes;
}

/// Whether it would be compressed for somebody.
bool isWorthIt(const CompressionRules& rules, const Answer& answer) {
    // A file's 304 is told as the file would be.
    const bool hasContent =
        !isWithoutContent(answer.status) && answer.status != 206 && (answer.status != 304 || answer.file);
    if (!hasContent || answer.begin) {
        return false;
    }
    const std::string* type = answer.headers.find("Content-Type");
    return type && isOfWorthySize(rules, answer) && isCompressible(rules, *type) &&
           !answer.headers.find("Content-Encoding") && !hasMember(answer.headers, "Cache-Control", "no-transform");
}

std::unique_ptr<BodyEncoder> makeEncoder(const CompressionRules& rules, std::string_view coding) {
    if (coding == "br") {
        return makeBrotliEncoder(rules.brotliLevel);
    }
    if (coding == "gzip") {
        return std::make_unique<GzipEncoder>(rules.level);
    }
    return nullptr;
}

} // namespace

void offerEncoding(const CompressionRules& rules, std::string_view coding, Answer& answer) {
    if (!isWorthIt(rules, answer)) {
        return;
    }
    if (!hasMember(answer.headers, "Vary", "Accept-Encoding") && !hasMember(answer.headers, "Vary", "*")) {
        answer.headers.add("Vary", "Accept-Encoding");
    }
    answer.encoder = makeEncoder(rules, coding);
}

} // namespace vireo::impl
