// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace vireo::impl {

/// A response, as TestResponse tells it.
struct ResponseText {
    int status = 0;
    std::vector<std::pair<std::string, std::string>> headers;
    std::string body;

    /// The values of a header in any case of letters, joined by ", "; empty when it is missing.
    std::string header(std::string_view name) const;
    std::vector<std::string> values(std::string_view name) const;
};

/// Takes a response apart as its bytes come, in any pieces. What is none is thrown as std::runtime_error.
///
///     Head ──▶ Length, Chunks or ToEnd ──▶ Whole
class ResponseReader {
public:
    /// @param isHead whether HEAD was asked, so that no body follows.
    explicit ResponseReader(bool isHead) : isHead_(isHead) {}

    /// Takes what belongs to the response from the front of `bytes`. @return whether it is whole.
    bool read(std::string& bytes);
    /// The connection has ended. Throws unless that is how the response ends.
    void finish();

    bool hasHead() const { return stage_ != Stage::Head; }
    bool isWhole() const { return stage_ == Stage::Whole; }
    /// Whether the connection serves for another request, once the response is whole.
    bool keepsConnection() const;

    /// As far as it has come; parts of the body may be taken away.
    ResponseText& text() { return text_; }

private:
    enum class Stage { Head, Length, Chunks, ToEnd, Whole };

    /// Each takes what is whole of its stage. @return false when more is needed.
    ///@{
    bool readHead(std::string& bytes);
    bool readLength(std::string& bytes);
    bool readChunks(std::string& bytes);
    bool readToEnd(std::string& bytes);
    ///@}
    void readChunkLine(const std::string& line);
    /// @return whether nothing is missing any more.
    bool takeMissing(std::string& bytes);
    Stage stageOfBody() const;

    const bool isHead_;
    Stage stage_ = Stage::Head;
    ResponseText text_;
    /// Of a body with a length, or of the chunk that has begun.
    std::uint64_t missing_ = 0;
    /// Where in the chunks it is.
    enum class Chunk { Size, Data, DataEnd, Trailer } chunk_ = Chunk::Size;
};

} // namespace vireo::impl
