#include "session/Codec.h"

#include "websocket/Frames.h"

#include <algorithm>
#include <array>
#include <random>
#include <stdexcept>

#define ZLIB_CONST
#include <zlib.h>

namespace sessiontest {

using ql::impl::FrameDecoder;
using ql::impl::FrameDecoderSettings;

namespace {

constexpr std::string_view Tail("\0\0\xFF\xFF", 4);

std::string random(std::size_t size, unsigned int seed, unsigned int values, char first) {
    std::minstd_rand engine(seed + 1);
    std::string text(size, '\0');
    for (char& c : text) {
        c = static_cast<char>(first + static_cast<char>(engine() / 7 % values));
    }
    return text;
}

void expectOk(int result) {
    if (result != Z_OK) {
        throw std::runtime_error("zlib");
    }
}

/// Goes on whenever the sink has stopped it.
FrameDecoder::Result feedAll(FrameDecoder& decoder, std::span<unsigned char> input, Recorder& sink) {
    FrameDecoder::Result result{};
    do {
        result = decoder.feed(input, sink);
    } while (result == FrameDecoder::Result::Stopped);
    return result;
}

} // namespace

std::span<const unsigned char> bytesOf(std::string_view text) {
    return {reinterpret_cast<const unsigned char*>(text.data()), text.size()};
}

std::string textOf(std::span<const unsigned char> bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

std::string clientFrame(unsigned int firstByte, std::string_view payload) {
    return wstest::toText(
        wstest::clientFrame(static_cast<unsigned char>(firstByte), wstest::toBytes(std::string(payload))));
}

std::string letters(std::size_t size, unsigned int seed) {
    return random(size, seed, 26, 'a');
}

std::string noise(std::size_t size, unsigned int seed) {
    return random(size, seed, 256, '\0');
}

struct ClientDeflater::State {
    z_stream zlib{};
};

ClientDeflater::ClientDeflater(int windowBits, int level) : state_(std::make_unique<State>()) {
    expectOk(deflateInit2(&state_->zlib, level, Z_DEFLATED, -windowBits, 8, Z_DEFAULT_STRATEGY));
}

ClientDeflater::~ClientDeflater() {
    deflateEnd(&state_->zlib);
}

std::string ClientDeflater::compress(std::string_view message) {
    z_stream& zlib = state_->zlib;
    std::string compressed(deflateBound(&zlib, static_cast<uLong>(message.size())) + 16, '\0');
    zlib.next_in = bytesOf(message).data();
    zlib.avail_in = static_cast<uInt>(message.size());
    zlib.next_out = reinterpret_cast<Bytef*>(compressed.data());
    zlib.avail_out = static_cast<uInt>(compressed.size());
    const int result = deflate(&zlib, Z_SYNC_FLUSH);
    compressed.resize(compressed.size() - zlib.avail_out);
    if (result == Z_BUF_ERROR && compressed.empty()) {
        // Flushed already: an empty block says so.
        return std::string(1, '\0');
    }
    expectOk(result);
    return compressed.substr(0, compressed.size() - Tail.size());
}

struct ClientInflater::State {
    z_stream zlib{};
};

ClientInflater::ClientInflater(int windowBits) : state_(std::make_unique<State>()) {
    expectOk(inflateInit2(&state_->zlib, -windowBits));
}

ClientInflater::~ClientInflater() {
    inflateEnd(&state_->zlib);
}

/// In small steps: zlib holds what it wrote in the same step against a window of any size.
std::optional<std::string> ClientInflater::inflate(std::string_view compressed) {
    z_stream& zlib = state_->zlib;
    const std::string input = std::string(compressed) + std::string(Tail);
    zlib.next_in = bytesOf(input).data();
    zlib.avail_in = static_cast<uInt>(input.size());
    std::string message;
    std::array<unsigned char, 32> room{};
    int result = Z_OK;
    do {
        zlib.next_out = room.data();
        zlib.avail_out = static_cast<uInt>(room.size());
        result = ::inflate(&zlib, Z_SYNC_FLUSH);
        message += textOf(std::span(room).first(room.size() - zlib.avail_out));
    } while (result == Z_OK && (zlib.avail_out == 0 || zlib.avail_in > 0));
    if (result != Z_OK && result != Z_BUF_ERROR) {
        return std::nullopt;
    }
    return message;
}

Decoded decode(const FrameDecoderSettings& settings, const std::vector<std::string>& pieces, const Driving& driving) {
    FrameDecoder decoder(settings);
    Recorder recorder(driving.stops);
    Decoded decoded;
    FrameDecoder::Result result = FrameDecoder::Result::NeedsMore;
    for (const std::string& piece : pieces) {
        std::string_view rest = piece;
        while (driving.direct && !rest.empty() && result == FrameDecoder::Result::NeedsMore) {
            const std::span<unsigned char> room = decoder.directRoom();
            if (room.empty()) {
                break;
            }
            const std::size_t count = std::min(room.size(), rest.size());
            std::ranges::copy(rest.substr(0, count), room.begin());
            rest.remove_prefix(count);
            result = decoder.received(count, recorder);
            if (result == FrameDecoder::Result::Stopped) {
                result = feedAll(decoder, {}, recorder);
            }
        }
        std::vector<unsigned char> input(rest.begin(), rest.end());
        result = feedAll(decoder, input, recorder);
        ++decoded.piecesTaken;
        if (result != FrameDecoder::Result::NeedsMore) {
            break;
        }
    }
    decoded.events = recorder.events;
    decoded.isClosed = result == FrameDecoder::Result::Closed;
    if (result == FrameDecoder::Result::Failed) {
        decoded.failure = decoder.failureCode();
    }
    return decoded;
}

FrameDecoderSettings plainSettings(std::uint64_t maxMessageBytes) {
    return {maxMessageBytes, false, std::nullopt};
}

FrameDecoderSettings deflateSettings(std::uint64_t maxMessageBytes, int windowBits, bool takesOver) {
    ql::impl::DeflateAgreement agreement;
    agreement.clientWindowBits = windowBits;
    agreement.clientNoContextTakeover = !takesOver;
    return {maxMessageBytes, false, agreement};
}

Recorder::Next Recorder::onMessage(bool isText, std::span<const unsigned char> payload) {
    events.push_back({isText ? Event::Kind::Text : Event::Kind::Binary, textOf(payload), 0});
    return next();
}

Recorder::Next Recorder::onPiece(bool isText, std::span<const unsigned char> piece, bool isLast) {
    ++pieces;
    bytes += piece.size();
    pieceBytes = std::max(pieceBytes, piece.size());
    piece_ += textOf(piece);
    if (isLast) {
        events.push_back({isText ? Event::Kind::Text : Event::Kind::Binary, piece_, 0});
        piece_.clear();
    }
    return next();
}

Recorder::Next Recorder::onPing(std::span<const unsigned char> payload) {
    events.push_back({Event::Kind::Ping, textOf(payload), 0});
    return next();
}

Recorder::Next Recorder::onPong(std::span<const unsigned char> payload) {
    events.push_back({Event::Kind::Pong, textOf(payload), 0});
    return next();
}

void Recorder::onClose(std::uint16_t code, std::string_view reason) {
    events.push_back({Event::Kind::Close, std::string(reason), code});
}

} // namespace sessiontest
