#include "session/DeflateOffer.h"

#include "frame/HttpSyntax.h"

#include <algorithm>
#include <charconv>

namespace ql::impl {

namespace {

constexpr int MinWindowBits = 8;
constexpr int MaxWindowBits = 15;

/// Takes the field apart from the left.
class Reader {
public:
    explicit Reader(std::string_view text) : rest_(text) {}

    bool isAtEnd() {
        skip(" \t");
        return rest_.empty();
    }

    /// Elements of a list may be empty.
    void skipEmptyElements() { skip(" \t,"); }

    bool take(char c) {
        if (isAtEnd() || rest_.front() != c) {
            return false;
        }
        rest_.remove_prefix(1);
        return true;
    }

    /// Empty: there is none.
    std::string takeToken() {
        skip(" \t");
        const std::string_view token = rest_.substr(0, rest_.find_first_of(" \t,;=\""));
        if (!isToken(token)) {
            return {};
        }
        rest_.remove_prefix(token.size());
        return std::string(token);
    }

    /// A token, or a quoted string that is one without its quotes and escapes. Empty: there is none.
    std::string takeValue() {
        if (!take('"')) {
            return takeToken();
        }
        std::string value;
        for (; !rest_.empty() && rest_.front() != '"'; rest_.remove_prefix(1)) {
            if (rest_.front() == '\\' && rest_.size() > 1) {
                rest_.remove_prefix(1);
            }
            value.push_back(rest_.front());
        }
        return take('"') && isToken(value) ? value : std::string();
    }

private:
    void skip(std::string_view characters) {
        rest_.remove_prefix((std::min)(rest_.find_first_not_of(characters), rest_.size()));
    }

    std::string_view rest_;
};

std::optional<ExtensionParameter> readParameter(Reader& reader) {
    ExtensionParameter parameter{reader.takeToken(), std::nullopt};
    if (parameter.name.empty()) {
        return std::nullopt;
    }
    if (reader.take('=')) {
        parameter.value = reader.takeValue();
        if (parameter.value->empty()) {
            return std::nullopt;
        }
    }
    return parameter;
}

std::optional<ExtensionOffer> readOffer(Reader& reader) {
    ExtensionOffer offer{reader.takeToken(), {}};
    if (offer.name.empty()) {
        return std::nullopt;
    }
    while (reader.take(';')) {
        const std::optional<ExtensionParameter> parameter = readParameter(reader);
        if (!parameter) {
            return std::nullopt;
        }
        offer.parameters.push_back(*parameter);
    }
    return offer;
}

/// What a client offers, as far as it says so.
struct DeflateOffer {
    bool serverNoContextTakeover = false;
    bool clientNoContextTakeover = false;
    std::optional<int> serverMaxWindowBits;
    bool clientWindowIsLimitable = false;
    int clientMaxWindowBits = MaxWindowBits;
};

/// Decimal, without leading zeros.
std::optional<int> readWindowBits(const std::string& text) {
    int bits = 0;
    const char* const end = text.data() + text.size();
    if (text.front() == '0' || std::from_chars(text.data(), end, bits).ptr != end || bits < MinWindowBits ||
        bits > MaxWindowBits) {
        return std::nullopt;
    }
    return bits;
}

/// @return false when the parameter is none of the extension's, or has no such value.
bool apply(const ExtensionParameter& parameter, DeflateOffer& offer) {
    const std::optional<int> bits = parameter.value ? readWindowBits(*parameter.value) : std::nullopt;
    if (parameter.name == "server_no_context_takeover") {
        offer.serverNoContextTakeover = true;
        return !parameter.value;
    }
    if (parameter.name == "client_no_context_takeover") {
        offer.clientNoContextTakeover = true;
        return !parameter.value;
    }
    if (parameter.name == "server_max_window_bits") {
        offer.serverMaxWindowBits = bits;
        return bits.has_value();
    }
    if (parameter.name == "client_max_window_bits") {
        offer.clientWindowIsLimitable = true;
        offer.clientMaxWindowBits = bits.value_or(MaxWindowBits);
        return bits.has_value() || !parameter.value;
    }
    return false;
}

std::optional<DeflateOffer> readDeflateOffer(const ExtensionOffer& extension) {
    if (extension.name != "permessage-deflate") {
        return std::nullopt;
    }
    DeflateOffer offer;
    const std::vector<ExtensionParameter>& parameters = extension.parameters;
    for (auto parameter = parameters.begin(); parameter != parameters.end(); ++parameter) {
        const bool isRepeated = std::any_of(parameters.begin(), parameter,
                                            [&](const auto& earlier) { return earlier.name == parameter->name; });
        if (isRepeated || !apply(*parameter, offer)) {
            return std::nullopt;
        }
    }
    return offer;
}

std::optional<DeflateAgreement> agree(const DeflateOffer& offer, const DeflateSettings& settings) {
    if (settings.clientMaxWindowBits < MaxWindowBits && !offer.clientWindowIsLimitable) {
        return std::nullopt;
    }
    DeflateAgreement agreement;
    agreement.serverNoContextTakeover = offer.serverNoContextTakeover || settings.serverNoContextTakeover;
    // A client that says it will not use it is taken at its word, which spares the memory for it.
    agreement.clientNoContextTakeover = offer.clientNoContextTakeover || settings.clientNoContextTakeover;
    agreement.serverWindowBits =
        (std::min)(offer.serverMaxWindowBits.value_or(MaxWindowBits), settings.serverMaxWindowBits);
    agreement.clientWindowBits = (std::min)(offer.clientMaxWindowBits, settings.clientMaxWindowBits);

    std::string& answer = agreement.answer;
    answer = "permessage-deflate";
    if (agreement.serverNoContextTakeover) {
        answer += "; server_no_context_takeover";
    }
    if (agreement.clientNoContextTakeover) {
        answer += "; client_no_context_takeover";
    }
    if (offer.serverMaxWindowBits || agreement.serverWindowBits < MaxWindowBits) {
        answer += "; server_max_window_bits=" + std::to_string(agreement.serverWindowBits);
    }
    if (agreement.clientWindowBits < MaxWindowBits) {
        answer += "; client_max_window_bits=" + std::to_string(agreement.clientWindowBits);
    }
    return agreement;
}

} // namespace

std::optional<std::vector<ExtensionOffer>> parseExtensions(std::string_view field) {
    std::vector<ExtensionOffer> offers;
    Reader reader(field);
    for (reader.skipEmptyElements(); !reader.isAtEnd(); reader.skipEmptyElements()) {
        const std::optional<ExtensionOffer> offer = readOffer(reader);
        if (!offer || !(reader.isAtEnd() || reader.take(','))) {
            return std::nullopt;
        }
        offers.push_back(*offer);
    }
    return offers;
}

std::optional<DeflateAgreement> chooseDeflate(const std::vector<ExtensionOffer>& offers,
                                              const DeflateSettings& settings) {
    for (const ExtensionOffer& extension : offers) {
        const std::optional<DeflateOffer> offer = readDeflateOffer(extension);
        std::optional<DeflateAgreement> agreement = offer ? agree(*offer, settings) : std::nullopt;
        if (agreement) {
            return agreement;
        }
    }
    return std::nullopt;
}

} // namespace ql::impl
