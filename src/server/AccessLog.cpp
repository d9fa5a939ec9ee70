#include "vireo/AccessLog.h"

#include "frame/Utf8.h"
#include "server/AccessLogTarget.h"
#include "vireo/ExchangeRecord.h"
#include "vireo/support/qlStringUtils.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <utility>

namespace ql::http {

namespace {

/// A line for a browser's request fits into it.
constexpr std::size_t UsualLineBytes = 320;

/// A moment in UTC, in the fields that a calendar and a clock show.
struct UtcTime {
    explicit UtcTime(std::chrono::system_clock::time_point moment)
        : sinceEpoch(std::chrono::floor<std::chrono::milliseconds>(moment)),
          day(std::chrono::floor<std::chrono::days>(sinceEpoch)),
          date(day),
          time(sinceEpoch - day) {}

    const std::chrono::sys_time<std::chrono::milliseconds> sinceEpoch;
    const std::chrono::sys_days day;
    const std::chrono::year_month_day date;
    const std::chrono::hh_mm_ss<std::chrono::milliseconds> time;
};

/// In decimal, with leading zeros up to `digits`. The fields of a time are never negative but for years before 0,
/// which no clock shows.
template <typename Number>
std::string padded(Number number, int digits) {
    return qlStringUtils::fromUInt64(static_cast<std::uint64_t>(number), digits);
}

std::string clockText(const UtcTime& utc) {
    return padded(utc.time.hours().count(), 2) + ':' + padded(utc.time.minutes().count(), 2) + ':' +
           padded(utc.time.seconds().count(), 2);
}

/// "21/Nov/2026:17:48:49 +0000"
std::string combinedTime(const UtcTime& utc) {
    static constexpr std::array<const char*, 12> Months{"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                                        "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    return padded(static_cast<unsigned>(utc.date.day()), 2) + '/' +
           Months[static_cast<unsigned>(utc.date.month()) - 1] + '/' + padded(static_cast<int>(utc.date.year()), 4) +
           ':' + clockText(utc) + " +0000";
}

/// "2026-11-21T17:48:49.123Z", RFC 3339
std::string jsonTime(const UtcTime& utc) {
    return padded(static_cast<int>(utc.date.year()), 4) + '-' + padded(static_cast<unsigned>(utc.date.month()), 2) +
           '-' + padded(static_cast<unsigned>(utc.date.day()), 2) + 'T' + clockText(utc) + '.' +
           padded(utc.time.subseconds().count(), 3) + 'Z';
}

/// Whether a character stands for itself in either format.
bool isPlain(char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte >= 0x20 && byte < 0x7F && c != '"' && c != '\\';
}

/// @param digits how many; the number has no more.
void appendHex(std::string& line, std::uint32_t number, unsigned digits) {
    static constexpr std::string_view Digits = "0123456789ABCDEF";
    while (digits > 0) {
        --digits;
        line += Digits[(number >> (4 * digits)) & 0xFU];
    }
}

void appendCombinedText(std::string& line, std::string_view text) {
    while (!text.empty()) {
        const auto plain = static_cast<std::size_t>(std::find_if_not(text.begin(), text.end(), isPlain) - text.begin());
        line += text.substr(0, plain);
        text.remove_prefix(plain);
        if (!text.empty()) {
            line += "\\x";
            appendHex(line, static_cast<unsigned char>(text.front()), 2);
            text.remove_prefix(1);
        }
    }
}

/// For what is not known.
std::string_view orDash(const std::string& text) {
    return text.empty() ? "-" : std::string_view(text);
}

std::string combinedLine(const ExchangeRecord& record) {
    std::string line;
    line.reserve(UsualLineBytes);
    const IpAddress& forwarded = record.getForwardedClient();
    line += orDash(forwarded.isEmpty() ? record.getClientText() : forwarded.toString());
    line += " - - [" + combinedTime(UtcTime(record.getStartTime())) + "] \"";
    appendCombinedText(line, orDash(record.getMethod()));
    if (!record.getMethod().empty() || !record.getTarget().empty()) {
        line += ' ';
        appendCombinedText(line, orDash(record.getTarget()));
        line += ' ';
        appendCombinedText(line, orDash(record.getVersion()));
    }
    line += "\" " + (record.getStatus() == 0 ? "-" : std::to_string(record.getStatus()));
    line += ' ' + std::to_string(record.getSentBodyBytes());
    for (const std::string* field : {&record.getReferer(), &record.getUserAgent()}) {
        line += " \"";
        appendCombinedText(line, orDash(*field));
        line += '"';
    }
    return line;
}

void appendJsonUnit(std::string& line, std::uint32_t utf16) {
    line += "\\u";
    appendHex(line, utf16, 4);
}

void appendJsonCodePoint(std::string& line, std::uint32_t codePoint) {
    if (codePoint < 0x10000) {
        appendJsonUnit(line, codePoint);
    } else {
        appendJsonUnit(line, 0xD800 + ((codePoint - 0x10000) >> 10));
        appendJsonUnit(line, 0xDC00 + ((codePoint - 0x10000) & 0x3FFU));
    }
}

/// @param text well-formed UTF-8.
void appendJsonUtf8(std::string& line, std::string_view text) {
    for (std::size_t at = 0; at < text.size();) {
        const char c = text[at++];
        const auto lead = static_cast<unsigned char>(c);
        if (isPlain(c)) {
            line += c;
            continue;
        }
        std::uint32_t codePoint = lead;
        if (lead >= 0x80) {
            const unsigned continuations = lead < 0xE0 ? 1 : lead < 0xF0 ? 2 : 3;
            codePoint &= 0x3FU >> continuations;
            for (unsigned i = 0; i < continuations; ++i) {
                codePoint = (codePoint << 6) | (static_cast<unsigned char>(text[at++]) & 0x3FU);
            }
        }
        appendJsonCodePoint(line, codePoint);
    }
}

/// Writes the members of one object, one after the other.
class JsonObject {
public:
    template <typename Number>
    void addNumber(const char* name, bool isKnown, Number number) {
        addName(name);
        text_ += isKnown ? std::to_string(number) : "null";
    }

    void addText(const char* name, std::string_view text) {
        addName(name);
        if (text.empty()) {
            text_ += "null";
            return;
        }
        text_ += '"';
        for (std::size_t invalid = impl::findInvalidUtf8(text); invalid != std::string_view::npos;
             invalid = impl::findInvalidUtf8(text)) {
            appendJsonUtf8(text_, text.substr(0, invalid));
            appendJsonCodePoint(text_, 0xFFFD);
            text.remove_prefix(invalid + 1);
        }
        appendJsonUtf8(text_, text);
        text_ += '"';
    }

    std::string take() { return std::move(text_) + '}'; }

private:
    /// @param name plain ASCII.
    void addName(const char* name) {
        text_ += text_.empty() ? "{\"" : ",\"";
        text_.append(name).append("\":");
    }

    std::string text_;
};

std::string jsonLine(const ExchangeRecord& record) {
    const auto isKnown = [](auto number) { return number > 0; };
    JsonObject object;
    object.addText("time", jsonTime(UtcTime(record.getStartTime())));
    object.addText("client", record.getClientText());
    if (!record.getForwardedClient().isEmpty()) {
        object.addText("forwardedClient", record.getForwardedClient().toString());
    }
    object.addNumber("clientPort", isKnown(record.getClientPort()), record.getClientPort());
    object.addText("local", record.getLocalAddress().toString());
    object.addNumber("localPort", isKnown(record.getLocalPort()), record.getLocalPort());
    object.addText("connection", record.getConnectionId());
    object.addNumber("ordinal", isKnown(record.getOrdinal()), record.getOrdinal());
    if (!record.getRequestId().empty()) {
        object.addText("requestId", record.getRequestId());
    }
    object.addText("method", record.getMethod());
    object.addText("target", record.getTarget());
    object.addText("version", record.getVersion());
    object.addText("referer", record.getReferer());
    object.addText("userAgent", record.getUserAgent());
    object.addNumber("status", isKnown(record.getStatus()), record.getStatus());
    object.addText("ending", ExchangeRecord::toText(record.getEnding()));
    object.addText("reason", record.getReason());
    object.addNumber("receivedHeadBytes", true, record.getReceivedHeadBytes());
    object.addNumber("receivedBodyBytes", true, record.getReceivedBodyBytes());
    object.addNumber("sentHeadBytes", true, record.getSentHeadBytes());
    object.addNumber("sentBodyBytes", true, record.getSentBodyBytes());
    for (std::size_t i = 0; i < ExchangeRecord::PhaseCount; ++i) {
        const auto phase = static_cast<ExchangeRecord::Phase>(i);
        const std::int64_t durationMs = record.getDurationMs(phase);
        object.addNumber((std::string(ExchangeRecord::toText(phase)) + "Ms").c_str(), durationMs >= 0, durationMs);
    }
    return object.take();
}

} // namespace

AccessLog::AccessLog(Format format, Sink sink)
    : format_(format), target_(std::make_unique<impl::AccessLogSink>(std::move(sink))) {}

AccessLog::AccessLog(Format format, const std::filesystem::path& file)
    : format_(format), target_(std::make_unique<impl::AccessLogFile>(file)) {}

AccessLog::~AccessLog() = default;

void AccessLog::reopen() {
    target_->reopen();
}

std::uint64_t AccessLog::getLostLineCount() const {
    return target_->getLostLineCount();
}

void AccessLog::onExchange(const ExchangeRecord& record) {
    target_->write(formatLine(format_, record));
}

std::string AccessLog::formatLine(Format format, const ExchangeRecord& record) {
    return format == Format::Json ? jsonLine(record) : combinedLine(record);
}

} // namespace ql::http
