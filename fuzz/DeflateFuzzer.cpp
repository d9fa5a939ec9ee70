// Compression of WebSockets: what is offered and agreed on, messages there and back, and streams that are none.

#include "Check.h"
#include "reliability/Choices.h"
#include "session/Codec.h"
#include "session/DeflateOffer.h"
#include "session/Deflater.h"
#include "session/Inflater.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

using namespace vireofuzz;
using namespace sessiontest;
using namespace ql::impl;
using vireotest::Choices;

namespace {

constexpr std::size_t MostText = 16384;
constexpr int MostMessages = 6;

DeflateSettings takeSettings(Choices& input) {
    DeflateSettings settings;
    settings.level = static_cast<int>(1 + input.takeNumber(8));
    settings.memoryLevel = static_cast<int>(1 + input.takeNumber(8));
    settings.serverMaxWindowBits = static_cast<int>(9 + input.takeNumber(6));
    settings.clientMaxWindowBits = static_cast<int>(9 + input.takeNumber(6));
    settings.serverNoContextTakeover = input.takeBool();
    settings.clientNoContextTakeover = input.takeBool();
    return settings;
}

bool has(const ExtensionOffer& offer, std::string_view name) {
    return std::ranges::any_of(offer.parameters, [&](const auto& parameter) { return parameter.name == name; });
}

/// An answer that is an offer itself: it fits what was agreed on, and says no more than the client has offered.
void agree(Choices& input) {
    const DeflateSettings settings = takeSettings(input);
    const std::optional<std::vector<ExtensionOffer>> offers = parseExtensions(input.takeRest());
    const std::optional<DeflateAgreement> agreement = offers ? chooseDeflate(*offers, settings) : std::nullopt;
    if (!agreement) {
        return;
    }
    const std::optional<std::vector<ExtensionOffer>> answer = parseExtensions(agreement->answer);
    check(answer && answer->size() == 1, "the answer is no extension");
    const ExtensionOffer& answered = answer->front();
    check(has(answered, "server_no_context_takeover") == agreement->serverNoContextTakeover, "server's context");
    check(has(answered, "client_no_context_takeover") == agreement->clientNoContextTakeover, "client's context");
    check(agreement->serverNoContextTakeover || !settings.serverNoContextTakeover, "the server's setting is not met");
    check(agreement->clientNoContextTakeover || !settings.clientNoContextTakeover, "the client's setting is not met");
    int serverBits = 15;
    int clientBits = 15;
    for (const ExtensionParameter& parameter : answered.parameters) {
        if (parameter.name == "server_max_window_bits") {
            serverBits = std::stoi(parameter.value.value());
        } else if (parameter.name == "client_max_window_bits") {
            clientBits = std::stoi(parameter.value.value());
            check(std::ranges::any_of(*offers, [](const auto& offer) { return has(offer, "client_max_window_bits"); }),
                  "the client's window is limited, which it has not offered");
        }
    }
    check(serverBits == agreement->serverWindowBits && serverBits >= 8 && serverBits <= settings.serverMaxWindowBits,
          "server's window");
    check(clientBits == agreement->clientWindowBits && clientBits >= 8 && clientBits <= settings.clientMaxWindowBits,
          "client's window");
}

struct Inflated {
    bool isValid = true;
    std::string text;

    friend bool operator==(const Inflated&, const Inflated&) = default;
};

Inflated inflate(Inflater& inflater, std::string_view data, std::size_t inputStep, std::size_t roomStep) {
    Inflated result;
    std::vector<unsigned char> memory(roomStep);
    const auto run = [&](auto step) {
        Inflater::Status status = Inflater::Status::RoomUsed;
        while (result.isValid && status == Inflater::Status::RoomUsed && result.text.size() < MostText) {
            std::span<unsigned char> room = memory;
            status = step(room);
            result.text += textOf(std::span(memory).first(memory.size() - room.size()));
            result.isValid = status != Inflater::Status::Invalid;
        }
    };
    for (; !data.empty() && result.isValid; data.remove_prefix(std::min(inputStep, data.size()))) {
        std::span<const unsigned char> rest = bytesOf(data.substr(0, inputStep));
        run([&](std::span<unsigned char>& room) { return inflater.inflate(rest, room); });
    }
    run([&](std::span<unsigned char>& room) { return inflater.finish(room); });
    result.text.resize(std::min(result.text.size(), MostText));
    return result;
}

/// Messages come back as they were, however they are cut.
void goThereAndBack(Choices& input) {
    const DeflateSettings settings = takeSettings(input);
    const int windowBits = settings.serverMaxWindowBits;
    const bool takesOver = !settings.serverNoContextTakeover;
    const std::size_t inputStep = input.takeByte() + 1;
    const std::size_t roomStep = input.takeByte() + 1;
    Deflater deflater(settings, windowBits, takesOver);
    Inflater inflater(windowBits, takesOver);
    std::optional<ClientInflater> client(std::in_place, windowBits);
    for (int i = 0; i < MostMessages && !input.isUsedUp(); ++i) {
        std::string message = input.takeText(input.takeByte());
        for (unsigned int repeats = input.takeByte(); repeats > 0 && message.size() < MostText / 2; --repeats) {
            message += message.substr(0, input.takeByte()) + static_cast<char>(repeats);
        }
        if (input.takeByte() == 0) {
            deflater.reset();
        }
        ByteBuffer out;
        if (!deflater.compress(bytesOf(message), out)) {
            continue;
        }
        const std::string data = textOf(out.bytes());
        check(data.size() < message.size(), "compressed, a message is longer");
        check(inflate(inflater, data, inputStep, roomStep) == Inflated{true, message}, "another message comes back");
        if (!takesOver) {
            client.emplace(windowBits);
        }
        check(client->inflate(data) == message, "another message comes to the client");
    }
}

/// What is no message is refused in whatever pieces it comes, and what is one gives the same.
void inflateAnything(Choices& input) {
    const std::size_t inputStep = input.takeByte() + 1;
    const std::size_t roomStep = input.takeByte() + 1;
    const bool takesOver = input.takeBool();
    Inflater inPieces(15, takesOver);
    Inflater whole(15, takesOver);
    for (int i = 0; i < MostMessages && !input.isUsedUp(); ++i) {
        const std::string data = input.takeText(input.takeNumber(0xFFFF));
        const Inflated expected = inflate(whole, data, data.size() + 1, MostText);
        check(inflate(inPieces, data, inputStep, roomStep) == expected, "pieces give another message than the whole");
        if (!expected.isValid || expected.text.size() >= MostText) {
            return;
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Choices input(data, size);
    switch (input.takeNumber(2)) {
    case 0:
        agree(input);
        break;
    case 1:
        goThereAndBack(input);
        break;
    default:
        inflateAnything(input);
        break;
    }
    return 0;
}
