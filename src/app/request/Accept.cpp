#include "app/request/Accept.h"

#include "frame/HttpSyntax.h"

#include <algorithm>
#include <cstddef>
#include <utility>
#include <vector>

namespace vireo::impl {

namespace {

using ql::impl::isSameWord;
using ql::impl::withoutBlanks;

/// Something with parameters behind semicolons: a wish of the client, or what is on offer.
struct Item {
    std::string_view name;
    /// As they stand there, without the weight.
    std::vector<std::string_view> parameters;
    /// In thousandths.
    int weight = 1000;
};

/// How well a wish fits an offer: the more the better; none when it doesn't.
using Fit = std::optional<std::size_t>;
using FitOf = Fit (*)(const Item& wish, const Item& offer);

/// Takes what is before the next separator that stands outside quotes.
std::string_view takePart(std::string_view& list, char separator) {
    bool isQuoted = false;
    std::size_t end = 0;
    for (; end < list.size() && (isQuoted || list[end] != separator); ++end) {
        if (list[end] == '"') {
            isQuoted = !isQuoted;
        } else if (isQuoted && list[end] == '\\') {
            ++end;
        }
    }
    end = (std::min)(end, list.size());
    const std::string_view part = list.substr(0, end);
    list.remove_prefix((std::min)(end + 1, list.size()));
    return withoutBlanks(part);
}

/// 0 to 1, in thousandths: digits behind the third one are cut, and old clients write ".2".
std::optional<int> parseWeight(std::string_view text) {
    const std::size_t point = (std::min)(text.find('.'), text.size());
    const std::string_view whole = text.substr(0, point);
    const std::string_view digits = text.substr((std::min)(point + 1, text.size()));
    if ((whole.empty() && digits.empty()) || (!whole.empty() && whole != "0" && whole != "1") ||
        digits.find_first_not_of("0123456789") != std::string_view::npos) {
        return std::nullopt;
    }
    int weight = whole == "1" ? 1 : 0;
    for (std::size_t i = 0; i < 3; ++i) {
        weight = weight * 10 + (i < digits.size() ? digits[i] - '0' : 0);
    }
    return weight <= 1000 ? std::optional<int>(weight) : std::nullopt;
}

/// @return none when its weight is none.
std::optional<Item> parseItem(std::string_view text) {
    Item item;
    item.name = takePart(text, ';');
    while (!text.empty()) {
        const std::string_view parameter = takePart(text, ';');
        if (isSameWord(parameter.substr(0, 2), "q=")) {
            const std::optional<int> weight = parseWeight(parameter.substr(2));
            if (!weight) {
                return std::nullopt;
            }
            item.weight = *weight;
        } else if (!parameter.empty()) {
            item.parameters.push_back(parameter);
        }
    }
    return item;
}

std::vector<Item> parseWishes(std::string_view accept) {
    std::vector<Item> wishes;
    while (!accept.empty()) {
        std::optional<Item> wish = parseItem(takePart(accept, ','));
        if (wish && !wish->name.empty()) {
            wishes.push_back(std::move(*wish));
        }
    }
    return wishes;
}

Fit fitMediaType(const Item& wish, const Item& offer) {
    if (wish.name == "*/*") {
        return 0;
    }
    const std::size_t slash = (std::min)(wish.name.find('/'), wish.name.size());
    if (wish.name.substr(slash) == "/*") {
        return isSameWord(wish.name.substr(0, slash + 1), offer.name.substr(0, slash + 1)) ? Fit(1) : std::nullopt;
    }
    const bool isSame =
        isSameWord(wish.name, offer.name) && std::ranges::all_of(wish.parameters, [&offer](std::string_view wanted) {
            return std::ranges::any_of(offer.parameters,
                                       [wanted](std::string_view parameter) { return isSameWord(wanted, parameter); });
        });
    return isSame ? Fit(2 + wish.parameters.size()) : std::nullopt;
}

/// Whether a language begins with this one.
bool isPartOf(std::string_view language, std::string_view longer) {
    return longer.size() > language.size() && longer[language.size()] == '-' &&
           isSameWord(language, longer.substr(0, language.size()));
}

Fit fitLanguage(const Item& wish, const Item& offer) {
    if (isSameWord(wish.name, offer.name)) {
        return std::string_view::npos;
    }
    if (isPartOf(wish.name, offer.name)) {
        return 1 + wish.name.size();
    }
    if (isPartOf(offer.name, wish.name)) {
        return 1;
    }
    return wish.name == "*" ? Fit(0) : std::nullopt;
}

Fit fitEncoding(const Item& wish, const Item& offer) {
    if (isSameWord(wish.name, offer.name)) {
        return 1;
    }
    return wish.name == "*" ? Fit(0) : std::nullopt;
}

/// What the client says about an offer; none when it says nothing. Of wishes that fit it as well the better one counts.
std::optional<int> weightOf(const std::vector<Item>& wishes, const Item& offer, FitOf fitOf) {
    Fit best;
    int weight = 0;
    for (const Item& wish : wishes) {
        const Fit fit = fitOf(wish, offer);
        if (fit && (!best || *fit > *best || (*fit == *best && wish.weight > weight))) {
            best = fit;
            weight = wish.weight;
        }
    }
    return best ? std::optional<int>(weight) : std::nullopt;
}

/// @param unmentioned an offer that is wanted, if less than all others, when the client says nothing about it.
std::string choose(const std::vector<Item>& wishes, std::span<const std::string_view> offers, FitOf fitOf,
                   std::string_view unmentioned) {
    std::string_view best;
    int bestWeight = -1;
    for (const std::string_view offer : offers) {
        const std::optional<Item> item = parseItem(offer);
        const std::optional<int> said = item ? weightOf(wishes, *item, fitOf) : std::nullopt;
        const bool isWanted = said ? *said > 0 : !unmentioned.empty() && offer == unmentioned;
        if (isWanted && said.value_or(0) > bestWeight) {
            best = offer;
            bestWeight = said.value_or(0);
        }
    }
    return std::string(best);
}

std::string firstOf(std::span<const std::string_view> offers) {
    return offers.empty() ? std::string() : std::string(offers.front());
}

bool saysNothing(std::optional<std::string_view> accept) {
    return !accept || withoutBlanks(*accept).empty();
}

constexpr std::string_view Identity = "identity";

} // namespace

std::string chooseMediaType(std::optional<std::string_view> accept, std::span<const std::string_view> offers) {
    return saysNothing(accept) ? firstOf(offers) : choose(parseWishes(*accept), offers, fitMediaType, {});
}

std::string chooseLanguage(std::optional<std::string_view> accept, std::span<const std::string_view> offers) {
    return saysNothing(accept) ? firstOf(offers) : choose(parseWishes(*accept), offers, fitLanguage, {});
}

std::string chooseEncoding(std::optional<std::string_view> accept, std::span<const std::string_view> offers) {
    if (!accept) {
        return std::ranges::find(offers, Identity) != offers.end() ? std::string(Identity) : firstOf(offers);
    }
    return choose(parseWishes(*accept), offers, fitEncoding, Identity);
}

} // namespace vireo::impl
