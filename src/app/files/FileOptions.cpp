#include "vireo/app/FileOptions.h"

#include "app/files/FileRules.h"
#include "app/files/PathRules.h"
#include "app/kernel/FieldRules.h"
#include "frame/InvalidArgument.h"
#include "vireo/support/qlStringUtils.h"

#include <algorithm>
#include <string_view>
#include <utility>
#include <vector>

namespace vireo {

FileOptions::FileOptions() : rules_(std::make_unique<impl::FileRules>()) {}

FileOptions::FileOptions(const FileOptions& other) : rules_(std::make_unique<impl::FileRules>(*other.rules_)) {}

FileOptions& FileOptions::operator=(const FileOptions& other) {
    *rules_ = *other.rules_;
    return *this;
}

FileOptions::~FileOptions() = default;

FileOptions& FileOptions::index(std::string name) {
    if (!name.empty() && !impl::isPathSegment(name, true)) {
        ql::impl::throwInvalidArgument("\"" + name + "\" is no name of a file");
    }
    rules_->index = std::move(name);
    return *this;
}

FileOptions& FileOptions::listing(bool on) {
    rules_->listing = on;
    return *this;
}

FileOptions& FileOptions::dotFiles(bool on) {
    rules_->dotFiles = on;
    return *this;
}

FileOptions& FileOptions::cacheControl(std::string value) {
    impl::checkField("Cache-Control", value);
    rules_->cacheControl = std::move(value);
    return *this;
}

FileOptions& FileOptions::precompressed(bool on) {
    rules_->precompressed = on;
    return *this;
}

FileOptions& FileOptions::type(std::string extension, std::string mime) {
    impl::checkField("Content-Type", mime);
    if (extension.find_first_of("./\\") != std::string::npos) {
        ql::impl::throwInvalidArgument("\"" + extension + "\" is no extension, such as html");
    }
    qlStringUtils::toLower(extension);
    rules_->types.insert_or_assign(std::move(extension), std::move(mime));
    return *this;
}

FileOptions& FileOptions::fallback(std::string path) {
    const std::vector<std::string_view> segments = impl::segmentsOf(path);
    if (!std::ranges::all_of(segments, [](std::string_view segment) { return impl::isPathSegment(segment, true); })) {
        ql::impl::throwInvalidArgument("\"" + path + "\" is no path of a file in the directory");
    }
    rules_->fallback = std::move(path);
    return *this;
}

} // namespace vireo
