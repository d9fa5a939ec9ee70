#include "app/body/FormReader.h"

#include "app/body/BodyReader.h"
#include "app/request/Query.h"
#include "vireo/app/ClientGone.h"
#include "vireo/app/HttpError.h"

#include <cstddef>
#include <utility>

namespace vireo::impl {

namespace {

/// So much is decoded at once: a form of many small parts takes many times its size in memory.
constexpr std::size_t SliceBytes = 4096;

} // namespace

FormReader::FormReader(BodyReader& body, FormSteps&& steps) : body_(body), steps_(std::move(steps)) {}

void FormReader::onPart(std::string_view name, std::string_view fileName, std::string_view contentType, bool isFile) {
    pieces_.push_back({PartHead{withReplacedUtf8(std::string(name)), withReplacedUtf8(std::string(fileName)),
                                std::string(contentType), isFile},
                       {}});
}

void FormReader::onBytes(std::string_view bytes) {
    if (pieces_.empty()) {
        pieces_.emplace_back();
    }
    pieces_.back().bytes.append(bytes);
}

void FormReader::fail() {
    // A client that has gone leaves a form that is malformed, too.
    if (body_.isCutShort()) {
        static_cast<void>(body_.read());
    }
    isMalformed_ = true;
    pieces_.clear();
    throw HttpError(400, "the form is malformed");
}

bool FormReader::decodeMore() {
    if (isMalformed_) {
        fail();
    }
    if (isAtEnd_) {
        return false;
    }
    if (rest_.empty()) {
        const std::optional<std::string_view> piece = body_.read();
        isAtEnd_ = !piece;
        rest_ = piece.value_or(std::string_view());
    }
    const std::string_view slice = rest_.substr(0, SliceBytes);
    rest_.remove_prefix(slice.size());
    if (!(isAtEnd_ ? steps_.finish(*this) : steps_.decode(slice, *this))) {
        fail();
    }
    return true;
}

PartState* FormReader::next() {
    while (true) {
        if (pieces_.empty()) {
            if (!decodeMore()) {
                return nullptr;
            }
        } else if (!pieces_.front().head) {
            pieces_.pop_front();
        } else {
            state_.head = std::move(*std::exchange(pieces_.front().head, std::nullopt));
            return &state_;
        }
    }
}

std::optional<std::string_view> FormReader::read() {
    while (true) {
        if (pieces_.empty()) {
            if (!decodeMore()) {
                return std::nullopt;
            }
        } else if (pieces_.front().head) {
            return std::nullopt;
        } else {
            given_ = std::move(pieces_.front().bytes);
            pieces_.pop_front();
            if (!given_.empty()) {
                return given_;
            }
        }
    }
}

} // namespace vireo::impl
