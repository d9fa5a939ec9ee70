#include "session/Deflater.h"

#include "session/Zlib.h"

#include <limits>
#include <new>

namespace ql::impl {

class Deflater::Stream {
public:
    Stream(int level, int windowBits, int memoryLevel) {
        if (deflateInit2(&zlib_, level, Z_DEFLATED, -windowBits, memoryLevel, Z_DEFAULT_STRATEGY) != Z_OK) {
            throw std::bad_alloc();
        }
    }
    ~Stream() { deflateEnd(&zlib_); }
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;

    void reset() { deflateReset(&zlib_); }

    /// @return what it takes; all of `room`: there was not enough of it.
    std::size_t compress(std::span<const unsigned char> message, std::span<unsigned char> room) {
        zlib_.next_in = message.data();
        zlib_.avail_in = static_cast<uInt>(message.size());
        zlib_.next_out = room.data();
        zlib_.avail_out = static_cast<uInt>(room.size());
        deflate(&zlib_, Z_SYNC_FLUSH);
        return room.size() - zlib_.avail_out;
    }

private:
    z_stream zlib_{};
};

Deflater::Deflater(const DeflateSettings& settings, int windowBits, bool takesOver)
    : level_(settings.level), memoryLevel_(settings.memoryLevel), windowBits_(windowBits), takesOver_(takesOver) {}

Deflater::~Deflater() = default;

bool Deflater::compress(std::span<const unsigned char> message, ByteBuffer& out) {
    if (message.empty()) {
        return false;
    }
    // Compressed data that fills all of it is too long.
    const std::size_t mostBytes = message.size() + DeflateTail.size();
    if (mostBytes > std::numeric_limits<uInt>::max()) {
        reset();
        return false;
    }
    if (!stream_) {
        stream_ = std::make_unique<Stream>(level_, windowBits_, memoryLevel_);
    }
    const std::span<unsigned char> room = out.room(mostBytes, mostBytes).first(mostBytes);
    const std::size_t count = stream_->compress(message, room);
    const bool isShorter = count < mostBytes;
    if (isShorter) {
        out.added(count - DeflateTail.size());
    } else {
        reset();
    }
    if (!takesOver_) {
        stream_.reset();
    }
    return isShorter;
}

void Deflater::reset() {
    if (stream_) {
        stream_->reset();
    }
}

} // namespace ql::impl
