#include "app/kernel/AnswerHeaders.h"

#include "app/kernel/Throw.h"
#include "frame/HttpSyntax.h"

namespace vireo::impl {

namespace {

constexpr unsigned int LastKey = 9999;
constexpr std::string_view SetCookieName = "Set-Cookie";

} // namespace

void AnswerHeaders::set(std::string_view name, std::string_view value) {
    remove(name);
    add(name, value);
}

void AnswerHeaders::add(std::string_view name, std::string_view value) {
    if (nextKey_ > LastKey) {
        throwLogicError("an answer is given too many headers");
    }
    lines_.emplace_hint(lines_.end(), std::to_string(nextKey_++), std::pair(std::string(name), std::string(value)));
}

void AnswerHeaders::remove(std::string_view name) {
    std::erase_if(lines_, [name](const auto& line) { return ql::impl::isSameWord(line.second.first, name); });
}

void AnswerHeaders::setCookie(std::string_view name, std::string_view value) {
    std::erase_if(lines_, [name](const auto& line) {
        const auto& [field, cookie] = line.second;
        return ql::impl::isSameWord(field, SetCookieName) && cookie.size() > name.size() &&
               cookie.compare(0, name.size(), name) == 0 && cookie[name.size()] == '=';
    });
    add(SetCookieName, value);
}

const std::string* AnswerHeaders::find(std::string_view name) const {
    for (const auto& [key, line] : lines_) {
        if (ql::impl::isSameWord(line.first, name)) {
            return &line.second;
        }
    }
    return nullptr;
}

} // namespace vireo::impl
