#include "StreamRoutes.h"

#include "skeleton/Digest.h"
#include "vireo/support/HashHelper.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

namespace demo {

namespace {

/// What is read and written at a time, and the size of the library's own blocks.
constexpr std::size_t PieceBytes = 65536;

constexpr std::size_t MaxEchoBytes = std::size_t{256} << 20U;
constexpr std::uint64_t MaxDownloadBytes = std::uint64_t{1} << 40;
constexpr std::uint64_t MaxChunks = 100000;
constexpr std::uint64_t MaxPauseMs = 60000;

} // namespace

// The answer can't leave before the upload is complete, so what is to be sent back has to be kept, and an echo without
// a limit would be one of memory.
DemoRequest::Pause echo(DemoRequest& request) {
    const std::optional<std::string> body = request.readWholeBody(MaxEchoBytes);
    if (!body) {
        return {};
    }
    const std::string type = request.header("content-type");
    request.beginAnswer(type.empty() ? "application/octet-stream" : type, static_cast<std::int64_t>(body->size()));
    // In pieces, which wait for the client: the library is not to hold all of it a second time.
    for (std::size_t position = 0; position < body->size(); position += PieceBytes) {
        if (!request.write(std::string_view(*body).substr(position, PieceBytes))) {
            return {};
        }
    }
    request.finish();
    return {};
}

DemoRequest::Pause upload(DemoRequest& request) {
    ql::HashHelper hash(ql::HashType::Sha256);
    std::uint64_t size = 0;
    std::vector<char> piece(PieceBytes);
    while (const std::size_t bytes = request.readBody(piece)) {
        hash.addData(piece.data(), bytes);
        size += bytes;
    }
    const nlohmann::ordered_json result = {{"size", size}, {"sha256", skeleton::hexadecimalDigest(hash)}};
    request.answer(200, "application/json", result.dump(2) + "\n");
    return {};
}

DemoRequest::Pause download(DemoRequest& request) {
    const std::uint64_t bytes = request.number("bytes", 1048576, MaxDownloadBytes);
    if (!request.beginAnswer("application/octet-stream", static_cast<std::int64_t>(bytes))) {
        return {};
    }
    // 251 is a prime, so a piece that is lost, doubled or moved shows.
    constexpr std::size_t Period = 251;
    static const std::vector<char> pattern = [] {
        std::vector<char> pieceAtAnyPhase(PieceBytes + Period);
        for (std::size_t i = 0; i < pieceAtAnyPhase.size(); ++i) {
            pieceAtAnyPhase[i] = static_cast<char>(i % Period);
        }
        return pieceAtAnyPhase;
    }();
    for (std::uint64_t position = 0; position < bytes; position += PieceBytes) {
        const auto size = static_cast<std::size_t>(std::min<std::uint64_t>(bytes - position, PieceBytes));
        if (!request.write({pattern.data() + position % Period, size})) {
            return {};
        }
    }
    request.finish();
    return {};
}

DemoRequest::Pause stream(DemoRequest& request) {
    const std::uint64_t chunks = request.number("chunks", 10, MaxChunks);
    const std::chrono::milliseconds pause(request.number("ms", 200, MaxPauseMs));
    if (request.pastTurns() == 0 && !request.beginAnswer("text/plain", -1)) {
        return {};
    }
    // One chunk each turn: no worker waits with the client.
    const std::uint64_t number = request.pastTurns() + std::uint64_t{1};
    if (number <= chunks) {
        const std::string line = "chunk " + std::to_string(number) + " of " + std::to_string(chunks) + " after " +
                                 std::to_string(request.elapsedMs()) + " ms\n";
        if (!request.write(line)) {
            return {};
        }
        request.flush();
    }
    if (number < chunks) {
        return pause;
    }
    request.finish();
    return {};
}

DemoRequest::Pause slow(DemoRequest& request) {
    const std::chrono::milliseconds delay(request.number("ms", 1000, MaxPauseMs));
    if (request.pastTurns() == 0) {
        return delay;
    }
    request.answer(200, "text/plain", "answered after " + std::to_string(request.elapsedMs()) + " ms\n");
    return {};
}

} // namespace demo
