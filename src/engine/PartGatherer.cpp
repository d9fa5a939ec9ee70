#include "engine/PartGatherer.h"

#include <array>
#include <cstddef>
#include <utility>

namespace ql::impl {

namespace {

/// The three that browsers write instead of bytes (the HTML standard, multipart form data).
std::string decodeName(std::string_view text) {
    static constexpr std::array<std::pair<std::string_view, char>, 3> Escapes = {
        {{"%22", '"'}, {"%0D", '\r'}, {"%0A", '\n'}}};
    std::string decoded;
    decoded.reserve(text.size());
    while (!text.empty()) {
        char byte = text[0];
        std::size_t size = 1;
        for (const auto& [escape, stands] : Escapes) {
            if (text.substr(0, escape.size()) == escape) {
                byte = stands;
                size = escape.size();
            }
        }
        decoded += byte;
        text.remove_prefix(size);
    }
    return decoded;
}

std::string_view textOf(const char* text) {
    return text == nullptr ? std::string_view() : std::string_view(text);
}

std::string_view withoutDirectories(std::string_view fileName) {
    return fileName.substr(fileName.find_last_of("/\\") + 1);
}

} // namespace

bool PartGatherer::add(const char* name, const char* fileName, const char* contentType, std::string_view bytes,
                       std::uint64_t offset) {
    if (std::exchange(mayBegin_, false)) {
        if (offset != 0 || textOf(name).empty()) {
            return false;
        }
        FormPiece part;
        part.isPart = true;
        part.name = isMultipart_ ? decodeName(name) : std::string(name);
        part.fileName = withoutDirectories(decodeName(textOf(fileName)));
        part.contentType = textOf(contentType);
        part.isFile = fileName != nullptr;
        pieces_.push_back(std::move(part));
        hasPart_ = true;
        size_ = 0;
    }
    // A part inside a part, which no browser sends, begins without a separator.
    if (!hasPart_ || offset != size_) {
        return false;
    }
    if (!bytes.empty()) {
        if (pieces_.empty() || pieces_.back().isPart) {
            pieces_.emplace_back();
        }
        pieces_.back().bytes.append(bytes);
        size_ += bytes.size();
    }
    return true;
}

std::vector<FormPiece> PartGatherer::take() {
    return std::exchange(pieces_, {});
}

} // namespace ql::impl
