#include "vireo/support/HttpUrl.h"

#include "frame/Utf8.h"
#include "vireo/support/qlStringUtils.h"

#include <algorithm>
#include <array>
#include <limits>
#include <utility>

namespace ql {
namespace {

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

bool isLetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool isHexDigit(char c) {
    return isDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

unsigned int hexValue(char c) {
    if (isDigit(c)) {
        return static_cast<unsigned int>(c - '0');
    }
    return static_cast<unsigned int>((c >= 'a' ? c - 'a' : c - 'A') + 10);
}

bool isOneOf(char c, std::string_view characters) {
    return characters.find(c) != std::string_view::npos;
}

/// One entry for each byte.
using CharacterSet = std::array<bool, 256>;

constexpr void add(CharacterSet& set, std::string_view characters) {
    for (const char c : characters) {
        set[static_cast<unsigned char>(c)] = true;
    }
}

/// RFC 3986's unreserved and sub-delims, which every component after the scheme may hold, and further ones.
constexpr CharacterSet allowed(std::string_view further) {
    CharacterSet set{};
    add(set, "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789");
    add(set, "-._~!$&'()*+,;=");
    add(set, further);
    return set;
}

/// A part of the URL whose text is percent-encoded.
struct Component {
    const char* name;
    /// What it may hold besides escapes.
    CharacterSet characters;
};

constexpr Component UserInfo{"user information", allowed(":")};
constexpr Component Host{"host", allowed("")};
constexpr Component Path{"path", allowed(":@/")};
constexpr Component Query{"query", allowed(":@/?")};
constexpr Component Fragment{"fragment", allowed(":@/?")};

/// " at position 3 of the path", counted in bytes from 1.
std::string placeText(std::size_t index, const char* component) {
    return " at position " + std::to_string(index + 1) + " of the " + component;
}

/// The character for a message, which must stay printable whatever the URL holds.
std::string characterText(char c) {
    if (c == ' ') {
        return "a space";
    }
    if (c > 0x20 && c < 0x7F) {
        return std::string("'") + c + "'";
    }
    constexpr char digits[] = "0123456789ABCDEF";
    const auto byte = static_cast<unsigned char>(c);
    return std::string("byte 0x") + digits[byte >> 4U] + digits[byte & 0xFU];
}

/// What is wrong with the characters of an encoded text, or an empty text.
std::string checkEncoded(const Component& component, std::string_view text) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (component.characters[static_cast<unsigned char>(text[i])]) {
            continue;
        }
        if (text[i] == '%') {
            if (text.size() - i < 3 || !isHexDigit(text[i + 1]) || !isHexDigit(text[i + 2])) {
                return "'%'" + placeText(i, component.name) + " is not followed by two hexadecimal digits";
            }
            i += 2;
        } else {
            return characterText(text[i]) + placeText(i, component.name) + " must be percent-encoded";
        }
    }
    return {};
}

/// Decodes a text that checkEncoded() has passed.
std::string decode(std::string_view text) {
    std::string decoded;
    decoded.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%') {
            decoded.push_back(static_cast<char>(hexValue(text[i + 1]) << 4U | hexValue(text[i + 2])));
            i += 2;
        } else {
            decoded.push_back(text[i]);
        }
    }
    return decoded;
}

/// The index in the encoded text of what decodes to index `decodedIndex`.
std::size_t encodedIndex(std::string_view text, std::size_t decodedIndex) {
    std::size_t at = 0;
    for (std::size_t i = 0; i < decodedIndex; ++i) {
        at += text[at] == '%' ? 3U : 1U;
    }
    return at;
}

/// What is wrong with an encoded text, or an empty text.
/// @param decoded if not null, has it without escapes on success.
std::string decodeChecked(const Component& component, std::string_view text, bool strictUtf8, std::string* decoded) {
    std::string problem = checkEncoded(component, text);
    if (!problem.empty()) {
        return problem;
    }
    // Without escapes a text that passed is ASCII, and needs no copy to look at.
    if (text.find('%') == std::string_view::npos) {
        if (decoded != nullptr) {
            *decoded = text;
        }
        return {};
    }
    std::string plain = decode(text);
    const std::size_t invalid = strictUtf8 ? impl::findInvalidUtf8(plain) : std::string_view::npos;
    if (invalid != std::string_view::npos) {
        return "the escape" + placeText(encodedIndex(text, invalid), component.name) +
               " does not decode to valid UTF-8";
    }
    if (decoded != nullptr) {
        *decoded = std::move(plain);
    }
    return {};
}

std::string checkSchemeName(std::string_view scheme) {
    if (scheme.empty()) {
        return "the URL does not begin with a scheme";
    }
    if (!isLetter(scheme[0])) {
        return characterText(scheme[0]) + placeText(0, "scheme") + " is not a letter";
    }
    for (std::size_t i = 1; i < scheme.size(); ++i) {
        if (!isLetter(scheme[i]) && !isDigit(scheme[i]) && !isOneOf(scheme[i], "+-.")) {
            return characterText(scheme[i]) + placeText(i, "scheme") + " is not a letter, digit, '+', '-' or '.'";
        }
    }
    return {};
}

/// Four decimal numbers up to 255 without leading zeros.
bool isIpv4(std::string_view text) {
    std::size_t at = 0;
    for (int part = 0; part < 4; ++part) {
        if (part > 0) {
            if (at == text.size() || text[at] != '.') {
                return false;
            }
            ++at;
        }
        const std::size_t start = at;
        unsigned int value = 0;
        while (at < text.size() && isDigit(text[at]) && at - start < 3) {
            value = value * 10 + hexValue(text[at]);
            ++at;
        }
        const bool leadingZero = at - start > 1 && text[start] == '0';
        if (at == start || leadingZero || value > 255) {
            return false;
        }
    }
    return at == text.size();
}

/// Eight groups of up to four hexadecimal digits; "::" stands for one or more of zeros, once; the last two may be an
/// IPv4 address. The systems' own inet_pton() differ in what they take, such as "::01.2.3.4".
bool isIpv6(std::string_view text) {
    constexpr std::size_t allGroups = 8;
    if (text == "::") {
        return true;
    }
    bool compressed = text.substr(0, 2) == "::";
    std::size_t at = compressed ? 2 : 0;
    std::size_t groups = 0;
    while (true) {
        std::size_t end = at;
        while (end < text.size() && isHexDigit(text[end])) {
            ++end;
        }
        if (end < text.size() && text[end] == '.') {
            if (!isIpv4(text.substr(at))) {
                return false;
            }
            groups += 2;
            break;
        }
        if (end == at || end - at > 4) {
            return false;
        }
        ++groups;
        at = end;
        if (at == text.size()) {
            break;
        }
        if (text[at] != ':') {
            return false;
        }
        ++at;
        if (at < text.size() && text[at] == ':') {
            if (compressed) {
                return false;
            }
            compressed = true;
            ++at;
            if (at == text.size()) {
                break;
            }
        }
    }
    return compressed ? groups < allGroups : groups == allGroups;
}

/// "v", a version in hexadecimal, ".", and an address of that version.
bool isIpOfLaterVersion(std::string_view text) {
    static constexpr CharacterSet addressCharacters = allowed(":");
    const std::size_t dot = (std::min)(text.find('.'), text.size());
    const std::string_view version = text.substr(0, dot);
    const std::string_view address = text.substr((std::min)(dot + 1, text.size()));
    return version.size() > 1 && (version[0] == 'v' || version[0] == 'V') &&
           std::all_of(version.begin() + 1, version.end(), isHexDigit) && !address.empty() &&
           std::all_of(address.begin(), address.end(),
                       [](char c) { return addressCharacters[static_cast<unsigned char>(c)]; });
}

std::string parsePort(std::string_view text, std::uint16_t& port) {
    constexpr std::uint32_t highest = std::numeric_limits<std::uint16_t>::max();
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (!isDigit(text[i])) {
            return characterText(text[i]) + placeText(i, "port") + " is not a digit";
        }
        value = (std::min)(value * 10 + hexValue(text[i]), highest + 1);
    }
    if (value > highest) {
        return "the port is above " + std::to_string(highest);
    }
    port = static_cast<std::uint16_t>(value);
    return {};
}

} // namespace

Url::Url() = default;
Url::~Url() = default;
Url::Url(const Url&) = default;
Url::Url(Url&&) noexcept = default;
Url& Url::operator=(const Url&) = default;
Url& Url::operator=(Url&&) noexcept = default;

bool Url::fromEncodedUtf8String(const std::string& text, std::string* error, bool strictUtf8, std::uint64_t maxLength) {
    // Copied before anything changes: the caller may pass toString() or the error text itself.
    return fromEncodedUtf8String(std::string(text), error, strictUtf8, maxLength);
}

bool Url::fromEncodedUtf8String(std::string&& text, std::string* error, bool strictUtf8, std::uint64_t maxLength) {
    std::string given = std::move(text);
    clear();
    std::string problem = parse(given, strictUtf8, maxLength);
    if (problem.empty()) {
        problem = checkScheme();
    }
    if (problem.empty()) {
        text_ = std::move(given);
        valid_ = true;
    } else {
        clear();
    }
    if (error != nullptr) {
        *error = std::move(problem);
    }
    return valid_;
}

std::string Url::checkScheme() const {
    return {};
}

std::string Url::parse(std::string_view all, bool strictUtf8, std::uint64_t maxLength) {
    const std::size_t colon = all.find(':');
    if (colon == std::string_view::npos) {
        return "the URL does not begin with a scheme";
    }
    std::string problem = checkSchemeName(all.substr(0, colon));
    if (!problem.empty()) {
        return problem;
    }
    scheme_ = all.substr(0, colon);
    qlStringUtils::toLower(scheme_);
    if (all.substr(colon + 1, 2) != "//") {
        return "the scheme is not followed by '://'";
    }

    const std::size_t authorityStart = colon + 3;
    const std::size_t authorityEnd = (std::min)(all.find_first_of("/?#", authorityStart), all.size());
    std::string_view rest = all.substr(authorityEnd);
    if (rest.size() > maxLength) {
        return "the part after the host is " + std::to_string(rest.size()) + " bytes long, more than the allowed " +
               std::to_string(maxLength);
    }
    problem = parseAuthority(all.substr(authorityStart, authorityEnd - authorityStart));
    if (!problem.empty()) {
        return problem;
    }

    const std::size_t hash = rest.find('#');
    if (hash != std::string_view::npos) {
        fragment_ = rest.substr(hash + 1);
        rest = rest.substr(0, hash);
    }
    const std::size_t questionMark = rest.find('?');
    if (questionMark != std::string_view::npos) {
        hasQuery_ = true;
        query_ = rest.substr(questionMark + 1);
        rest = rest.substr(0, questionMark);
    }
    path_ = rest;
    problem = decodeChecked(Path, path_, strictUtf8, &decodedPath_);
    if (problem.empty()) {
        problem = decodeChecked(Query, query_, strictUtf8, nullptr);
    }
    if (problem.empty()) {
        problem = decodeChecked(Fragment, fragment_, strictUtf8, nullptr);
    }
    return problem;
}

std::string Url::parseAuthority(std::string_view rest) {
    const std::size_t at = rest.find('@');
    if (at != std::string_view::npos) {
        hasUserInfo_ = true;
        userInfo_ = rest.substr(0, at);
        rest = rest.substr(at + 1);
        std::string problem = checkEncoded(UserInfo, userInfo_);
        if (!problem.empty()) {
            return problem;
        }
    }

    if (!rest.empty() && rest[0] == '[') {
        const std::size_t close = rest.find(']');
        if (close == std::string_view::npos) {
            return "the '[' at position 1 of the host has no ']'";
        }
        host_ = rest.substr(1, close - 1);
        rest = rest.substr(close + 1);
        if (!isIpv6(host_) && !isIpOfLaterVersion(host_)) {
            return "the brackets at position 1 of the host do not hold an IP address";
        }
        if (!rest.empty() && rest[0] != ':') {
            return characterText(rest[0]) + placeText(close + 1, "host") + " is not the ':' of a port";
        }
    } else {
        const std::size_t colon = (std::min)(rest.find(':'), rest.size());
        host_ = rest.substr(0, colon);
        rest = rest.substr(colon);
        std::string problem = checkEncoded(Host, host_);
        if (!problem.empty()) {
            return problem;
        }
    }
    qlStringUtils::toLower(host_);
    return rest.empty() ? std::string() : parsePort(rest.substr(1), port_);
}

void Url::clear() {
    valid_ = false;
    hasUserInfo_ = false;
    hasQuery_ = false;
    port_ = 0;
    for (std::string* text : {&text_, &scheme_, &userInfo_, &host_, &path_, &decodedPath_, &query_, &fragment_}) {
        text->clear();
    }
}

namespace http {

HttpUrl::HttpUrl() = default;
HttpUrl::~HttpUrl() = default;
HttpUrl::HttpUrl(const HttpUrl&) = default;
HttpUrl::HttpUrl(HttpUrl&&) noexcept = default;
HttpUrl& HttpUrl::operator=(const HttpUrl&) = default;
HttpUrl& HttpUrl::operator=(HttpUrl&&) noexcept = default;

std::string HttpUrl::checkScheme() const {
    if (getScheme() != "http" && getScheme() != "https") {
        return "the scheme is '" + getScheme() + "', neither http nor https";
    }
    if (hasUserInfo()) {
        return "the '@' before the host is not allowed in an " + getScheme() + " URL";
    }
    if (getHost().empty()) {
        return "the host is missing";
    }
    return {};
}

} // namespace http
} // namespace ql
