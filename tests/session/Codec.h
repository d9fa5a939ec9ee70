#pragma once

#include "session/FrameDecoder.h"
#include "session/NaiveDecoder.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

/// What the tests of the codec share: a client's side of it, by zlib itself, and a decoder that is driven.
namespace sessiontest {

std::span<const unsigned char> bytesOf(std::string_view text);
std::string textOf(std::span<const unsigned char> bytes);

/// A client's frame. `firstByte` holds FIN, the reserved bits and the opcode.
std::string clientFrame(unsigned int firstByte, std::string_view payload);

/// `size` letters, the same for the same seed, that neither repeat nor compress well.
std::string letters(std::size_t size, unsigned int seed = 0);
/// `size` bytes that don't compress.
std::string noise(std::size_t size, unsigned int seed = 0);

/// A client's compressor, by zlib itself. Its messages refer to each other.
class ClientDeflater {
public:
    explicit ClientDeflater(int windowBits = 15, int level = 9);
    ~ClientDeflater();
    ClientDeflater(const ClientDeflater&) = delete;
    ClientDeflater& operator=(const ClientDeflater&) = delete;

    std::string compress(std::string_view message);

private:
    struct State;
    std::unique_ptr<State> state_;
};

/// A client's decompressor, by zlib itself, with a window that is no larger than it says.
class ClientInflater {
public:
    explicit ClientInflater(int windowBits = 15);
    ~ClientInflater();
    ClientInflater(const ClientInflater&) = delete;
    ClientInflater& operator=(const ClientInflater&) = delete;

    /// Nothing: no compressed message.
    std::optional<std::string> inflate(std::string_view compressed);

private:
    struct State;
    std::unique_ptr<State> state_;
};

/// Keeps what a decoder gives it. The pieces of a message become one event.
class Recorder final : public ql::impl::FrameSink {
public:
    /// @param stops whether each call stops the decoder.
    explicit Recorder(bool stops = false) : stops_(stops) {}

    Next onMessage(bool isText, std::span<const unsigned char> payload) override;
    Next onPiece(bool isText, std::span<const unsigned char> piece, bool isLast) override;
    Next onPing(std::span<const unsigned char> payload) override;
    Next onPong(std::span<const unsigned char> payload) override;
    void onClose(std::uint16_t code, std::string_view reason) override;

    std::vector<Event> events;
    std::size_t pieces = 0;
    /// Of all of them.
    std::size_t bytes = 0;
    /// The greatest.
    std::size_t pieceBytes = 0;

private:
    Next next() const { return stops_ ? Next::Stop : Next::GoOn; }

    bool stops_;
    std::string piece_;
};

/// What came of a stream.
struct Decoded {
    std::vector<Event> events;
    std::optional<unsigned int> failure;
    bool isClosed = false;
    /// How many pieces it took.
    std::size_t piecesTaken = 0;
};

struct Driving {
    /// The sink stops the decoder after each event.
    bool stops = false;
    /// Bytes go directly to where the decoder wants them, if it does.
    bool direct = false;
};

/// Feeds the pieces one after the other, each from memory of its own.
Decoded decode(const ql::impl::FrameDecoderSettings& settings, const std::vector<std::string>& pieces,
               const Driving& driving = {});

/// With a limit of 1 MiB unless another is given.
ql::impl::FrameDecoderSettings plainSettings(std::uint64_t maxMessageBytes = 1 << 20);
ql::impl::FrameDecoderSettings deflateSettings(std::uint64_t maxMessageBytes = 1 << 20, int windowBits = 15,
                                               bool takesOver = true);

} // namespace sessiontest
