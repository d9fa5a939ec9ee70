#include "vireo/AccessLog.h"
#include "vireo/ExchangeMetrics.h"
#include "vireo/ExchangeRecord.h"
#include "vireo/ServerOptions.h"
#include <atomic>
using namespace ql::http;

struct CutExchanges : ExchangeObserver { // an observer of one's own: counts what did not end well
    void onExchange(const ExchangeRecord& record) override {
        const ExchangeRecord::Ending ending = record.getEnding();
        if (ending != ExchangeRecord::Ending::Completed && ending != ExchangeRecord::Ending::Upgraded) {
            ++count;
        }
    }
    std::atomic<int> count{0}; // daemon threads call at the same time
};

ServerOptions observed(std::shared_ptr<ExchangeMetrics> metrics, std::shared_ptr<AccessLog> log,
                       std::shared_ptr<CutExchanges> cut) {
    ServerOptions options;
    options.setWaiting(ServerOptions::Waiting::Event);
    options.addExchangeObserver(metrics); // metrics->toOpenMetrics() is the answer to a scraper
    options.addExchangeObserver(log);     // std::make_shared<AccessLog>(AccessLog::Format::Json, "access.log")
    options.addExchangeObserver(cut);
    return options;
}
