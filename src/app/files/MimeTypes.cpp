#include "app/files/MimeTypes.h"

#include "frame/HttpSyntax.h"

#include <array>
#include <cstddef>

namespace vireo::impl {

namespace {

using ql::impl::isSameWord;

struct Known {
    std::string_view extension;
    std::string_view type;
};

constexpr std::array Types = {
    Known{"html", "text/html; charset=utf-8"},
    Known{"css", "text/css; charset=utf-8"},
    Known{"js", "text/javascript; charset=utf-8"},
    Known{"mjs", "text/javascript; charset=utf-8"},
    Known{"json", "application/json"},
    Known{"map", "application/json"},
    Known{"png", "image/png"},
    Known{"jpg", "image/jpeg"},
    Known{"jpeg", "image/jpeg"},
    Known{"svg", "image/svg+xml"},
    Known{"ico", "image/x-icon"},
    Known{"woff2", "font/woff2"},
    Known{"txt", "text/plain; charset=utf-8"},
    Known{"htm", "text/html; charset=utf-8"},
    Known{"xhtml", "application/xhtml+xml"},
    Known{"md", "text/markdown; charset=utf-8"},
    Known{"csv", "text/csv; charset=utf-8"},
    Known{"log", "text/plain; charset=utf-8"},
    Known{"ics", "text/calendar; charset=utf-8"},
    Known{"xml", "application/xml"},
    Known{"xsl", "application/xml"},
    Known{"rss", "application/rss+xml"},
    Known{"atom", "application/atom+xml"},
    Known{"jsonld", "application/ld+json"},
    Known{"geojson", "application/geo+json"},
    Known{"webmanifest", "application/manifest+json"},
    Known{"wasm", "application/wasm"},
    Known{"gif", "image/gif"},
    Known{"webp", "image/webp"},
    Known{"avif", "image/avif"},
    Known{"apng", "image/apng"},
    Known{"bmp", "image/bmp"},
    Known{"tif", "image/tiff"},
    Known{"tiff", "image/tiff"},
    Known{"heic", "image/heic"},
    Known{"woff", "font/woff"},
    Known{"ttf", "font/ttf"},
    Known{"otf", "font/otf"},
    Known{"eot", "application/vnd.ms-fontobject"},
    Known{"mp3", "audio/mpeg"},
    Known{"m4a", "audio/mp4"},
    Known{"aac", "audio/aac"},
    Known{"oga", "audio/ogg"},
    Known{"ogg", "audio/ogg"},
    Known{"opus", "audio/ogg"},
    Known{"wav", "audio/wav"},
    Known{"flac", "audio/flac"},
    Known{"weba", "audio/webm"},
    Known{"mp4", "video/mp4"},
    Known{"m4v", "video/mp4"},
    Known{"ogv", "video/ogg"},
    Known{"webm", "video/webm"},
    Known{"mov", "video/quicktime"},
    Known{"mpeg", "video/mpeg"},
    Known{"avi", "video/x-msvideo"},
    Known{"mkv", "video/matroska"},
    Known{"m3u8", "application/vnd.apple.mpegurl"},
    Known{"vtt", "text/vtt; charset=utf-8"},
    Known{"pdf", "application/pdf"},
    Known{"rtf", "application/rtf"},
    Known{"epub", "application/epub+zip"},
    Known{"doc", "application/msword"},
    Known{"docx", "application/vnd.openxmlformats-officedocument.wordprocessingml.document"},
    Known{"xls", "application/vnd.ms-excel"},
    Known{"xlsx", "application/vnd.openxmlformats-officedocument.spreadsheetml.sheet"},
    Known{"ppt", "application/vnd.ms-powerpoint"},
    Known{"pptx", "application/vnd.openxmlformats-officedocument.presentationml.presentation"},
    Known{"odt", "application/vnd.oasis.opendocument.text"},
    Known{"ods", "application/vnd.oasis.opendocument.spreadsheet"},
    Known{"odp", "application/vnd.oasis.opendocument.presentation"},
    Known{"zip", "application/zip"},
    Known{"gz", "application/gzip"},
    Known{"tgz", "application/gzip"},
    Known{"bz2", "application/x-bzip2"},
    Known{"xz", "application/x-xz"},
    Known{"zst", "application/zstd"},
    Known{"7z", "application/x-7z-compressed"},
    Known{"rar", "application/vnd.rar"},
    Known{"tar", "application/x-tar"},
    Known{"jar", "application/java-archive"},
};

} // namespace

std::string_view extensionOf(std::string_view fileName) {
    const std::size_t dot = fileName.rfind('.');
    return dot == std::string_view::npos || dot == 0 ? std::string_view() : fileName.substr(dot + 1);
}

std::string_view mimeTypeOf(std::string_view extension) {
    for (const Known& known : Types) {
        if (isSameWord(known.extension, extension)) {
            return known.type;
        }
    }
    return "application/octet-stream";
}

} // namespace vireo::impl
