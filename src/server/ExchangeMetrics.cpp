#include "vireo/ExchangeMetrics.h"

#include "frame/InvalidArgument.h"
#include "server/Histogram.h"
#include "vireo/ExchangeRecord.h"
#include "vireo/support/qlMutex.h"
#include "vireo/support/qlStringUtils.h"
#include "vireo/support/qlSystemUtils.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstddef>
#include <iterator>
#include <string_view>
#include <utility>
#include <vector>

namespace ql::impl {

namespace {

using http::ExchangeRecord;
using Durations = Histogram<DurationBounds>;
using Sizes = Histogram<SizeBounds>;

/// The last stands for all others.
constexpr std::array<std::string_view, 11> Methods{"GET",     "HEAD",  "POST",  "PUT",   "DELETE", "CONNECT",
                                                   "OPTIONS", "TRACE", "PATCH", "QUERY", "other"};

/// One more than the highest status code.
constexpr std::size_t StatusCount = 1000;

/// No gauge's name begins with it.
constexpr std::string_view OwnNames = "vireo_exchange";

using Counter = std::atomic<std::uint64_t>;

std::size_t methodIndex(std::string_view method) {
    return static_cast<std::size_t>(std::find(Methods.begin(), std::prev(Methods.end()), method) - Methods.begin());
}

/// 0 for none, and for what is no status code.
std::size_t statusIndex(int status) {
    // A negative number becomes a large one.
    const auto index = static_cast<std::size_t>(status);
    return index < StatusCount ? index : 0;
}

void count(Counter& counter) {
    counter.fetch_add(1, std::memory_order_relaxed);
}

std::uint64_t read(const Counter& counter) {
    return counter.load(std::memory_order_relaxed);
}

template <std::size_t Count>
void addAll(const std::array<Counter, Count>& from, std::array<Counter, Count>& to) {
    for (std::size_t i = 0; i < Count; ++i) {
        to[i].fetch_add(read(from[i]), std::memory_order_relaxed);
    }
}

/// What some of the threads have counted. Of its own cache lines, so that threads don't wait for each other's.
struct alignas(64) MetricsShard {
    /// Adds all of this shard to another.
    void addTo(MetricsShard& other) const {
        addAll(byMethod, other.byMethod);
        addAll(byStatus, other.byStatus);
        addAll(byEnding, other.byEnding);
        durations.addTo(other.durations);
        for (std::size_t i = 0; i < byPhase.size(); ++i) {
            byPhase[i].addTo(other.byPhase[i]);
        }
        received.addTo(other.received);
        sent.addTo(other.sent);
    }

    std::array<Counter, Methods.size()> byMethod{};
    std::array<Counter, StatusCount> byStatus{};
    std::array<Counter, ExchangeRecord::EndingCount> byEnding{};
    Durations durations;
    std::array<Durations, ExchangeRecord::PhaseCount> byPhase;
    Sizes received;
    Sizes sent;
};

/// Counts the threads that ask, so that those of a pool get numbers in a row.
std::size_t threadNumber() {
    static std::atomic<std::size_t> next{0};
    thread_local const std::size_t number = next.fetch_add(1, std::memory_order_relaxed);
    return number;
}

struct Gauge {
    std::string name;
    std::string help;
    std::function<std::int64_t()> read;
};

bool isMetricName(std::string_view name) {
    const auto isPart = [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == ':';
    };
    return !name.empty() && !(name[0] >= '0' && name[0] <= '9') && std::all_of(name.begin(), name.end(), isPart);
}

/// OpenMetrics text in the making.
class MetricsText {
public:
    /// @param unit null for none.
    void beginFamily(std::string_view name, const char* type, const char* unit, std::string_view help) {
        name_ = name;
        text_.append("# TYPE ").append(name).append(1, ' ').append(type).append(1, '\n');
        if (unit != nullptr) {
            text_.append("# UNIT ").append(name).append(1, ' ').append(unit).append(1, '\n');
        }
        text_.append("# HELP ").append(name).append(1, ' ');
        for (const char c : help) {
            if (c == '\n') {
                text_ += "\\n";
            } else if (c == '"' || c == '\\') {
                text_.append(1, '\\').append(1, c);
            } else {
                text_ += c;
            }
        }
        text_ += '\n';
    }

    /// Adds a sample to the family.
    /// @param labels `name="value"`, several with commas between them; may be empty.
    void addSample(std::string_view suffix, const std::string& labels, const std::string& value) {
        text_.append(name_).append(suffix);
        if (!labels.empty()) {
            text_.append(1, '{').append(labels).append(1, '}');
        }
        text_.append(1, ' ').append(value).append(1, '\n');
    }

    std::string finish() { return std::move(text_) + "# EOF\n"; }

private:
    std::string text_;
    std::string_view name_;
};

std::string label(const char* name, std::string_view value) {
    return std::string(name).append("=\"").append(value).append(1, '"');
}

/// Milliseconds in seconds.
std::string secondsText(std::uint64_t milliseconds) {
    return std::to_string(milliseconds / 1000) + '.' + qlStringUtils::fromUInt64(milliseconds % 1000, 3);
}

std::string bytesText(std::uint64_t bytes) {
    return std::to_string(bytes);
}

/// @param labels as for MetricsText::addSample().
template <const auto& Bounds>
void addHistogram(MetricsText& text, const std::string& labels, const Histogram<Bounds>& histogram,
                  std::string (*sumText)(std::uint64_t)) {
    const std::string bucketLabels = labels.empty() ? labels : labels + ',';
    std::uint64_t cumulative = 0;
    for (std::size_t i = 0; i < histogram.BucketCount; ++i) {
        cumulative += histogram.getBucket(i);
        text.addSample("_bucket", bucketLabels + label("le", i < Bounds.size() ? Bounds[i].label : "+Inf"),
                       std::to_string(cumulative));
    }
    text.addSample("_count", labels, std::to_string(cumulative));
    text.addSample("_sum", labels, sumText(histogram.getSum()));
}

void addCounters(MetricsText& text, const MetricsShard& totals) {
    text.beginFamily("vireo_exchanges", "counter", nullptr, "Exchanges that ended, by method.");
    for (std::size_t i = 0; i < Methods.size(); ++i) {
        text.addSample("_total", label("method", Methods[i]), std::to_string(read(totals.byMethod[i])));
    }
    text.beginFamily("vireo_exchange_responses", "counter", nullptr, "Exchanges that ended, by status of the answer.");
    for (std::size_t i = 0; i < StatusCount; ++i) {
        // Most codes never come.
        if (const std::uint64_t total = read(totals.byStatus[i]); total > 0) {
            const std::string code = i == 0 ? "unknown" : std::to_string(i);
            const std::string codeClass = i == 0 ? code : std::to_string(i / 100) + "xx";
            text.addSample("_total", label("class", codeClass) + ',' + label("code", code), std::to_string(total));
        }
    }
    text.beginFamily("vireo_exchange_endings", "counter", nullptr, "Exchanges that ended, by how they did.");
    for (std::size_t i = 0; i < ExchangeRecord::EndingCount; ++i) {
        text.addSample("_total", label("ending", ExchangeRecord::toText(static_cast<ExchangeRecord::Ending>(i))),
                       std::to_string(read(totals.byEnding[i])));
    }
}

void addHistograms(MetricsText& text, const MetricsShard& totals) {
    text.beginFamily("vireo_exchange_duration_seconds", "histogram", "seconds", "How long exchanges took in all.");
    addHistogram(text, {}, totals.durations, secondsText);
    text.beginFamily("vireo_exchange_phase_seconds", "histogram", "seconds",
                     "How long each phase took of the exchanges that reached it.");
    for (std::size_t i = 0; i < ExchangeRecord::PhaseCount; ++i) {
        addHistogram(text, label("phase", ExchangeRecord::toText(static_cast<ExchangeRecord::Phase>(i))),
                     totals.byPhase[i], secondsText);
    }
    text.beginFamily("vireo_exchange_received_bytes", "histogram", "bytes", "Bytes of requests, the heads estimated.");
    addHistogram(text, {}, totals.received, bytesText);
    text.beginFamily("vireo_exchange_sent_bytes", "histogram", "bytes", "Bytes of answers, the heads estimated.");
    addHistogram(text, {}, totals.sent, bytesText);
}

} // namespace

/// What stands behind http::ExchangeMetrics, which says what its functions do. Any thread.
class ExchangeMetricsState {
public:
    void addGauge(Gauge gauge) {
        if (!isMetricName(gauge.name) || gauge.name.rfind(OwnNames, 0) == 0) {
            throwInvalidArgument("not a name for a gauge: " + gauge.name);
        }
        if (!qlStringUtils::IsUtf8(gauge.help) || !gauge.read) {
            throwInvalidArgument("gauge without a number or a readable help: " + gauge.name);
        }
        const qlMutexLocker locker(mutex_);
        if (std::any_of(gauges_.begin(), gauges_.end(), [&](const Gauge& other) { return other.name == gauge.name; })) {
            throwInvalidArgument("gauge is there already: " + gauge.name);
        }
        gauges_.push_back(std::move(gauge));
    }

    void add(const ExchangeRecord& record) {
        MetricsShard& shard = shards_[threadNumber() % shards_.size()];
        count(shard.byMethod[methodIndex(record.getMethod())]);
        count(shard.byStatus[statusIndex(record.getStatus())]);
        count(shard.byEnding[static_cast<std::size_t>(record.getEnding())]);
        shard.durations.observe(static_cast<std::uint64_t>(record.getTotalDurationMs()));
        for (std::size_t i = 0; i < shard.byPhase.size(); ++i) {
            const std::int64_t durationMs = record.getDurationMs(static_cast<ExchangeRecord::Phase>(i));
            if (durationMs >= 0) {
                shard.byPhase[i].observe(static_cast<std::uint64_t>(durationMs));
            }
        }
        shard.received.observe(record.getReceivedHeadBytes() + record.getReceivedBodyBytes());
        shard.sent.observe(record.getSentHeadBytes() + record.getSentBodyBytes());
    }

    std::string toOpenMetrics() const {
        MetricsShard totals;
        for (const MetricsShard& shard : shards_) {
            shard.addTo(totals);
        }
        MetricsText text;
        addCounters(text, totals);
        addHistograms(text, totals);
        for (const Gauge& gauge : copyGauges()) {
            text.beginFamily(gauge.name, "gauge", nullptr, gauge.help);
            text.addSample("", {}, std::to_string(gauge.read()));
        }
        return text.finish();
    }

private:
    /// Theirs is the application's code, which is not called under a lock.
    std::vector<Gauge> copyGauges() const {
        const qlMutexLocker locker(mutex_);
        return gauges_;
    }

    /// As many as threads can run at once.
    std::vector<MetricsShard> shards_ =
        std::vector<MetricsShard>(static_cast<std::size_t>(qlSystemUtils::GetIdealThreadCount()));
    mutable qlMutex mutex_;
    std::vector<Gauge> gauges_ QL_GUARDED_BY(mutex_);
};

} // namespace ql::impl

namespace ql::http {

ExchangeMetrics::ExchangeMetrics() : state_(std::make_unique<impl::ExchangeMetricsState>()) {}
ExchangeMetrics::~ExchangeMetrics() = default;

void ExchangeMetrics::addGauge(const std::string& name, const std::string& help, std::function<std::int64_t()> read) {
    state_->addGauge({name, help, std::move(read)});
}

std::string ExchangeMetrics::toOpenMetrics() const {
    return state_->toOpenMetrics();
}

void ExchangeMetrics::onExchange(const ExchangeRecord& record) {
    state_->add(record);
}

} // namespace ql::http
