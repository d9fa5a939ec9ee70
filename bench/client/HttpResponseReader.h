#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace bench {

/// Takes one response in pieces and compares its body with the pattern, whatever way its length is told.
class HttpResponseReader {
public:
    /// Whether the body is the pattern. A short body that isn't is kept in text().
    void start(bool expectPattern);

    /// @return whether the response is complete. Nothing may come beyond it.
    /// @throws std::runtime_error when the response is malformed, no 200, or its body not the pattern.
    bool take(const char* data, std::size_t size);

    std::uint64_t bodyBytes() const { return bodyBytes_; }
    const std::string& text() const { return text_; }

private:
    enum class State { Head, Body, ChunkSize, Chunk, ChunkEnd, Trailer, Complete };

    void takeHead();
    void takeBody(const char* data, std::size_t size);
    /// Takes a line. @return whether it is complete; then it stands in line_ without its end.
    bool takeLine(const char*& data, std::size_t& size);

    State state_ = State::Head;
    bool expectPattern_ = false;
    std::string line_;
    std::string text_;
    std::uint64_t left_ = 0; ///< bytes of the body or of the chunk
    std::uint64_t bodyBytes_ = 0;
};

} // namespace bench
