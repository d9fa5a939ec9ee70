#include "app/body/BodyReader.h"

#include "app/body/NewFileState.h"
#include "app/kernel/ClientWaits.h"
#include "app/kernel/Throw.h"
#include "vireo/HttpReceiveDevice.h"
#include "vireo/app/ClientGone.h"
#include "vireo/app/HttpError.h"

#include <algorithm>
#include <utility>

namespace vireo::impl {

namespace {

constexpr std::size_t PieceBytes = 65536;

} // namespace

BodyReader::BodyReader(ql::HttpReceiveDevice& feed, const RequestBody::Limits& limits, ClientWaits* waits)
    : feed_(feed), limits_(limits), waits_(waits), fate_(std::make_shared<BodyFate>()) {}

BodyReader::~BodyReader() = default;

bool BodyReader::isCutShort() const {
    return feed_.hasDeviceError();
}

std::optional<std::string_view> BodyReader::receive() {
    if (isFrozen_) {
        throwLogicError("the body is read after Response::later(): read it before");
    }
    if (buffer_.empty()) {
        buffer_.resize(
            static_cast<std::size_t>((std::min)(limits_.announced.value_or(PieceBytes), std::uint64_t{PieceBytes})));
    }
    std::uint64_t size = 0;
    if (receivedBytes_ <= limits_.maxBody) {
        const WaitForClient wait(limits_.isWhole ? nullptr : waits_);
        size = feed_.readSome(buffer_.data(), buffer_.size());
    }
    receivedBytes_ += size;
    if (receivedBytes_ > limits_.maxBody) {
        fate_->isCutShort = true;
        throw HttpError(413, "the body is larger than " + std::to_string(limits_.maxBody) + " bytes");
    }
    if (size == 0 && isCutShort()) {
        fate_->isCutShort = true;
        throw ClientGone();
    }
    return size == 0 ? std::nullopt : std::optional(std::string_view(buffer_.data(), size));
}

std::optional<std::string_view> BodyReader::read() {
    if (text_) {
        const std::string_view piece = std::string_view(*text_).substr(textOffset_, PieceBytes);
        textOffset_ += piece.size();
        return piece.empty() ? std::nullopt : std::optional(piece);
    }
    hasBegun_ = true;
    return receive();
}

const std::string& BodyReader::text() {
    if (text_) {
        return *text_;
    }
    if (hasBegun_) {
        throwLogicError("Body::text() after some of the body was taken by read(), saveTo() or a form");
    }
    std::string text;
    // What is only announced may never come.
    text.reserve(limits_.isWhole ? static_cast<std::size_t>((std::min)(limits_.announced.value_or(0), limits_.maxBody))
                                 : 0);
    while (const auto piece = receive()) {
        text += *piece;
    }
    return text_.emplace(std::move(text));
}

} // namespace vireo::impl
