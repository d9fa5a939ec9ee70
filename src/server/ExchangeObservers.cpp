#include "server/ExchangeObservers.h"

#include "frame/ExceptionLog.h"
#include "vireo/ExchangeObserver.h"
#include "vireo/ExchangeRecord.h"

#include <utility>

namespace ql::http {

ExchangeObserver::ExchangeObserver() = default;
ExchangeObserver::~ExchangeObserver() = default;

} // namespace ql::http

namespace ql::impl {

void tellObservers(const ExchangeObservers& observers, std::shared_ptr<const ExchangeRecordData> data) noexcept {
    const http::ExchangeRecord record(std::move(data));
    for (const std::shared_ptr<http::ExchangeObserver>& observer : observers) {
        try {
            observer->onExchange(record);
        } catch (...) {
            logCurrentException("onExchange", "httpserver");
        }
    }
}

} // namespace ql::impl
