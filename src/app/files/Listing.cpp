#include "app/files/Listing.h"

#include <algorithm>
#include <tuple>

namespace vireo::impl {

namespace {

bool isUnreserved(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' || c == '.' ||
           c == '_' || c == '~';
}

std::string line(const DirectoryEntry& entry) {
    const char* const mark = entry.isDirectory ? "/" : "";
    // Without "./" a name with a colon would be another scheme.
    std::string text = "<tr><td><a href=\"./" + escapedSegment(entry.name) + mark + "\">" + escapedHtml(entry.name) +
                       mark + "</a></td><td>";
    return text.append(entry.isDirectory ? "" : std::to_string(entry.size)).append("</td></tr>\n");
}

} // namespace

std::string escapedHtml(std::string_view text) {
    std::string escaped;
    escaped.reserve(text.size());
    for (const char c : text) {
        switch (c) {
        case '&':
            escaped += "&amp;";
            break;
        case '<':
            escaped += "&lt;";
            break;
        case '>':
            escaped += "&gt;";
            break;
        case '"':
            escaped += "&quot;";
            break;
        case '\'':
            escaped += "&#39;";
            break;
        default:
            escaped += c;
        }
    }
    return escaped;
}

std::string escapedSegment(std::string_view segment) {
    constexpr std::string_view Digits = "0123456789ABCDEF";
    std::string escaped;
    for (const char c : segment) {
        if (isUnreserved(c)) {
            escaped += c;
        } else {
            const auto byte = static_cast<unsigned char>(c);
            escaped.append("%").append(1, Digits[byte >> 4U]).append(1, Digits[byte & 15U]);
        }
    }
    return escaped;
}

std::string listingPage(std::string_view title, std::vector<DirectoryEntry>&& entries, bool isRoot) {
    std::ranges::sort(entries, {}, [](const DirectoryEntry& entry) {
        return std::tuple<bool, const std::string&>(!entry.isDirectory, entry.name);
    });
    const std::string name = escapedHtml(title);
    std::string page = "<!DOCTYPE html>\n<html><head><meta charset=\"utf-8\"><title>" + name +
                       "</title></head>\n<body><h1>" + name + "</h1>\n<table>\n";
    if (!isRoot) {
        page += "<tr><td><a href=\"../\">../</a></td><td></td></tr>\n";
    }
    for (const DirectoryEntry& entry : entries) {
        page += line(entry);
    }
    return page += "</table></body></html>\n";
}

} // namespace vireo::impl
