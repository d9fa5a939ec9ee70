#include "client/HttpResponseReader.h"

#include "support/Pattern.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

namespace bench {

namespace {

/// Takes up to the end of a head or line from `data`, appends it to `text`, and cuts the end off.
/// @return whether the end has come.
bool takeUntil(const char* end, std::string& text, const char*& data, std::size_t& size) {
    const std::size_t before = text.size();
    text.append(data, size);
    const std::size_t length = std::strlen(end);
    const std::size_t found = text.find(end, before >= length ? before - length : 0);
    if (found == std::string::npos) {
        size = 0;
        return false;
    }
    const std::size_t taken = found + length - before;
    data += taken;
    size -= taken;
    text.resize(found);
    return true;
}

} // namespace

void HttpResponseReader::start(bool expectPattern) {
    state_ = State::Head;
    expectPattern_ = expectPattern;
    line_.clear();
    text_.clear();
    left_ = 0;
    bodyBytes_ = 0;
}

bool HttpResponseReader::takeLine(const char*& data, std::size_t& size) {
    return takeUntil("\r\n", line_, data, size);
}

bool HttpResponseReader::take(const char* data, std::size_t size) {
    // A body of no bytes ends without any.
    while (size != 0 && state_ != State::Complete) {
        switch (state_) {
        case State::Head:
            if (takeUntil("\r\n\r\n", line_, data, size)) {
                takeHead();
            }
            break;
        case State::Body:
        case State::Chunk: {
            const std::size_t part = std::min<std::uint64_t>(size, left_);
            takeBody(data, part);
            data += part;
            size -= part;
            left_ -= part;
            if (left_ == 0) {
                state_ = state_ == State::Body ? State::Complete : State::ChunkEnd;
            }
            break;
        }
        case State::ChunkSize:
            if (takeLine(data, size)) {
                left_ = std::stoull(line_, nullptr, 16);
                line_.clear();
                state_ = left_ == 0 ? State::Trailer : State::Chunk;
            }
            break;
        case State::ChunkEnd:
            if (takeLine(data, size)) {
                state_ = State::ChunkSize;
            }
            break;
        case State::Trailer:
            if (takeLine(data, size)) {
                state_ = line_.empty() ? State::Complete : State::Trailer;
                line_.clear();
            }
            break;
        case State::Complete:
            break;
        }
    }
    if (state_ == State::Complete && size != 0) {
        throw std::runtime_error("more than a response");
    }
    return state_ == State::Complete;
}

void HttpResponseReader::takeHead() {
    if (line_.rfind("HTTP/1.1 200", 0) != 0) {
        throw std::runtime_error("not the answer that was asked for: " + line_);
    }
    std::string head = line_;
    std::transform(head.begin(), head.end(), head.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    line_.clear();
    if (head.find("\r\ntransfer-encoding: chunked") != std::string::npos) {
        state_ = State::ChunkSize;
        return;
    }
    const std::string field = "\r\ncontent-length:";
    const std::size_t found = head.find(field);
    if (found == std::string::npos) {
        throw std::runtime_error("a body without a length: " + head);
    }
    left_ = std::stoull(head.substr(found + field.size()));
    state_ = left_ == 0 ? State::Complete : State::Body;
}

void HttpResponseReader::takeBody(const char* data, std::size_t size) {
    if (!expectPattern_) {
        text_.append(data, size);
    } else if (!Pattern::matches(bodyBytes_, data, size)) {
        throw std::runtime_error("a body of other bytes");
    }
    bodyBytes_ += size;
}

} // namespace bench
