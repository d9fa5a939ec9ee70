#include "app/kernel/Answer.h"

#include <algorithm>
#include <array>
#include <utility>

namespace vireo::impl {

namespace {

constexpr std::string_view ContentType = "Content-Type";
/// What a file brings, besides its type.
constexpr std::array<std::string_view, 6> HeadersOfFiles = {
    "Accept-Ranges", "Content-Disposition", "Content-Encoding", "Content-Range", "ETag", "Last-Modified"};

} // namespace

bool isWithoutContent(int status) {
    return status == 204 || status == 205;
}

bool isBodiless(int status) {
    return isWithoutContent(status) || status == 304;
}

void Answer::dropBody() {
    body.clear();
    file.reset();
    begin = nullptr;
    isSet = false;
    if (isTypeOfBody) {
        headers.remove(ContentType);
        isTypeOfBody = false;
    }
    if (isOfFile) {
        std::ranges::for_each(HeadersOfFiles, [this](std::string_view name) { headers.remove(name); });
        status = status == 206 || status == 304 ? 200 : status;
        isOfFile = false;
    }
}

void Answer::setTypeOfBody(std::string_view type) {
    if (headers.find(ContentType) == nullptr) {
        headers.add(ContentType, type);
        isTypeOfBody = true;
    }
}

void Answer::setText(std::string text, std::string_view type) {
    dropBody();
    body = std::move(text);
    setTypeOfBody(type);
    isSet = true;
}

void Answer::setError(int errorStatus, std::string text) {
    clear();
    status = errorStatus;
    setText(std::move(text) + "\n", "text/plain; charset=utf-8");
}

void Answer::clear() {
    auto kept = std::move(hooks);
    *this = Answer();
    hooks = std::move(kept);
}

void runHooks(ResponseState& state) {
    state.isClosing = true;
    Response response = ResponseAccess::Of(state);
    auto& hooks = state.answer.hooks;
    while (!hooks.empty()) {
        const auto hook = std::move(hooks.back());
        hooks.pop_back();
        hook(response);
    }
}

} // namespace vireo::impl
