#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

/// What every program of the benchmark serves, so that all of them do the same work.
namespace bench {

/// GET /: the plain answer.
inline constexpr std::string_view PlainBody = "Hello, World";
inline constexpr const char* PlainType = "text/plain";

/// GET /known and /unknown: a stream of so many bytes, with and without a declared length.
inline constexpr std::uint64_t StreamBytes = 100'000'000;
/// What is written or read at a time where the program decides.
inline constexpr std::size_t StreamBlockBytes = 65536;

/// GET /whole: a body that is there in one piece and is copied for the answer.
inline constexpr std::uint64_t WholeBytes = 64ULL * 1024 * 1024;

/// GET /slow: the plain answer, so late.
inline constexpr unsigned int SlowMs = 500;

enum class Work {
    Plain,
    KnownStream,
    UnknownStream,
    Whole,
    Upload, ///< PUT /upload: the body is compared with the pattern, the answer says what came
    Slow,
    Unknown,
};

/// @param path without a query.
constexpr Work workOf(std::string_view path) {
    if (path == "/") {
        return Work::Plain;
    }
    if (path == "/known") {
        return Work::KnownStream;
    }
    if (path == "/unknown") {
        return Work::UnknownStream;
    }
    if (path == "/whole") {
        return Work::Whole;
    }
    if (path == "/upload") {
        return Work::Upload;
    }
    if (path == "/slow") {
        return Work::Slow;
    }
    return Work::Unknown;
}

} // namespace bench
