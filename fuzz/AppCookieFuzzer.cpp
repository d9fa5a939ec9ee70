// Cookies that a request brings, beside a reading character by character.

#include "Check.h"
#include "app/request/Cookies.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace {

using namespace vireofuzz;
using vireo::Cookie;

/// Without the blanks at its end; those at its beginning were never taken.
void trimEnd(std::string& text) {
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) {
        text.pop_back();
    }
}

class Reader {
public:
    std::vector<Cookie> read(std::string_view line) {
        for (const char c : line) {
            if (c == ';') {
                end();
            } else if (!inValue_ && c == '=') {
                inValue_ = true;
            } else {
                std::string& part = inValue_ ? value_ : name_;
                if (!part.empty() || (c != ' ' && c != '\t')) {
                    part += c;
                }
            }
        }
        end();
        return cookies_;
    }

private:
    void end() {
        trimEnd(name_);
        trimEnd(value_);
        if (value_.size() >= 2 && value_[0] == '"' && value_[value_.size() - 1] == '"') {
            value_.pop_back();
            value_.erase(0, 1);
        }
        if (inValue_ && !name_.empty()) {
            cookies_.push_back({name_, value_});
        }
        name_.clear();
        value_.clear();
        inValue_ = false;
    }

    std::vector<Cookie> cookies_;
    std::string name_;
    std::string value_;
    bool inValue_ = false;
};

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string line(reinterpret_cast<const char*>(data), size);
    std::vector<Cookie> cookies;
    vireo::impl::parseCookies(line, cookies);
    const std::vector<Cookie> expected = Reader().read(line);
    check(cookies.size() == expected.size(), "there are more cookies, or fewer");
    for (std::size_t i = 0; i < cookies.size(); ++i) {
        check(cookies[i].name == expected[i].name, "a cookie has another name");
        check(cookies[i].value == expected[i].value, "a cookie has another value");
    }
    return 0;
}
