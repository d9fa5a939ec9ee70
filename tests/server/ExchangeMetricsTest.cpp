#include "vireo/ExchangeMetrics.h"

#include "server/ExchangeRecordData.h"
#include "vireo/ExchangeRecord.h"
#include "vireo/HttpBaseRequest.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using ql::HttpBaseRequest;
using ql::http::ExchangeMetrics;
using ql::http::ExchangeRecord;
using ql::impl::ExchangeRecordData;
using testing::EndsWith;
using testing::HasSubstr;
using Ending = ExchangeRecord::Ending;

/// The samples of a text, by name and labels.
std::map<std::string, std::string> samplesOf(const std::string& text) {
    std::map<std::string, std::string> samples;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        if (line[0] != '#') {
            const std::size_t space = line.rfind(' ');
            EXPECT_TRUE(samples.emplace(line.substr(0, space), line.substr(space + 1)).second) << line;
        }
    }
    return samples;
}

class ExchangeMetricsTest : public testing::Test {
protected:
    void count(const std::function<void(ExchangeRecordData&)>& change) {
        auto data = std::make_shared<ExchangeRecordData>();
        change(*data);
        metrics_.onExchange(ExchangeRecord(data));
    }

    /// The value of a sample; empty when there is none.
    std::string sample(const std::string& name) const {
        const std::map<std::string, std::string> samples = samplesOf(metrics_.toOpenMetrics());
        const auto found = samples.find(name);
        return found == samples.end() ? std::string() : found->second;
    }

    ExchangeMetrics metrics_;
};

TEST_F(ExchangeMetricsTest, MethodsEndingsAndHistogramsAreThereFromTheStart) {
    const std::map<std::string, std::string> samples = samplesOf(metrics_.toOpenMetrics());
    for (const auto& [name, value] : samples) {
        EXPECT_TRUE(value == "0" || value == "0.000") << name << " " << value;
    }
    EXPECT_EQ(samples.count("vireo_exchanges_total{method=\"GET\"}"), 1U);
    EXPECT_EQ(samples.count("vireo_exchange_endings_total{ending=\"write_timeout\"}"), 1U);
    // Methods, endings, five histograms of durations, two of sizes.
    EXPECT_EQ(samples.size(), 11U + ExchangeRecord::EndingCount + 5 * (15 + 3) + 2 * (8 + 3));
}

TEST_F(ExchangeMetricsTest, MethodIsCountedUnderItsNameOrAsAnother) {
    count([](ExchangeRecordData& data) { data.method = "GET"; });
    count([](ExchangeRecordData& data) { data.method = "GET"; });
    count([](ExchangeRecordData& data) { data.method = "QUERY"; });
    count([](ExchangeRecordData& data) { data.method = "get"; });
    count([](ExchangeRecordData& data) { data.method = "x\"} 1\n"; });
    count([](ExchangeRecordData&) {});
    EXPECT_EQ(sample("vireo_exchanges_total{method=\"GET\"}"), "2");
    EXPECT_EQ(sample("vireo_exchanges_total{method=\"QUERY\"}"), "1");
    EXPECT_EQ(sample("vireo_exchanges_total{method=\"POST\"}"), "0");
    EXPECT_EQ(sample("vireo_exchanges_total{method=\"other\"}"), "3");
}

TEST_F(ExchangeMetricsTest, EveryMethodOfTheRegistryHasItsCounter) {
    HttpBaseRequest::InitRequestTypes();
    ASSERT_FALSE(HttpBaseRequest::sRequestTypes.empty());
    for (const auto& known : HttpBaseRequest::sRequestTypes) {
        count([&](ExchangeRecordData& data) { data.method = known.first; });
        EXPECT_EQ(sample("vireo_exchanges_total{method=\"" + known.first + "\"}"), "1");
    }
    EXPECT_EQ(sample("vireo_exchanges_total{method=\"other\"}"), "0");
    HttpBaseRequest::ClearRequestTypes();
}

TEST_F(ExchangeMetricsTest, StatusIsCountedByCodeAndClass) {
    for (const int status : {200, 200, 404, 999, 0, -1, 1000}) {
        count([&](ExchangeRecordData& data) { data.status = status; });
    }
    EXPECT_EQ(sample("vireo_exchange_responses_total{class=\"2xx\",code=\"200\"}"), "2");
    EXPECT_EQ(sample("vireo_exchange_responses_total{class=\"4xx\",code=\"404\"}"), "1");
    EXPECT_EQ(sample("vireo_exchange_responses_total{class=\"9xx\",code=\"999\"}"), "1");
    EXPECT_EQ(sample("vireo_exchange_responses_total{class=\"unknown\",code=\"unknown\"}"), "3");
    EXPECT_EQ(sample("vireo_exchange_responses_total{class=\"5xx\",code=\"500\"}"), "");
}

TEST_F(ExchangeMetricsTest, EndingIsCountedByItsWord) {
    count([](ExchangeRecordData& data) { data.ending = Ending::Failed; });
    count([](ExchangeRecordData& data) { data.ending = Ending::Upgraded; });
    EXPECT_EQ(sample("vireo_exchange_endings_total{ending=\"failed\"}"), "1");
    EXPECT_EQ(sample("vireo_exchange_endings_total{ending=\"upgraded\"}"), "1");
    EXPECT_EQ(sample("vireo_exchange_endings_total{ending=\"completed\"}"), "0");
}

TEST_F(ExchangeMetricsTest, DurationIsCountedInEveryBucketThatItFitsInto) {
    for (const std::int64_t waitMs : {0, 1, 2, 300000, 300001}) {
        count([&](ExchangeRecordData& data) { data.durationsMs = {0, -1, waitMs, -1}; });
    }
    for (const std::string family : {"vireo_exchange_phase_seconds", "vireo_exchange_duration_seconds"}) {
        const std::string labels = family == "vireo_exchange_phase_seconds" ? "phase=\"wait\"," : "";
        const auto bucket = [&](const std::string& bound) {
            return sample(family + "_bucket{" + labels + "le=\"" + bound + "\"}");
        };
        EXPECT_EQ(bucket("0.001"), "2");
        EXPECT_EQ(bucket("0.002"), "3");
        EXPECT_EQ(bucket("60.0"), "3");
        EXPECT_EQ(bucket("300.0"), "4");
        EXPECT_EQ(bucket("+Inf"), "5");
    }
    EXPECT_EQ(sample("vireo_exchange_duration_seconds_count"), "5");
    EXPECT_EQ(sample("vireo_exchange_duration_seconds_sum"), "600.004");
    EXPECT_EQ(sample("vireo_exchange_phase_seconds_count{phase=\"wait\"}"), "5");
    EXPECT_EQ(sample("vireo_exchange_phase_seconds_sum{phase=\"wait\"}"), "600.004");
}

TEST_F(ExchangeMetricsTest, PhaseThatWasNeverReachedIsNotCounted) {
    count([](ExchangeRecordData& data) { data.durationsMs = {4, 0, -1, -1}; });
    EXPECT_EQ(sample("vireo_exchange_phase_seconds_count{phase=\"head\"}"), "1");
    EXPECT_EQ(sample("vireo_exchange_phase_seconds_count{phase=\"body\"}"), "1");
    EXPECT_EQ(sample("vireo_exchange_phase_seconds_count{phase=\"wait\"}"), "0");
    EXPECT_EQ(sample("vireo_exchange_phase_seconds_count{phase=\"send\"}"), "0");
    EXPECT_EQ(sample("vireo_exchange_duration_seconds_sum"), "0.004");
}

TEST_F(ExchangeMetricsTest, SizesAreHeadAndBodyTogether) {
    count([](ExchangeRecordData& data) {
        data.receivedHeadBytes = 60;
        data.receivedBodyBytes = 40;
        data.sentHeadBytes = 100;
        data.sentBodyBytes = 1'000'000'000;
    });
    EXPECT_EQ(sample("vireo_exchange_received_bytes_bucket{le=\"100.0\"}"), "1");
    EXPECT_EQ(sample("vireo_exchange_received_bytes_sum"), "100");
    EXPECT_EQ(sample("vireo_exchange_sent_bytes_bucket{le=\"1e+09\"}"), "0");
    EXPECT_EQ(sample("vireo_exchange_sent_bytes_bucket{le=\"+Inf\"}"), "1");
    EXPECT_EQ(sample("vireo_exchange_sent_bytes_count"), "1");
    EXPECT_EQ(sample("vireo_exchange_sent_bytes_sum"), "1000000100");
}

TEST_F(ExchangeMetricsTest, GaugeIsReadEachTimeAndItsHelpIsEscaped) {
    std::int64_t connections = -3;
    metrics_.addGauge("vireo_connections", "what is \"open\"\nnow \\ here", [&] { return connections; });
    EXPECT_THAT(metrics_.toOpenMetrics(), EndsWith("# TYPE vireo_connections gauge\n"
                                                   "# HELP vireo_connections what is \\\"open\\\"\\nnow \\\\ here\n"
                                                   "vireo_connections -3\n"
                                                   "# EOF\n"));
    connections = 7;
    EXPECT_EQ(sample("vireo_connections"), "7");
}

TEST_F(ExchangeMetricsTest, GaugeThatWouldSpoilTheTextIsRefused) {
    const auto zero = [] { return std::int64_t{0}; };
    metrics_.addGauge("taken:_1", "help", zero);
    for (const char* const name : {"", "1st", "with space", "line\n", "quo\"te", "da-sh", "\xC3\xA4", "taken:_1",
                                   "vireo_exchanges", "vireo_exchange_duration_seconds_sum"}) {
        EXPECT_THROW(metrics_.addGauge(name, "help", zero), std::invalid_argument) << name;
    }
    EXPECT_THROW(metrics_.addGauge("latin1", "\xE4", zero), std::invalid_argument);
    EXPECT_THROW(metrics_.addGauge("nothing", "help", nullptr), std::invalid_argument);
    const std::string text = metrics_.toOpenMetrics();
    EXPECT_THAT(text, HasSubstr("\ntaken:_1 0\n# EOF\n"));
}

TEST_F(ExchangeMetricsTest, GaugeMayUseTheMetricsAndItsExceptionLeaves) {
    bool nested = false;
    metrics_.addGauge("nesting", "help", [&] {
        if (!nested) {
            nested = true;
            metrics_.addGauge("late", "help", [] { return std::int64_t{0}; });
            return static_cast<std::int64_t>(metrics_.toOpenMetrics().size());
        }
        throw std::runtime_error("unreadable");
    });
    EXPECT_THROW(metrics_.toOpenMetrics(), std::runtime_error);
}

TEST_F(ExchangeMetricsTest, NothingIsLostWhileThreadsCountAndOneReads) {
    constexpr int ThreadCount = 5;
    constexpr int ExchangeCount = 2000;
    std::atomic<bool> counted{false};
    std::thread reader([&] {
        std::uint64_t last = 0;
        while (!counted) {
            const std::uint64_t now = std::stoull(sample("vireo_exchange_duration_seconds_count"));
            EXPECT_GE(now, last);
            last = now;
        }
    });
    std::vector<std::thread> threads;
    for (int i = 0; i < ThreadCount; ++i) {
        threads.emplace_back([&] {
            for (int j = 0; j < ExchangeCount; ++j) {
                count([](ExchangeRecordData& data) {
                    data.method = "PUT";
                    data.status = 204;
                    data.durationsMs = {1, 1, 1, 1};
                    data.receivedBodyBytes = 3;
                });
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    counted = true;
    reader.join();
    EXPECT_EQ(sample("vireo_exchanges_total{method=\"PUT\"}"), "10000");
    EXPECT_EQ(sample("vireo_exchange_responses_total{class=\"2xx\",code=\"204\"}"), "10000");
    EXPECT_EQ(sample("vireo_exchange_endings_total{ending=\"completed\"}"), "10000");
    EXPECT_EQ(sample("vireo_exchange_duration_seconds_bucket{le=\"0.005\"}"), "10000");
    EXPECT_EQ(sample("vireo_exchange_duration_seconds_sum"), "40.000");
    EXPECT_EQ(sample("vireo_exchange_phase_seconds_sum{phase=\"send\"}"), "10.000");
    EXPECT_EQ(sample("vireo_exchange_received_bytes_sum"), "30000");
}

} // namespace
