#include "app/encoding/AnswerEncoding.h"

#include "app/kernel/Answer.h"

#include <cstddef>
#include <optional>
#include <string>
#include <utility>

namespace vireo::impl {

namespace {

/// @return none when it cannot be read.
std::optional<std::string> textOf(const FilePart& part) {
    std::string text(static_cast<std::size_t>(part.size), '\0');
    if (!part.file.readAt(part.offset, text)) {
        return std::nullopt;
    }
    return text;
}

std::optional<std::string> encoded(const Answer& answer) {
    if (!answer.file) {
        return answer.encoder->whole(answer.body);
    }
    if (const std::optional<std::string> text = textOf(*answer.file)) {
        return answer.encoder->whole(*text);
    }
    return std::nullopt;
}

/// The bytes are others than those that a strong tag stands for.
void weakenTag(AnswerHeaders& headers) {
    const std::string* const tag = headers.find("ETag");
    if (tag != nullptr && tag->starts_with('"')) {
        const std::string weak = "W/" + *tag;
        headers.set("ETag", weak);
    }
}

} // namespace

void encodeWhole(Answer& answer) {
    if (!answer.encoder) {
        return;
    }
    if (answer.status == 304) {
        // The client has it encoded: by this tag, and of a length that nobody knows any more.
        weakenTag(answer.headers);
        answer.file.reset();
    } else if (std::optional<std::string> body = encoded(answer)) {
        answer.body = std::move(*body);
        answer.file.reset();
        announceEncoding(answer);
    }
    answer.encoder.reset();
}

void announceEncoding(Answer& answer) {
    answer.headers.set("Content-Encoding", answer.encoder->coding());
    weakenTag(answer.headers);
}

} // namespace vireo::impl
