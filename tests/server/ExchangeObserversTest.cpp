#include "server/ExchangeObservers.h"

#include "server/ExchangeRecordData.h"
#include "support/TestLog.h"
#include "vireo/ExchangeObserver.h"
#include "vireo/ExchangeRecord.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using ql::http::ExchangeObserver;
using ql::http::ExchangeRecord;
using ql::impl::ExchangeRecordData;
using ql::impl::tellObservers;
using testing::ElementsAre;
using testing::IsEmpty;
using vireotest::TestLog;

/// Writes its name to a journal; keeps the last record.
class Listener : public ExchangeObserver {
public:
    Listener(std::vector<std::string>& journal, const char* name) : journal_(journal), name_(name) {}

    void onExchange(const ExchangeRecord& record) override {
        journal_.push_back(name_ + record.getTarget());
        kept = record;
    }

    std::optional<ExchangeRecord> kept;

private:
    std::vector<std::string>& journal_;
    const std::string name_;
};

class Thrower : public ExchangeObserver {
public:
    void onExchange(const ExchangeRecord&) override { throw std::runtime_error("no room"); }
};

std::shared_ptr<ExchangeRecordData> exchangeOf(const char* target) {
    auto data = std::make_shared<ExchangeRecordData>();
    data->target = target;
    return data;
}

TEST(ExchangeObservers, AllAreToldInTheirOrder) {
    const TestLog log;
    std::vector<std::string> journal;
    tellObservers({std::make_shared<Listener>(journal, "a"), std::make_shared<Listener>(journal, "b")},
                  exchangeOf("/1"));
    EXPECT_THAT(journal, ElementsAre("a/1", "b/1"));
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST(ExchangeObservers, OneThatThrowsIsLoggedAndTheOthersAreToldAllTheSame) {
    const TestLog log;
    std::vector<std::string> journal;
    tellObservers({std::make_shared<Thrower>(), std::make_shared<Listener>(journal, "b")}, exchangeOf("/1"));
    EXPECT_THAT(journal, ElementsAre("b/1"));
    EXPECT_THAT(log.lines(), ElementsAre(TestLog::Line{qlLogType::Failure, "httpserver",
                                                       "onExchange threw an exception : no room"}));
}

TEST(ExchangeObservers, RecordMayBeKept) {
    std::vector<std::string> journal;
    const auto listener = std::make_shared<Listener>(journal, "a");
    tellObservers({listener}, exchangeOf("/kept"));
    EXPECT_EQ(listener->kept->getTarget(), "/kept");
}

} // namespace
