#include "app/sockets/RoomFrame.h"

#include <algorithm>

namespace vireo::impl {

namespace {

constexpr char Version = 1;
constexpr std::size_t OriginAt = 1;
constexpr std::size_t NumberAt = OriginAt + sizeof(RoomOrigin);
constexpr std::size_t NumberBytes = 8;
constexpr std::size_t KindAt = NumberAt + NumberBytes;
constexpr std::size_t LengthAt = KindAt + 1;
constexpr std::size_t LengthBytes = 4;
constexpr std::size_t NameAt = LengthAt + LengthBytes;

void putNumber(std::string& bytes, std::size_t at, std::size_t count, std::uint64_t number) {
    for (std::size_t i = count; i > 0; --i) {
        bytes[at + i - 1] = static_cast<char>(number & 0xFFU);
        number >>= 8U;
    }
}

std::uint64_t numberAt(std::string_view bytes, std::size_t at, std::size_t count) {
    std::uint64_t number = 0;
    for (const char byte : bytes.substr(at, count)) {
        number = number << 8U | static_cast<unsigned char>(byte);
    }
    return number;
}

} // namespace

std::string writeRoomFrame(const RoomFrame& frame) {
    std::string bytes;
    bytes.reserve(NameAt + frame.room.size() + frame.message.size());
    bytes.resize(NameAt);
    bytes[0] = Version;
    std::copy(frame.origin.begin(), frame.origin.end(), bytes.begin() + OriginAt);
    setRoomFrameNumber(bytes, frame.number);
    bytes[KindAt] = frame.isBinary ? '\1' : '\0';
    putNumber(bytes, LengthAt, LengthBytes, frame.room.size());
    bytes += frame.room;
    bytes += frame.message;
    return bytes;
}

void setRoomFrameNumber(std::string& bytes, std::uint64_t number) {
    putNumber(bytes, NumberAt, NumberBytes, number);
}

std::optional<RoomFrame> readRoomFrame(std::string_view bytes) {
    if (bytes.size() < NameAt || bytes[0] != Version || (bytes[KindAt] & ~1) != 0) {
        return std::nullopt;
    }
    const std::uint64_t length = numberAt(bytes, LengthAt, LengthBytes);
    if (length > bytes.size() - NameAt) {
        return std::nullopt;
    }
    RoomFrame frame;
    std::copy_n(bytes.begin() + OriginAt, frame.origin.size(), frame.origin.begin());
    frame.number = numberAt(bytes, NumberAt, NumberBytes);
    frame.isBinary = bytes[KindAt] != 0;
    frame.room = bytes.substr(NameAt, static_cast<std::size_t>(length));
    frame.message = bytes.substr(NameAt + static_cast<std::size_t>(length));
    return frame;
}

} // namespace vireo::impl
