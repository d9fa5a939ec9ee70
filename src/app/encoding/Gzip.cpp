#include "app/encoding/Gzip.h"

#include "app/kernel/Throw.h"

#include "frame/NeverDestroyed.h"
#include "vireo/support/ThreadAnnotations.h"
#include "vireo/support/qlMutex.h"

#include <array>
#include <cstddef>
#include <limits>
#include <utility>

// Input is const then.
#define ZLIB_CONST
#include <zlib.h>

namespace vireo::impl {

/// Compresses one body after the other.
class GzipStream {
public:
    explicit GzipStream(int level) : level_(level) {
        constexpr int GzipWindow = 15 + 16;
        constexpr int MemoryLevel = 8;
        if (deflateInit2(&zlib_, level, Z_DEFLATED, GzipWindow, MemoryLevel, Z_DEFAULT_STRATEGY) != Z_OK) {
            throwNoMemory();
        }
    }
    ~GzipStream() { deflateEnd(&zlib_); }
    GzipStream(const GzipStream&) = delete;
    GzipStream& operator=(const GzipStream&) = delete;

    int level() const { return level_; }
    void reset() { deflateReset(&zlib_); }

    /// @param last how it is to go on behind the last byte: Z_NO_FLUSH, Z_SYNC_FLUSH or Z_FINISH.
    void run(std::string_view bytes, int last, std::string& out) {
        constexpr std::size_t MostAtOnce = std::numeric_limits<uInt>::max();
        do {
            const std::string_view now = bytes.substr(0, MostAtOnce);
            bytes.remove_prefix(now.size());
            zlib_.next_in = reinterpret_cast<const Bytef*>(now.data());
            zlib_.avail_in = static_cast<uInt>(now.size());
            drain(bytes.empty() ? last : Z_NO_FLUSH, out);
        } while (!bytes.empty());
    }

private:
    /// There may be more as long as the room was filled.
    void drain(int flush, std::string& out) {
        std::array<char, 16384> room;
        do {
            zlib_.next_out = reinterpret_cast<Bytef*>(room.data());
            zlib_.avail_out = static_cast<uInt>(room.size());
            deflate(&zlib_, flush);
            out.append(room.data(), room.size() - zlib_.avail_out);
        } while (zlib_.avail_out == 0);
    }

    const int level_;
    z_stream zlib_{};
};

namespace {

/// Streams of encoders that have gone: making one takes 256 KiB, and longer than compressing a short answer. Any
/// thread.
class SpareStreams {
public:
    std::unique_ptr<GzipStream> take(int level) QL_EXCLUDES(mutex_) {
        std::unique_ptr<GzipStream> stream = takeAny();
        if (!stream || stream->level() != level) {
            return std::make_unique<GzipStream>(level);
        }
        stream->reset();
        return stream;
    }

    void give(std::unique_ptr<GzipStream> stream) noexcept QL_EXCLUDES(mutex_) {
        const qlMutexLocker lock(mutex_);
        if (count_ < streams_.size()) {
            streams_[count_++] = std::move(stream);
        }
    }

private:
    std::unique_ptr<GzipStream> takeAny() QL_EXCLUDES(mutex_) {
        const qlMutexLocker lock(mutex_);
        return count_ == 0 ? nullptr : std::move(streams_[--count_]);
    }

    qlMutex mutex_;
    std::array<std::unique_ptr<GzipStream>, 8> streams_ QL_GUARDED_BY(mutex_);
    std::size_t count_ QL_GUARDED_BY(mutex_) = 0;
};

SpareStreams& spares() {
    static ql::impl::NeverDestroyed<SpareStreams> streams;
    return *streams;
}

} // namespace

GzipEncoder::GzipEncoder(int level) : stream_(spares().take(level)) {}

GzipEncoder::~GzipEncoder() {
    spares().give(std::move(stream_));
}

std::optional<std::string> GzipEncoder::whole(std::string_view body) {
    std::string out;
    stream_->run(body, Z_FINISH, out);
    if (out.size() >= body.size()) {
        return std::nullopt;
    }
    return out;
}

void GzipEncoder::piece(std::string_view bytes, bool flush, std::string& out) {
    stream_->run(bytes, flush ? Z_SYNC_FLUSH : Z_NO_FLUSH, out);
}

void GzipEncoder::end(std::string& out) {
    stream_->run({}, Z_FINISH, out);
}

} // namespace vireo::impl
