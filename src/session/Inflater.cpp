#include "session/Inflater.h"

#include "session/Zlib.h"

#include <algorithm>
#include <limits>
#include <new>

namespace ql::impl {

namespace {

uInt clipped(std::size_t size) {
    return static_cast<uInt>((std::min)(size, std::size_t{std::numeric_limits<uInt>::max()}));
}

} // namespace

class Inflater::Stream {
public:
    explicit Stream(int windowBits) {
        if (inflateInit2(&zlib_, -windowBits) != Z_OK) {
            throw std::bad_alloc();
        }
    }
    ~Stream() { inflateEnd(&zlib_); }
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;

    Status inflate(std::span<const unsigned char>& input, std::span<unsigned char>& room) {
        for (;;) {
            zlib_.next_in = input.data();
            zlib_.avail_in = clipped(input.size());
            zlib_.next_out = room.data();
            zlib_.avail_out = clipped(room.size());
            const int result = ::inflate(&zlib_, Z_SYNC_FLUSH);
            input = input.subspan(static_cast<std::size_t>(zlib_.next_in - input.data()));
            room = room.subspan(static_cast<std::size_t>(zlib_.next_out - room.data()));
            if (result == Z_MEM_ERROR) {
                throw std::bad_alloc();
            }
            if (result != Z_OK && result != Z_BUF_ERROR && result != Z_STREAM_END) {
                return Status::Invalid;
            }
            isBetweenBlocks_ = result == Z_STREAM_END || (zlib_.data_type & BetweenBlocks) != 0;
            if (result == Z_STREAM_END) {
                // Behind a block that calls itself the last there may be others, which may refer to what was before it:
                // the window has to stay, which inflateReset() empties.
                inflateResetKeep(&zlib_);
            }
            if (room.empty()) {
                return Status::RoomUsed;
            }
            if (input.empty()) {
                return Status::InputUsed;
            }
        }
    }

    /// Whether no block has begun that isn't complete.
    bool isBetweenBlocks() const { return isBetweenBlocks_; }

private:
    /// In zlib's data_type.
    static constexpr int BetweenBlocks = 128;

    z_stream zlib_{};
    bool isBetweenBlocks_ = true;
};

Inflater::Inflater(int windowBits, bool takesOver) : windowBits_(windowBits), takesOver_(takesOver) {}

Inflater::~Inflater() = default;

Inflater::Status Inflater::inflate(std::span<const unsigned char>& input, std::span<unsigned char>& room) {
    if (!stream_) {
        stream_ = std::make_unique<Stream>(windowBits_);
    }
    return stream_->inflate(input, room);
}

Inflater::Status Inflater::finish(std::span<unsigned char>& room) {
    std::span<const unsigned char> tail = std::span(DeflateTail).subspan(tailTaken_);
    const Status status = inflate(tail, room);
    tailTaken_ = DeflateTail.size() - tail.size();
    if (status != Status::InputUsed) {
        return status;
    }
    tailTaken_ = 0;
    const bool isComplete = stream_->isBetweenBlocks();
    if (!takesOver_) {
        stream_.reset();
    }
    return isComplete ? Status::InputUsed : Status::Invalid;
}

} // namespace ql::impl
