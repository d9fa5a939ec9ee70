// Keeps uploads of any size: a body is read piece by piece on a worker thread and never held whole, and becomes a file,
// named by its SHA-256, once all of it is there. Of an upload that breaks off nothing stays.
//
//     vireo-upload 8181 DIRECTORY
//     curl --data-binary @FILE http://127.0.0.1:8181/
//
// answers with the number of bytes and their SHA-256.

#include "NewFile.h"
#include "skeleton/Application.h"
#include "skeleton/Digest.h"
#include "skeleton/Request.h"
#include "vireo/support/HashHelper.h"

#include <charconv>
#include <filesystem>
#include <iostream>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

namespace {

constexpr std::uint64_t MaxBytes = std::uint64_t{64} << 20U;

class Upload final : public skeleton::Request {
public:
    Upload(ql::http::HttpServerImpl& server, const std::filesystem::path& directory)
        : Request(server), directory_(directory) {}

private:
    /// The announced length is too large. Answering before the body was read is fine: where it is long it never comes.
    /// An upload in chunks announces nothing, so the bytes are counted, too; what comes after them is discarded.
    bool announcesTooMuch() const {
        const std::string text = header("content-length");
        std::uint64_t bytes = 0;
        const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), bytes);
        return error == std::errc::result_out_of_range || bytes > MaxBytes;
    }

    void refuse() { answer(413, "text/plain", "at most " + std::to_string(MaxBytes) + " bytes\n"); }

    Pause serve() override {
        if (refusesBadHead()) {
            return {};
        }
        if (getRequestType() != RequestType::Post && getRequestType() != RequestType::Put) {
            response().setHeader("Allow", "POST, PUT");
            answer(405, "text/plain", "send something\n");
            return {};
        }
        if (announcesTooMuch()) {
            refuse();
            return {};
        }
        ql::HashHelper hash(ql::HashType::Sha256);
        NewFile file(directory_);
        std::uint64_t size = 0;
        std::vector<char> piece(65536);
        while (const std::size_t bytes = readBody(piece)) { // waits for the client, and throws when it goes away
            size += bytes;
            if (size > MaxBytes) {
                refuse();
                return {};
            }
            hash.addData(piece.data(), bytes);
            file.write(piece.data(), bytes);
        }
        const std::string digest = skeleton::hexadecimalDigest(hash);
        file.keepAs(digest);
        answer(200, "text/plain", std::to_string(size) + " bytes, SHA-256 " + digest + "\n");
        return {};
    }

    const std::filesystem::path& directory_;
};

} // namespace

int main(int argc, char** argv) {
    const std::filesystem::path directory = argc > 2 ? argv[2] : ".";
    std::error_code error;
    if (!std::filesystem::is_directory(directory, error)) {
        std::cerr << "upload: " << directory << " is no directory" << std::endl;
        return 1;
    }
    // An upload waits for its reader, takes no more memory than a window, and is not missed when it breaks off.
    ql::http::ServerOptions options;
    options.setWaiting(ql::http::ServerOptions::Waiting::Event);
    const auto makeUpload = [&directory](ql::http::HttpServerImpl& server) {
        return std::make_unique<Upload>(server, directory);
    };
    return skeleton::serveUntilSignal(
        "upload", skeleton::parametersOf(argc, argv),
        [&makeUpload] { return std::make_unique<skeleton::PooledServer>(makeUpload); }, options);
}
