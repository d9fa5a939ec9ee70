// SPDX-License-Identifier: MIT
#pragma once

#include "vireo/ExchangeObserver.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace ql::impl {
class ExchangeMetricsState;
}

namespace ql::http {

/// Counts exchanges, and gives the numbers out as text for a metrics scraper. Any number of servers may share one.
///
/// - `vireo_exchanges_total{method}`: exchanges that ended; the method is one that the library knows, or `other`
/// - `vireo_exchange_responses_total{class,code}`: the same by status, `5xx` and `503` for instance; `unknown` when the
///   record doesn't tell a status
/// - `vireo_exchange_endings_total{ending}`: the same by ExchangeRecord::Ending
/// - `vireo_exchange_duration_seconds`: histogram of how long they took in all
/// - `vireo_exchange_phase_seconds{phase}`: histograms of how long each phase took of those that reached it
/// - `vireo_exchange_received_bytes`, `vireo_exchange_sent_bytes`: histograms of their sizes, head and body; the heads
///   are estimates
///
/// No label comes from a client, so that none can make them many.
///
/// Any thread may call everything. An exchange costs some twenty atomic additions and no lock; daemon threads write
/// to different cache lines.
class VIREO_API ExchangeMetrics : public ExchangeObserver {
public:
    /// What the answer that carries toOpenMetrics() says of its content.
    static constexpr const char* OpenMetricsContentType = "application/openmetrics-text; version=1.0.0; charset=utf-8";

    ExchangeMetrics();
    ~ExchangeMetrics() override;

    /// Adds a number that goes up and down, such as what is under way just now.
    ///
    /// Throws std::invalid_argument for a name that is not one, that another gauge has, or that begins with
    /// `vireo_exchange`, and for a help that is not UTF-8.
    /// @param name letters, digits, `_` and `:`, no digit first.
    /// @param help what it counts, for people.
    /// @param read gives the present number. Called by each toOpenMetrics(), on its thread and with no lock held, so
    /// perhaps twice at once.
    void addGauge(const std::string& name, const std::string& help, std::function<std::int64_t()> read);

    /// All numbers as OpenMetrics 1.0 text. Exchanges that end meanwhile may be in some of them and not yet in others.
    /// What a gauge throws leaves it.
    std::string toOpenMetrics() const;

    void onExchange(const ExchangeRecord& record) override;

private:
    const std::unique_ptr<impl::ExchangeMetricsState> state_;
};

} // namespace ql::http
