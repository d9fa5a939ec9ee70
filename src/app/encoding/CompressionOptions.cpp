#include "app/encoding/CompressionRules.h"
#include "frame/InvalidArgument.h"
#include "vireo/app/Compression.h"

#include <algorithm>
#include <utility>

namespace vireo {

namespace impl {

const CompressionRules& CompressionRules::of(const CompressionOptions& options) {
    return *options.rules_;
}

} // namespace impl

namespace {

using impl::CompressionRules;

void require(bool isRight, const char* what) {
    if (!isRight) {
        ql::impl::throwInvalidArgument(std::string("vireo::CompressionOptions: ") + what);
    }
}

} // namespace

CompressionOptions::CompressionOptions() : rules_(std::make_unique<CompressionRules>()) {}

CompressionOptions::CompressionOptions(const CompressionOptions& other)
    : rules_(std::make_unique<CompressionRules>(*other.rules_)) {}

CompressionOptions& CompressionOptions::operator=(const CompressionOptions& other) {
    *rules_ = *other.rules_;
    return *this;
}

CompressionOptions::~CompressionOptions() = default;

CompressionOptions& CompressionOptions::level(int level) {
    require(level >= 1 && level <= 9, "a level that is not 1 to 9");
    rules_->level = level;
    return *this;
}

CompressionOptions& CompressionOptions::brotliLevel(int level) {
    require(level >= 0 && level <= 11, "a brotliLevel that is not 0 to 11");
    rules_->brotliLevel = level;
    return *this;
}

CompressionOptions& CompressionOptions::minBytes(std::uint64_t bytes) {
    rules_->minBytes = bytes;
    return *this;
}

CompressionOptions& CompressionOptions::addType(std::string mime) {
    require(mime.find('/') != std::string::npos, "a type without a slash");
    std::transform(mime.begin(), mime.end(), mime.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    rules_->types.push_back(std::move(mime));
    return *this;
}

} // namespace vireo
