#include "engine/FormFilter.h"

#include "frame/HttpSyntax.h"

#include <algorithm>
#include <optional>
#include <utility>

namespace ql::impl {

namespace {

constexpr std::string_view UrlEncoded = "application/x-www-form-urlencoded";
constexpr std::string_view Multipart = "multipart/form-data";
constexpr std::string_view BoundaryParameter = "boundary=";
constexpr std::size_t MaxBoundaryBytes = 70;

/// Whether a Content-Type is this one, with parameters or without.
bool isType(std::string_view contentType, std::string_view type) {
    const std::string_view rest = contentType.substr((std::min)(type.size(), contentType.size()));
    return isSameWord(contentType.substr(0, type.size()), type) && (rest.empty() || rest[0] == ';' || rest[0] == ' ');
}

bool isBoundaryByte(char c) {
    constexpr std::string_view Others = "'()+_,-./:=? ";
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
           Others.find(c) != std::string_view::npos;
}

/// The boundary as the engine takes it: all that follows on "boundary=", without quotes. None for what is none by
/// RFC 2046 section 5.1.1, such as one with further parameters behind it.
std::optional<std::string_view> boundaryOf(std::string_view contentType) {
    const std::size_t at = contentType.find(BoundaryParameter);
    if (at == std::string_view::npos) {
        return std::nullopt;
    }
    std::string_view boundary = contentType.substr(at + BoundaryParameter.size());
    if (boundary.size() > 1 && boundary.front() == '"' && boundary.back() == '"') {
        boundary = boundary.substr(1, boundary.size() - 2);
    }
    const bool isGood = !boundary.empty() && boundary.size() <= MaxBoundaryBytes && boundary.back() != ' ' &&
                        std::ranges::all_of(boundary, isBoundaryByte);
    return isGood ? std::optional(boundary) : std::nullopt;
}

bool isHexDigit(char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

} // namespace

std::unique_ptr<FormFilter> FormFilter::For(std::string_view contentType) {
    if (isType(contentType, UrlEncoded)) {
        return std::make_unique<UrlEncodedFilter>();
    }
    if (isType(contentType, Multipart)) {
        if (const auto boundary = boundaryOf(contentType)) {
            return std::make_unique<MultipartFilter>(*boundary);
        }
    }
    return nullptr;
}

bool UrlEncodedFilter::filter(std::string_view body, FormTarget& target) {
    for (const char c : body) {
        if (!take(c, target)) {
            return false;
        }
    }
    return target.pass(std::exchange(out_, {}));
}

bool UrlEncodedFilter::finish(FormTarget& target) {
    endEscape();
    // A line end is the engine's end of the last pair.
    return target.pass(std::exchange(out_, {}) + '\n');
}

bool UrlEncodedFilter::take(char c, FormTarget& target) {
    if (!escape_.empty()) {
        if (isHexDigit(c)) {
            return takeOfEscape(c);
        }
        endEscape();
    }
    switch (c) {
    case '%':
        escape_ = c;
        return true;
    case '&':
        isInName_ = true;
        if (!target.pass(std::exchange(out_, {}) + c)) {
            return false;
        }
        target.separate();
        return true;
    case '=':
        out_ += isInName_ ? "=" : "%3D";
        isInName_ = false;
        return true;
    case '\r':
        out_ += "%0D";
        return true;
    case '\n':
        out_ += "%0A";
        return true;
    case '\0':
        out_ += "%00";
        // The engine ends a name there.
        return !isInName_;
    default:
        out_ += c;
        return true;
    }
}

bool UrlEncodedFilter::takeOfEscape(char c) {
    escape_ += c;
    if (escape_.size() < 3) {
        return true;
    }
    const bool isNul = escape_ == "%00";
    out_ += std::exchange(escape_, {});
    return !isNul || !isInName_;
}

/// What is no escape stands for itself.
void UrlEncodedFilter::endEscape() {
    if (!escape_.empty()) {
        out_ += "%25" + std::exchange(escape_, {}).substr(1);
    }
}

bool MultipartFilter::filter(std::string_view body, FormTarget& target) {
    std::size_t begin = 0;
    for (std::size_t at = 0; at < body.size(); ++at) {
        if (matched_ == 0) {
            at = (std::min)(body.find('\r', at), body.size() - 1);
        }
        if (body[at] != delimiter_[matched_]) {
            matched_ = body[at] == '\r' ? 1 : 0;
            continue;
        }
        ++matched_;
        if (matched_ == delimiter_.size()) {
            if (!target.pass(body.substr(begin, at + 1 - begin))) {
                return false;
            }
            target.separate();
            begin = at + 1;
            matched_ = 0;
            hasDelimiter_ = true;
        }
    }
    return target.pass(body.substr(begin));
}

bool MultipartFilter::finish(FormTarget& /*target*/) {
    return hasDelimiter_;
}

} // namespace ql::impl
