// SPDX-License-Identifier: MIT
#include "app/testing/RequestPlan.h"

#include "app/testing/ResponseText.h"
#include "frame/HttpSyntax.h"
#include "vireo/support/Base64.h"

#include <algorithm>
#include <array>
#include <charconv>

namespace vireo::impl {

namespace {

bool isFile(const RequestPlan::Part& part) {
    return !part.type.empty();
}

bool isUnreserved(char c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '-' || c == '.' ||
           c == '_' || c == '*';
}

void appendEncoded(std::string& out, std::string_view text) {
    constexpr std::string_view Digits = "0123456789ABCDEF";
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (isUnreserved(c)) {
            out += c;
        } else if (c == ' ') {
            out += '+';
        } else {
            out += {'%', Digits[byte / 16U], Digits[byte % 16U]};
        }
    }
}

/// As browsers write a name between quotes.
std::string inQuotes(std::string_view text) {
    std::string out = "\"";
    for (const char c : text) {
        if (c == '"') {
            out += "%22";
        } else if (c == '\r') {
            out += "%0D";
        } else if (c == '\n') {
            out += "%0A";
        } else {
            out += c;
        }
    }
    return out + "\"";
}

/// One that is in none of the parts.
std::string boundaryFor(const std::vector<RequestPlan::Part>& parts) {
    std::string boundary = "test-client";
    const auto hasIt = [&](const RequestPlan::Part& part) { return part.bytes.find(boundary) != std::string::npos; };
    while (std::any_of(parts.begin(), parts.end(), hasIt)) {
        boundary += 'x';
    }
    return boundary;
}

/// Of a request's body, before it is cut into chunks.
struct Content {
    std::string bytes;
    std::string type;
};

Content contentOf(const RequestPlan& plan) {
    if (plan.parts.empty()) {
        return {plan.body, plan.type};
    }
    if (std::none_of(plan.parts.begin(), plan.parts.end(), isFile)) {
        return {urlEncodedOf(plan.parts), "application/x-www-form-urlencoded"};
    }
    const std::string boundary = boundaryFor(plan.parts);
    return {multipartOf(plan.parts, boundary), "multipart/form-data; boundary=" + boundary};
}

std::string hexadecimal(std::size_t number) {
    std::array<char, 2 * sizeof number> room{};
    return {room.data(), std::to_chars(room.data(), room.data() + room.size(), number, 16).ptr};
}

std::string chunksOf(std::string_view bytes, std::size_t chunkBytes) {
    std::string chunks;
    while (!bytes.empty()) {
        const std::string_view piece = bytes.substr(0, chunkBytes);
        chunks += hexadecimal(piece.size()) + "\r\n";
        chunks += piece;
        chunks += "\r\n";
        bytes.remove_prefix(piece.size());
    }
    return chunks + "0\r\n\r\n";
}

bool names(const RequestPlan::Headers& headers, std::string_view name) {
    return std::any_of(headers.begin(), headers.end(),
                       [&](const auto& header) { return ql::impl::isSameWord(header.first, name); });
}

} // namespace

std::string urlEncodedOf(const std::vector<RequestPlan::Part>& fields) {
    std::string body;
    for (const RequestPlan::Part& field : fields) {
        body += body.empty() ? "" : "&";
        appendEncoded(body, field.name);
        body += '=';
        appendEncoded(body, field.bytes);
    }
    return body;
}

std::string multipartOf(const std::vector<RequestPlan::Part>& parts, std::string_view boundary) {
    const std::string line = "--" + std::string(boundary);
    std::string body;
    for (const RequestPlan::Part& part : parts) {
        body += line + "\r\nContent-Disposition: form-data; name=" + inQuotes(part.name);
        if (isFile(part)) {
            body += "; filename=" + inQuotes(part.fileName) + "\r\nContent-Type: " + part.type;
        }
        body += "\r\n\r\n" + part.bytes + "\r\n";
    }
    return body + line + "--\r\n";
}

std::string basicCredentials(std::string_view user, std::string_view password) {
    const std::string both = std::string(user).append(":").append(password);
    std::string text;
    ql::base64Encode(both.data(), both.size(), text, ql::Base64CharSet::Standard);
    return "Basic " + text;
}

std::string bearerCredentials(std::string_view token) {
    return "Bearer " + std::string(token);
}

RequestText RequestText::Of(const RequestPlan& plan, const std::string& authority, const std::string& cookies,
                            const RequestPlan::Headers& standing) {
    const Content content = contentOf(plan);
    RequestText text;
    text.head = plan.method + " " + plan.target + " HTTP/1.1\r\n";
    const auto add = [&](const std::string& name, const std::string& value) {
        if (!value.empty() && !names(plan.headers, name)) {
            text.head += name + ": " + value + "\r\n";
        }
    };
    const auto addOwn = [&](const std::string& name, const std::string& value) {
        if (!names(standing, name)) {
            add(name, value);
        }
    };
    addOwn("Host", authority);
    addOwn("Cookie", cookies);
    addOwn("Content-Type", content.type);
    if (plan.chunkBytes != 0) {
        addOwn("Transfer-Encoding", "chunked");
        text.body = chunksOf(content.bytes, plan.chunkBytes);
    } else {
        addOwn("Content-Length", content.type.empty() ? "" : std::to_string(content.bytes.size()));
        text.body = content.bytes;
    }
    for (const auto& [name, value] : standing) {
        add(name, value);
    }
    for (const auto& [name, value] : plan.headers) {
        text.head += name;
        text.head += ": ";
        text.head += value;
        text.head += "\r\n";
    }
    text.head += "\r\n";
    return text;
}

} // namespace vireo::impl
