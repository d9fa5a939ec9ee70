// What clients like best, by Accept, Accept-Language and Accept-Encoding, beside a reading that asks of each offer what
// each wish says about it.
//
// An input is a byte, which header it is, and the header.

#include "Check.h"
#include "app/request/Accept.h"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace {

using namespace vireofuzz;

std::string lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
    return text;
}

std::string trim(const std::string& text) {
    const std::size_t begin = text.find_first_not_of(" \t");
    return begin == std::string::npos ? "" : text.substr(begin, text.find_last_not_of(" \t") - begin + 1);
}

/// Splits where the separator stands outside quotes.
std::vector<std::string> split(const std::string& text, char separator) {
    std::vector<std::string> parts(1);
    bool isQuoted = false;
    bool isEscaped = false;
    for (const char c : text) {
        if (!isQuoted && c == separator) {
            parts.emplace_back();
            continue;
        }
        parts.back() += c;
        if (isEscaped) {
            isEscaped = false;
        } else if (isQuoted && c == '\\') {
            isEscaped = true;
        } else if (c == '"') {
            isQuoted = !isQuoted;
        }
    }
    for (std::string& part : parts) {
        part = trim(part);
    }
    return parts;
}

/// All weights that there are, as they may be written.
std::map<std::string, int> writtenWeights() {
    std::map<std::string, int> weights;
    for (int weight = 0; weight <= 1000; ++weight) {
        std::string digits = std::to_string(weight % 1000);
        digits.insert(0, 3 - digits.size(), '0');
        std::string written = (weight == 1000 ? "1." : "0.") + digits;
        weights[written] = weight;
        while (written.back() == '0' && written.size() > 2) {
            written.pop_back();
            weights[written] = weight;
        }
        if (written.back() == '.') {
            weights[written.substr(0, 1)] = weight;
        }
    }
    return weights;
}

/// As the RFC would have it: with a digit before the point, and three behind it at most.
std::string asAllowed(std::string text) {
    if (text.size() > 1 && text.front() == '.') {
        text.insert(0, 1, '0');
    }
    while (text.size() > 5 && std::isdigit(static_cast<unsigned char>(text.back())) != 0) {
        text.pop_back();
    }
    return text;
}

std::optional<int> weightOf(const std::string& text) {
    static const std::map<std::string, int> Weights = writtenWeights();
    const auto found = Weights.find(asAllowed(text));
    return found == Weights.end() ? std::nullopt : std::optional<int>(found->second);
}

struct Item {
    std::string name;
    std::vector<std::string> parameters;
    int weight = 1000;
    bool isRight = true;
};

Item read(const std::string& text) {
    Item item;
    const std::vector<std::string> parts = split(text, ';');
    item.name = lower(parts[0]);
    for (std::size_t i = 1; i < parts.size(); ++i) {
        const std::string parameter = lower(parts[i]);
        if (parameter.starts_with("q=")) {
            const std::optional<int> weight = weightOf(parameter.substr(2));
            item.isRight = item.isRight && weight;
            item.weight = weight.value_or(0);
        } else if (!parameter.empty()) {
            item.parameters.push_back(parameter);
        }
    }
    return item;
}

/// -1 where the wish says nothing about the offer.
long fitMediaType(const Item& wish, const Item& offer) {
    if (wish.name == "*/*") {
        return 0;
    }
    const std::size_t slash = wish.name.find('/');
    if (slash != std::string::npos && wish.name.substr(slash) == "/*") {
        return offer.name.starts_with(wish.name.substr(0, slash + 1)) ? 1 : -1;
    }
    if (wish.name != offer.name) {
        return -1;
    }
    for (const std::string& parameter : wish.parameters) {
        if (std::find(offer.parameters.begin(), offer.parameters.end(), parameter) == offer.parameters.end()) {
            return -1;
        }
    }
    return 2 + static_cast<long>(wish.parameters.size());
}

long fitLanguage(const Item& wish, const Item& offer) {
    if (wish.name == offer.name) {
        return 1000000;
    }
    if (offer.name.starts_with(wish.name + "-")) {
        return 1 + static_cast<long>(wish.name.size());
    }
    if (wish.name.starts_with(offer.name + "-")) {
        return 1;
    }
    return wish.name == "*" ? 0 : -1;
}

long fitEncoding(const Item& wish, const Item& offer) {
    return wish.name == offer.name ? 1 : wish.name == "*" ? 0 : -1;
}

using Offers = std::vector<std::string_view>;

std::string choose(const std::string& accept, const Offers& offers, long (*fit)(const Item&, const Item&),
                   std::string_view unmentioned) {
    std::vector<Item> wishes;
    for (const std::string& element : split(accept, ',')) {
        wishes.push_back(read(element));
    }
    std::string best;
    int bestWeight = -1;
    for (const std::string_view text : offers) {
        const Item offer = read(std::string(text));
        long closest = -1;
        int weight = text == unmentioned ? 0 : -1;
        for (const Item& wish : wishes) {
            const long closeness = wish.isRight && !wish.name.empty() ? fit(wish, offer) : -1;
            const int said = wish.weight == 0 ? -1 : wish.weight;
            if (closeness > closest || (closeness >= 0 && closeness == closest && said > weight)) {
                closest = closeness;
                weight = said;
            }
        }
        if (weight > bestWeight) {
            best = text;
            bestWeight = weight;
        }
    }
    return best;
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    static const Offers Pages{"application/json", "text/html", "text/html;level=1", "text/plain; charset=utf-8"};
    static const Offers Languages{"en", "de-AT", "de", "zh-Hant-TW"};
    static const Offers Codings{"br", "gzip", "identity"};
    const std::string header(reinterpret_cast<const char*>(data) + 1, size - 1);
    const bool saysNothing = trim(header).empty();
    switch (data[0] % 3) {
    case 0:
        check(vireo::impl::chooseMediaType(header, Pages) ==
                  (saysNothing ? std::string(Pages[0]) : choose(header, Pages, fitMediaType, {})),
              "another media type");
        break;
    case 1:
        check(vireo::impl::chooseLanguage(header, Languages) ==
                  (saysNothing ? std::string(Languages[0]) : choose(header, Languages, fitLanguage, {})),
              "another language");
        break;
    default:
        check(vireo::impl::chooseEncoding(header, Codings) == choose(header, Codings, fitEncoding, "identity"),
              "another coding");
    }
    return 0;
}
