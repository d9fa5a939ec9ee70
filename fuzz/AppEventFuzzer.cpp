// Server-sent events, as they are written, read back by the rules of the HTML standard: what is published arrives, and
// nothing else; and the test client's reader beside the same rules, for any stream in any pieces.
//
// An input is a byte, what it is, and the texts.

#include "Check.h"
#include "app/events/EventRing.h"
#include "app/testing/EventSplitter.h"
#include "reliability/Choices.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace {

using namespace vireofuzz;
using vireo::impl::EventSplitter;
using vireotest::Choices;

struct Event {
    std::string data;
    std::string type;
    std::string id;
};

/// Of the whole stream, by lines.
std::vector<Event> readStream(std::string_view stream) {
    std::vector<Event> events;
    Event event;
    bool hasData = false;
    std::string lastId;
    std::size_t at = 0;
    if (stream.starts_with("\xEF\xBB\xBF")) {
        at = 3;
    }
    while (true) {
        const std::size_t end = stream.find_first_of("\r\n", at);
        if (end == std::string_view::npos) {
            return events;
        }
        const std::string_view line = stream.substr(at, end - at);
        at = end + (stream.substr(end, 2) == "\r\n" ? 2 : 1);
        if (line.empty()) {
            if (hasData) {
                event.data.pop_back();
                event.id = lastId;
                event.type = event.type.empty() ? "message" : event.type;
                events.push_back(event);
            }
            event = {};
            hasData = false;
            continue;
        }
        const std::size_t colon = line.find(':');
        const std::string_view name = line.substr(0, colon);
        std::string_view value = colon == std::string_view::npos ? "" : line.substr(colon + 1);
        if (value.starts_with(' ')) {
            value.remove_prefix(1);
        }
        if (name == "data") {
            event.data.append(value).append("\n");
            hasData = true;
        } else if (name == "event") {
            event.type = value;
        } else if (name == "id" && value.find('\0') == std::string_view::npos) {
            lastId = value;
        }
    }
}

/// With "\n" for each line end.
std::string withLineFeeds(std::string_view text) {
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\r') {
            out += '\n';
            i += text.substr(i + 1, 1) == "\n" ? 1 : 0;
        } else {
            out += text[i];
        }
    }
    return out;
}

void checkWritten(Choices choices) {
    const std::string type = choices.takeText(choices.takeNumber(20));
    const std::string id = choices.takeText(choices.takeNumber(20));
    const bool hasRetry = choices.takeBool();
    const std::string data = choices.takeRest();
    std::string stream;
    try {
        stream = vireo::impl::framed({data, type, id, hasRetry ? std::optional<std::int64_t>(7) : std::nullopt});
    } catch (const std::invalid_argument&) {
        return;
    }
    const std::vector<Event> events = readStream(stream);
    check(events.size() == 1, "it is not one event");
    check(events[0].data == withLineFeeds(data), "another data");
    check(events[0].type == (type.empty() ? "message" : type), "another type");
    check(events[0].id == id, "another id");
}

void checkRead(Choices choices) {
    std::string stream;
    EventSplitter splitter;
    std::vector<Event> events;
    for (const std::string& piece : choices.takePieces()) {
        stream += piece;
        splitter.feed(piece);
        while (const std::optional<EventSplitter::Event> event = splitter.take()) {
            events.push_back({event->data, event->type, event->id});
        }
    }
    const std::vector<Event> expected = readStream(stream);
    check(events.size() == expected.size(), "more events, or fewer");
    for (std::size_t i = 0; i < events.size(); ++i) {
        check(events[i].data == expected[i].data, "another data is read");
        check(events[i].type == expected[i].type, "another type is read");
        check(events[i].id == expected[i].id, "another id is read");
    }
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    const Choices choices(data + 1, size - 1);
    if (data[0] % 2 == 0) {
        checkWritten(choices);
    } else {
        checkRead(choices);
    }
    return 0;
}
