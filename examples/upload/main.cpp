// Keeps uploads of any size: a body is read piece by piece and never held whole, and becomes a file, named by its
// SHA-256, once all of it is there. Of an upload that breaks off nothing stays.
//
//     vireo-upload 8181 DIRECTORY
//     curl --data-binary @FILE http://127.0.0.1:8181/
//
// answers with the number of bytes and their SHA-256.

#include <vireo/app.h>
#include <vireo/support/HashHelper.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <string>

namespace {

constexpr std::uint64_t MaxBytes = std::uint64_t{64} << 20U;

std::string digestOf(ql::HashHelper& hash) {
    constexpr const char* Digits = "0123456789abcdef";
    std::array<char, 32> digest{};
    hash.finish(digest.data(), digest.size());
    std::string text;
    for (const char c : digest) {
        const auto byte = static_cast<unsigned char>(c);
        text.append(1, Digits[byte >> 4U]).append(1, Digits[byte & 15U]);
    }
    return text;
}

} // namespace

int main(int argc, char** argv) {
    const std::string directory = argc > 2 ? argv[2] : ".";
    const auto keep = [directory](vireo::Request& request, vireo::Response& response) {
        ql::HashHelper hash(ql::HashType::Sha256);
        vireo::NewFile file = request.newFile(directory);
        while (const auto piece = request.body().read()) { // waits for the client, and throws when it goes away
            hash.addData(piece->data(), piece->size());
            file.write(*piece);
        }
        const std::string digest = digestOf(hash);
        file.keepAs(digest);
        response.text(std::to_string(file.size()) + " bytes, SHA-256 " + digest + "\n");
    };
    vireo::App app;
    app.maxBody(MaxBytes);
    app.post("/", keep);
    app.put("/", keep);
    return app.run({.port = argc > 1 ? std::atoi(argv[1]) : 8181});
}
