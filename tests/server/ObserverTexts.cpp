// Writes what the observers make of exchanges, for observer_texts.py to read: a line "METHOD STATUS ENDING HEAD-MS
// BODY-MS WAIT-MS SEND-MS BYTES TEXT" for each on standard input, with method and text in hexadecimal ("-" for none)
// and the ending as a number. usage: observer_texts combined|json|metrics

#include "server/ExchangeRecordData.h"
#include "vireo/AccessLog.h"
#include "vireo/ExchangeMetrics.h"
#include "vireo/ExchangeRecord.h"

#include <iostream>
#include <memory>
#include <sstream>
#include <string>

namespace {

using ql::http::AccessLog;
using ql::http::ExchangeMetrics;
using ql::http::ExchangeRecord;
using ql::impl::ExchangeRecordData;

std::string fromHex(const std::string& digits) {
    std::string bytes;
    for (std::size_t i = 0; i + 1 < digits.size(); i += 2) {
        bytes += static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16));
    }
    return bytes;
}

ExchangeRecord parseExchange(const std::string& line) {
    std::istringstream fields(line);
    auto data = std::make_shared<ExchangeRecordData>();
    std::string method;
    int ending = 0;
    std::string text;
    fields >> method >> data->status >> ending;
    for (std::int64_t& durationMs : data->durationsMs) {
        fields >> durationMs;
    }
    fields >> data->sentBodyBytes >> text;
    data->method = fromHex(method);
    data->ending = static_cast<ExchangeRecord::Ending>(ending);
    data->target = fromHex(text);
    data->referer = data->target;
    data->userAgent = data->target;
    return ExchangeRecord(data);
}

} // namespace

int main(int argc, char** argv) {
    const std::string what = argc == 2 ? argv[1] : "";
    ExchangeMetrics metrics;
    metrics.addGauge("vireo_connections", "Connections that are open, \"now\".\nAll of them. \\", [] { return 5; });
    AccessLog log(what == "json" ? AccessLog::Format::Json : AccessLog::Format::Combined,
                  [](std::string_view line) { std::cout << line << '\n'; });
    for (std::string line; std::getline(std::cin, line);) {
        const ExchangeRecord record = parseExchange(line);
        metrics.onExchange(record);
        if (what != "metrics") {
            log.onExchange(record);
        }
    }
    if (what == "metrics") {
        std::cout << metrics.toOpenMetrics();
    }
    return 0;
}
