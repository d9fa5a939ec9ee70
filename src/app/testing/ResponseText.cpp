// SPDX-License-Identifier: MIT
#include "app/testing/ResponseText.h"

#include "app/kernel/Throw.h"
#include "frame/HttpSyntax.h"

#include <algorithm>
#include <charconv>
#include <optional>
#include <system_error>

namespace vireo::impl {

namespace {

using ql::impl::isSameWord;
using ql::impl::withoutBlanks;

[[noreturn]] void throwNoHttp(const std::string& what) {
    throwRuntimeError("the server's answer is no HTTP: " + what);
}

std::uint64_t numberOf(std::string_view text, int base, const std::string& what) {
    std::uint64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
    if (error != std::errc() || end != text.data() + text.size()) {
        throwNoHttp(what + " is \"" + std::string(text) + "\"");
    }
    return number;
}

/// Takes a line from the front of `bytes`, without its end; none where it has not come wholly.
std::optional<std::string> takeLine(std::string& bytes) {
    const std::size_t end = bytes.find("\r\n");
    if (end == std::string::npos) {
        return std::nullopt;
    }
    std::string line = bytes.substr(0, end);
    bytes.erase(0, end + 2);
    return line;
}

int statusOf(std::string_view line) {
    if (!line.starts_with("HTTP/1.") || line.size() < 12) {
        throwNoHttp("it begins with \"" + std::string(line) + "\"");
    }
    return static_cast<int>(numberOf(line.substr(9, 3), 10, "its status"));
}

std::pair<std::string, std::string> headerOf(std::string_view line) {
    const std::size_t colon = line.find(':');
    if (colon == std::string_view::npos) {
        throwNoHttp("a header is \"" + std::string(line) + "\"");
    }
    return {std::string(line.substr(0, colon)), std::string(withoutBlanks(line.substr(colon + 1)))};
}

bool isInterim(int status) {
    return status >= 100 && status < 200 && status != 101;
}

} // namespace

std::vector<std::string> ResponseText::values(std::string_view name) const {
    std::vector<std::string> found;
    for (const auto& [headerName, value] : headers) {
        if (isSameWord(headerName, name)) {
            found.push_back(value);
        }
    }
    return found;
}

std::string ResponseText::header(std::string_view name) const {
    std::string joined;
    for (const std::string& value : values(name)) {
        joined += joined.empty() ? value : ", " + value;
    }
    return joined;
}

bool ResponseReader::read(std::string& bytes) {
    while (true) {
        bool goesOn = false;
        switch (stage_) {
        case Stage::Head:
            goesOn = readHead(bytes);
            break;
        case Stage::Length:
            goesOn = readLength(bytes);
            break;
        case Stage::Chunks:
            goesOn = readChunks(bytes);
            break;
        case Stage::ToEnd:
            goesOn = readToEnd(bytes);
            break;
        case Stage::Whole:
            return true;
        }
        if (!goesOn) {
            return false;
        }
    }
}

void ResponseReader::finish() {
    if (stage_ == Stage::ToEnd) {
        stage_ = Stage::Whole;
    }
    if (stage_ != Stage::Whole) {
        throwRuntimeError(stage_ == Stage::Head ? "the server closed the connection without an answer"
                                                : "the server broke off its answer");
    }
}

bool ResponseReader::keepsConnection() const {
    return isWhole() && text_.status != 101 && !isSameWord(text_.header("Connection"), "close") &&
           stageOfBody() != Stage::ToEnd;
}

bool ResponseReader::readHead(std::string& bytes) {
    const std::size_t end = bytes.find("\r\n\r\n");
    if (end == std::string::npos) {
        return false;
    }
    std::string head = bytes.substr(0, end + 2);
    bytes.erase(0, end + 4);
    text_ = {};
    text_.status = statusOf(*takeLine(head));
    while (const std::optional<std::string> line = takeLine(head)) {
        text_.headers.push_back(headerOf(*line));
    }
    if (!isInterim(text_.status)) {
        stage_ = stageOfBody();
        missing_ = stage_ == Stage::Length ? numberOf(text_.header("Content-Length"), 10, "Content-Length") : 0;
    }
    return true;
}

ResponseReader::Stage ResponseReader::stageOfBody() const {
    if (isHead_ || text_.status == 101 || text_.status == 204 || text_.status == 304) {
        return Stage::Whole;
    }
    if (isSameWord(text_.header("Transfer-Encoding"), "chunked")) {
        return Stage::Chunks;
    }
    return text_.header("Content-Length").empty() ? Stage::ToEnd : Stage::Length;
}

bool ResponseReader::takeMissing(std::string& bytes) {
    const std::size_t size = static_cast<std::size_t>(std::min<std::uint64_t>(bytes.size(), missing_));
    text_.body.append(bytes, 0, size);
    bytes.erase(0, size);
    missing_ -= size;
    return missing_ == 0;
}

bool ResponseReader::readLength(std::string& bytes) {
    if (!takeMissing(bytes)) {
        return false;
    }
    stage_ = Stage::Whole;
    return true;
}

bool ResponseReader::readChunks(std::string& bytes) {
    if (chunk_ == Chunk::Data) {
        if (!takeMissing(bytes)) {
            return false;
        }
        chunk_ = Chunk::DataEnd;
    }
    const std::optional<std::string> line = takeLine(bytes);
    if (line) {
        readChunkLine(*line);
    }
    return line.has_value();
}

void ResponseReader::readChunkLine(const std::string& line) {
    switch (chunk_) {
    case Chunk::Size:
        missing_ = numberOf(withoutBlanks(line.substr(0, line.find(';'))), 16, "a chunk's size");
        chunk_ = missing_ == 0 ? Chunk::Trailer : Chunk::Data;
        return;
    case Chunk::Data:
        return;
    case Chunk::DataEnd:
        if (!line.empty()) {
            throwNoHttp("a chunk is longer than it says");
        }
        chunk_ = Chunk::Size;
        return;
    case Chunk::Trailer:
        if (line.empty()) {
            stage_ = Stage::Whole;
        }
    }
}

bool ResponseReader::readToEnd(std::string& bytes) {
    text_.body += bytes;
    bytes.clear();
    return false;
}

} // namespace vireo::impl
