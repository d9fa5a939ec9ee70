// Serves the files below a directory: with ranges, so that downloads resume and films can be wound, and with what
// browsers and proxies need for their caches: tags, times and the conditions on them.
//
//     vireo-static-files 8181 DIRECTORY

#include "File.h"
#include "HttpDate.h"
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
    enum class Comparison { Strong, Weak };

    /// Whether a list of entity tags names the file's (RFC 9110 section 8.8.3.2). The file's own tag is a strong one.
    bool hasTagOf(const File& file, const Values& tags, Comparison comparison) const {
        return std::any_of(tags.begin(), tags.end(), [&](const std::string& tag) {
            return tag == "*" || tag == file.entityTag ||
                   (comparison == Comparison::Weak && tag == "W/" + file.entityTag);
        });
    }

    /// What the request's conditions ask for, in the order of RFC 9110 section 13.2.2: 412 when the file is another
    /// than the client means, 304 when the client has this version already, else 200.
    std::uint32_t statusByConditions(const File& file) const {
        if (const Values* const tags = getHeader("if-match")) {
            if (!hasTagOf(file, *tags, Comparison::Strong)) {
                return 412;
            }
        } else if (const auto time = parseHttpDate(header("if-unmodified-since")); time && file.lastModified > *time) {
            return 412;
        }
        if (const Values* const tags = getHeader("if-none-match")) {
            return hasTagOf(file, *tags, Comparison::Weak) ? 304 : 200;
        }
        const auto time = parseHttpDate(header("if-modified-since"));
        return time && file.lastModified <= *time ? 304 : 200;
    }

    /// The bytes that are asked for. Nothing when it is all of them, also because the client has part of another
    /// version.
    std::optional<Range> wantedRange(const File& file) const {
        const std::string condition = header("if-range");
        if (isHead() ||
            (!condition.empty() && condition != file.entityTag && condition != httpDate(file.lastModified))) {
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
        response().setHeader("Last-Modified", httpDate(file->lastModified));
        response().setHeader("Cache-Control", "no-cache"); // kept, but asked about before each use
        response().setHeader("Accept-Ranges", "bytes");
        response().setHeader("X-Content-Type-Options", "nosniff");
        switch (statusByConditions(*file)) {
        case 304:
            // As for HEAD, the length is the file's, and none of it is sent: an empty body would claim the length 0.
            response().setStatus(304);
            beginAnswer(file->contentType, static_cast<std::int64_t>(file->size));
            return {};
        case 412:
            answer(412, "text/plain", "the file is another one now\n");
            return {};
        default:
            break;
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
