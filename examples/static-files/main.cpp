// Serves the files below a directory: with ranges, so that downloads resume and films can be wound, and with what
// browsers and proxies need for their caches.
//
//     vireo-static-files 8181 DIRECTORY

#include "File.h"
#include "skeleton/Application.h"
#include "skeleton/Request.h"

#include <algorithm>
#include <charconv>
#include <fstream>
#include <iostream>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace {

class FileRequest final : public skeleton::Request {
public:
    FileRequest(ql::http::HttpServerImpl& server, const std::filesystem::path& root) : Request(server), root_(root) {}

private:
    /// The client has this version already (RFC 9110 section 13.1).
    bool isNotModified(const File& file) const {
        const std::string tags = header("if-none-match");
        if (!tags.empty()) {
            return tags == "*" || tags.find(file.entityTag) != std::string::npos;
        }
        return header("if-modified-since") == file.lastModified;
    }

    enum class Range { Whole, Part, Unsatisfiable };

    /// Sets what is asked for, `begin` up to and without `end`. Several ranges at once, and what is no range, get the
    /// whole file, which RFC 9110 section 14.2 allows.
    Range findRange(const File& file, std::uint64_t& begin, std::uint64_t& end) const {
        begin = 0;
        end = file.size;
        const std::string range = header("range");
        const std::string condition = header("if-range");
        const std::size_t dash = range.find('-');
        if (!range.starts_with("bytes=") || dash == std::string::npos || range.find(',') != std::string::npos ||
            (!condition.empty() && condition != file.entityTag && condition != file.lastModified)) {
            return Range::Whole;
        }
        std::uint64_t first = 0;
        std::uint64_t last = 0;
        const char* const text = range.data();
        const auto [firstEnd, firstError] = std::from_chars(text + 6, text + dash, first);
        const auto [lastEnd, lastError] = std::from_chars(text + dash + 1, text + range.size(), last);
        const bool hasFirst = firstError == std::errc() && firstEnd == text + dash;
        const bool hasLast = lastError == std::errc() && lastEnd == text + range.size();
        if ((!hasFirst && dash != 6) || (!hasLast && dash + 1 != range.size()) || (!hasFirst && !hasLast) ||
            (hasFirst && hasLast && last < first)) {
            return Range::Whole;
        }
        if (!hasFirst) { // the last bytes
            begin = file.size - std::min(last, file.size);
        } else {
            begin = first;
            end = hasLast ? std::min(last, file.size - 1) + 1 : file.size;
        }
        return begin < file.size ? Range::Part : Range::Unsatisfiable;
    }

    Pause serve() override {
        if (refusesBadHead()) {
            return {};
        }
        if (getRequestType() != RequestType::Get && !isHead()) {
            response().setHeader("Allow", "GET, HEAD");
            answer(405, "text/plain", "GET or HEAD\n");
            return {};
        }
        const std::optional<File> file = findFile(root_, getParsedUrl().getDecodedPath());
        std::ifstream stream;
        if (file) {
            stream.open(file->path, std::ios::binary);
        }
        if (!stream.is_open()) {
            answer(404, "text/plain", "there is no such file\n");
            return {};
        }
        response().setHeader("ETag", file->entityTag);
        response().setHeader("Last-Modified", file->lastModified);
        response().setHeader("Cache-Control", "no-cache"); // kept, but asked about before each use
        response().setHeader("Accept-Ranges", "bytes");
        response().setHeader("X-Content-Type-Options", "nosniff");
        if (isNotModified(*file)) {
            answer(304, file->contentType, "");
            return {};
        }
        std::uint64_t begin = 0;
        std::uint64_t end = 0;
        const Range range = isHead() ? Range::Whole : findRange(*file, begin, end);
        const std::string size = std::to_string(file->size);
        if (range == Range::Unsatisfiable) {
            response().setHeader("Content-Range", "bytes */" + size);
            answer(416, "text/plain", "the file has " + size + " bytes\n");
            return {};
        }
        if (range == Range::Part) {
            response().setStatus(206);
            response().setHeader("Content-Range",
                                 "bytes " + std::to_string(begin) + "-" + std::to_string(end - 1) + "/" + size);
        }
        if (isHead()) {
            end = file->size;
        }
        if (beginAnswer(file->contentType, static_cast<std::int64_t>(end - begin))) {
            send(stream, begin, end);
        }
        return {};
    }

    void send(std::ifstream& stream, std::uint64_t begin, std::uint64_t end) {
        std::vector<char> piece(65536);
        stream.seekg(static_cast<std::streamoff>(begin));
        while (begin < end) {
            const auto wanted = static_cast<std::streamsize>(std::min<std::uint64_t>(end - begin, piece.size()));
            // A file that has become shorter ends the connection: less than announced is an error for the client.
            if (!stream.read(piece.data(), wanted) || !write({piece.data(), static_cast<std::size_t>(wanted)})) {
                break;
            }
            begin += static_cast<std::uint64_t>(wanted);
        }
        finish();
    }

    const std::filesystem::path& root_;
};

} // namespace

int main(int argc, char** argv) {
    std::error_code error;
    const std::filesystem::path root = std::filesystem::canonical(argc > 2 ? argv[2] : ".", error);
    if (error) {
        std::cerr << "static-files: " << argv[2] << ": " << error.message() << std::endl;
        return 1;
    }
    return skeleton::serveUntilSignal("static-files", skeleton::parametersOf(argc, argv), [&root] {
        return std::make_unique<skeleton::PooledServer>(
            [&root](ql::http::HttpServerImpl& server) { return std::make_unique<FileRequest>(server, root); });
    });
}
