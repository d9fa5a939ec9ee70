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
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace {

using namespace vireofuzz;

std::string lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
    return text;
}

std::string_view trim(std::string_view text) {
    const std::size_t begin = text.find_first_not_of(" \t");
    return begin == std::string_view::npos ? "" : text.substr(begin, text.find_last_not_of(" \t") - begin + 1);
}

/// Tells of each part; they are apart where the separator stands outside quotes.
template <typename F>
void forEachPart(std::string_view text, char separator, F tell) {
    std::size_t begin = 0;
    bool isQuoted = false;
    bool isEscaped = false;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (!isQuoted && text[i] == separator) {
            tell(trim(text.substr(begin, i - begin)));
            begin = i + 1;
        } else if (isEscaped) {
            isEscaped = false;
        } else if (isQuoted && text[i] == '\\') {
            isEscaped = true;
        } else if (text[i] == '"') {
            isQuoted = !isQuoted;
        }
    }
    tell(trim(text.substr(begin)));
}

/// All weights that there are, as they may be written.
std::unordered_map<std::string, int> writtenWeights() {
    std::unordered_map<std::string, int> weights;
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

std::optional<int> weightOf(std::string_view text) {
    static const std::unordered_map<std::string, int> Weights = writtenWeights();
    const auto found = Weights.find(asAllowed(std::string(text)));
    return found == Weights.end() ? std::nullopt : std::optional<int>(found->second);
}

struct Item {
    std::string_view name;
    std::vector<std::string_view> parameters;
    int weight = 1000;
    bool isRight = true;
};

/// @param text in small letters; must outlive the item.
Item read(std::string_view text) {
    Item item;
    bool isName = true;
    forEachPart(text, ';', [&](std::string_view part) {
        if (std::exchange(isName, false)) {
            item.name = part;
        } else if (part.starts_with("q=")) {
            const std::optional<int> weight = weightOf(part.substr(2));
            item.isRight = item.isRight && weight;
            item.weight = weight.value_or(0);
        } else if (!part.empty()) {
            item.parameters.push_back(part);
        }
    });
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
    for (const std::string_view parameter : wish.parameters) {
        if (std::find(offer.parameters.begin(), offer.parameters.end(), parameter) == offer.parameters.end()) {
            return -1;
        }
    }
    return 2 + static_cast<long>(wish.parameters.size());
}

bool isPartOf(std::string_view language, std::string_view longer) {
    return longer.starts_with(language) && longer.substr(language.size()).starts_with('-');
}

long fitLanguage(const Item& wish, const Item& offer) {
    if (wish.name == offer.name) {
        return 1000000;
    }
    if (isPartOf(wish.name, offer.name)) {
        return 1 + static_cast<long>(wish.name.size());
    }
    if (isPartOf(offer.name, wish.name)) {
        return 1;
    }
    return wish.name == "*" ? 0 : -1;
}

long fitEncoding(const Item& wish, const Item& offer) {
    return wish.name == offer.name ? 1 : wish.name == "*" ? 0 : -1;
}

/// What there is to choose from.
struct Offers {
    explicit Offers(std::vector<std::string_view> offered) : texts(std::move(offered)) {
        for (const std::string_view text : texts) {
            small.push_back(lower(std::string(text)));
        }
        for (const std::string& text : small) {
            items.push_back(read(text));
        }
    }

    std::vector<std::string_view> texts;
    std::vector<std::string> small;
    std::vector<Item> items;
};

std::string_view choose(const std::string& accept, const Offers& offers, long (*fit)(const Item&, const Item&),
                        std::string_view unmentioned) {
    const std::string small = lower(accept);
    static std::vector<Item> wishes;
    wishes.clear();
    forEachPart(small, ',', [](std::string_view part) { wishes.push_back(read(part)); });
    std::string_view best;
    int bestWeight = -1;
    for (std::size_t i = 0; i < offers.texts.size(); ++i) {
        long closest = -1;
        int weight = offers.texts[i] == unmentioned ? 0 : -1;
        for (const Item& wish : wishes) {
            const long closeness = wish.isRight && !wish.name.empty() ? fit(wish, offers.items[i]) : -1;
            const int said = wish.weight == 0 ? -1 : wish.weight;
            if (closeness > closest || (closeness >= 0 && closeness == closest && said > weight)) {
                closest = closeness;
                weight = said;
            }
        }
        if (weight > bestWeight) {
            best = offers.texts[i];
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
    static const Offers Pages({"application/json", "text/html", "text/html;level=1", "text/plain; charset=utf-8"});
    static const Offers Languages({"en", "de-AT", "de", "zh-Hant-TW"});
    static const Offers Codings({"br", "gzip", "identity"});
    const std::string header(reinterpret_cast<const char*>(data) + 1, size - 1);
    const bool saysNothing = trim(header).empty();
    switch (data[0] % 3) {
    case 0:
        check(vireo::impl::chooseMediaType(header, Pages.texts) ==
                  (saysNothing ? Pages.texts[0] : choose(header, Pages, fitMediaType, {})),
              "another media type");
        break;
    case 1:
        check(vireo::impl::chooseLanguage(header, Languages.texts) ==
                  (saysNothing ? Languages.texts[0] : choose(header, Languages, fitLanguage, {})),
              "another language");
        break;
    default:
        check(vireo::impl::chooseEncoding(header, Codings.texts) == choose(header, Codings, fitEncoding, "identity"),
              "another coding");
    }
    return 0;
}
