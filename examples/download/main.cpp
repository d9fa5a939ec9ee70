// Sends a body of any size as a stream, with back-pressure: writing waits while the client is slow, so that no more
// than a few hundred KiB are ever in memory.
//
//     curl 'http://127.0.0.1:8181/?lines=1000000'

#include "skeleton/Application.h"
#include "skeleton/Request.h"

#include <charconv>
#include <cstdio>
#include <iostream>
#include <memory>
#include <string>

namespace {

constexpr std::uint64_t MaxLines = 1000000000;
/// "line 0000000000\n"
constexpr std::uint64_t LineBytes = 16;

class Download final : public skeleton::Request {
public:
    using Request::Request;

private:
    /// The argument "lines"; more than MaxLines when it is no number.
    std::uint64_t lines() const {
        const auto argument = getQueryParameters().find("lines");
        if (argument == getQueryParameters().end()) {
            return 1000;
        }
        const std::string& text = argument->second.front();
        std::uint64_t number = 0;
        const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
        return error == std::errc() && end == text.data() + text.size() ? number : MaxLines + 1;
    }

    Pause serve() override {
        if (refusesBadHead()) {
            return {};
        }
        const std::uint64_t count = lines();
        if (count > MaxLines) {
            answer(400, "text/plain", "lines has to be a number up to " + std::to_string(MaxLines) + "\n");
            return {};
        }
        // A length lets the client see whether it has everything. Without one (-1) the body goes out in chunks.
        if (!beginAnswer("text/plain", static_cast<std::int64_t>(count * LineBytes))) {
            return {}; // HEAD: the head is all there is
        }
        char line[LineBytes + 1];
        for (std::uint64_t number = 0; number < count; ++number) {
            std::snprintf(line, sizeof(line), "line %010llu\n", static_cast<unsigned long long>(number));
            if (!write({line, LineBytes})) {
                return {}; // the client has gone
            }
        }
        finish();
        return {};
    }

    void ended(const std::string& loss) override {
        if (!loss.empty()) {
            std::cout << "ended after " << getBodySentByteCount() << " bytes: " << loss << std::endl;
        }
    }
};

} // namespace

int main(int argc, char** argv) {
    return skeleton::serveUntilSignal("download", skeleton::parametersOf(argc, argv), [] {
        return std::make_unique<skeleton::PooledServer>(
            [](ql::http::HttpServerImpl& server) { return std::make_unique<Download>(server); });
    });
}
