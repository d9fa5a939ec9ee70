#include "app/encoding/Decoded.h"

#include <array>
#include <stdexcept>

#define ZLIB_CONST
#include <zlib.h>

namespace encodingtest {

std::string decodedGzip(std::string_view body, bool* isWhole) {
    constexpr int GzipWindow = 15 + 16;
    z_stream zlib{};
    if (inflateInit2(&zlib, GzipWindow) != Z_OK) {
        throw std::runtime_error("inflateInit2");
    }
    zlib.next_in = reinterpret_cast<const Bytef*>(body.data());
    zlib.avail_in = static_cast<uInt>(body.size());
    std::string text;
    int result = Z_OK;
    while (result == Z_OK) {
        std::array<char, 4096> room;
        zlib.next_out = reinterpret_cast<Bytef*>(room.data());
        zlib.avail_out = static_cast<uInt>(room.size());
        result = inflate(&zlib, Z_SYNC_FLUSH);
        text.append(room.data(), room.size() - zlib.avail_out);
    }
    const bool isRight = result == Z_STREAM_END || result == Z_BUF_ERROR;
    if (isWhole) {
        *isWhole = result == Z_STREAM_END && zlib.avail_in == 0;
    }
    inflateEnd(&zlib);
    if (!isRight) {
        throw std::runtime_error("no gzip");
    }
    return text;
}

} // namespace encodingtest
