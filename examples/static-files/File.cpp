#include "File.h"

#include <algorithm>
#include <chrono>
#include <map>
#include <string_view>
#include <system_error>

namespace fs = std::filesystem;

namespace {

std::chrono::sys_seconds systemTime(fs::file_time_type time) {
    using namespace std::chrono;
    // The clocks differ by whole seconds.
    static const auto offset =
        round<seconds>(system_clock::now().time_since_epoch() - fs::file_time_type::clock::now().time_since_epoch());
    return sys_seconds(floor<seconds>(time.time_since_epoch()) + offset);
}

std::string contentTypeOf(const fs::path& path) {
    static const std::map<std::string, std::string> types = {
        {".css", "text/css"},          {".html", "text/html; charset=utf-8"},
        {".js", "text/javascript"},    {".png", "image/png"},
        {".svg", "image/svg+xml"},     {".txt", "text/plain; charset=utf-8"},
        {".jpg", "image/jpeg"},        {".json", "application/json"},
        {".wasm", "application/wasm"},
    };
    const auto type = types.find(path.extension().string());
    return type == types.end() ? "application/octet-stream" : type->second;
}

/// Whether each segment is a plain name. An empty one is none: a redirection to "//host/" would leave the server.
bool hasPlainSegments(std::string_view path) {
    while (!path.empty()) {
        const std::size_t end = std::min(path.find('/'), path.size());
        if (end == 0 || path.front() == '.') {
            return false;
        }
        path.remove_prefix(std::min(end + 1, path.size()));
    }
    return true;
}

} // namespace

std::optional<File> findFile(const fs::path& root, const std::string& urlPath) {
    // The decoded path may hold any character. On Windows, "\" parts directories, and ":" drives and streams.
    if (!urlPath.starts_with('/') || urlPath.find_first_of(std::string_view("\0\\:", 3)) != std::string::npos ||
        !hasPlainSegments(std::string_view(urlPath).substr(1))) {
        return {};
    }
    std::error_code error;
    fs::path path = fs::canonical(root / fs::path(std::u8string(urlPath.begin() + 1, urlPath.end())), error);
    if (!error && fs::is_directory(path, error)) {
        path = fs::canonical(path / "index.html", error);
    }
    // Links are resolved now: what begins with the root is below it.
    if (error || std::mismatch(root.begin(), root.end(), path.begin(), path.end()).first != root.end()) {
        return {};
    }
    File file;
    const fs::file_time_type time = fs::last_write_time(path, error);
    if (error || !fs::is_regular_file(path, error)) {
        return {};
    }
    file.size = fs::file_size(path, error);
    if (error) {
        return {};
    }
    file.contentType = contentTypeOf(path);
    file.entityTag = '"' + std::to_string(file.size) + '-' + std::to_string(time.time_since_epoch().count()) + '"';
    file.lastModified = systemTime(time);
    file.path = std::move(path);
    return file;
}
