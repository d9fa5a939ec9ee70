// Serves the files below a directory: with ranges, so that downloads resume and films can be wound, and with what
// browsers and proxies need for their caches.
//
//     vireo-static-files 8181 DIRECTORY

#include "File.h"
#include "Range.h"
#include "skeleton/Application.h"
#include "skeleton/Request.h"

#include <algorithm>
#include <fstream>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
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

    /// The bytes that are asked for. Nothing when it is all of them, also because the client has part of another
    /// version.
    std::optional<Range> wantedRange(const File& file) const {
        const std::string condition = header("if-range");
        if (isHead() || (!condition.empty() && condition != file.entityTag && condition != file.lastModified)) {
            return {};
        }
        return findRange(header("range"), file.size);
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
        const std::optional<Range> part = wantedRange(*file);
        const Range range = part.value_or(Range{0, file->size});
        const std::string size = std::to_string(file->size);
        if (part && range.begin >= range.end) {
            response().setHeader("Content-Range", "bytes */" + size);
            answer(416, "text/plain", "the file has " + size + " bytes\n");
            return {};
        }
        if (part) {
            response().setStatus(206);
            response().setHeader("Content-Range", "bytes " + std::to_string(range.begin) + "-" +
                                                      std::to_string(range.end - 1) + "/" + size);
        }
        if (beginAnswer(file->contentType, static_cast<std::int64_t>(range.end - range.begin))) {
            send(stream, range);
        }
        return {};
    }

    void send(std::ifstream& stream, const Range& range) {
        std::vector<char> piece(65536);
        stream.seekg(static_cast<std::streamoff>(range.begin));
        for (std::uint64_t left = range.end - range.begin; left > 0;) {
            const auto wanted = static_cast<std::streamsize>(std::min<std::uint64_t>(left, piece.size()));
            // A file that has become shorter ends the connection: less than announced is an error for the client.
            if (!stream.read(piece.data(), wanted) || !write({piece.data(), static_cast<std::size_t>(wanted)})) {
                break;
            }
            left -= static_cast<std::uint64_t>(wanted);
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
