#include "vireo/app/Request.h"

#include "app/kernel/Endpoint.h"
#include "app/kernel/Throw.h"
#include "app/request/RequestData.h"
#include "app/routing/RouteTable.h"
#include "vireo/app/HttpError.h"
#include "vireo/support/qlSystemUtils.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

namespace {

using vireo::HttpError;
using vireo::Request;
using vireo::RequestKey;
using vireo::impl::Endpoint;
using vireo::impl::HeadView;
using vireo::impl::Match;
using vireo::impl::RequestData;
using vireo::impl::RouteTable;

class HeadAlone : public vireo::impl::RequestSource {
public:
    vireo::impl::RequestBody& body() override { vireo::impl::throwLogicError("no body"); }
    bool isGone() const override { return false; }
    const ql::HttpBaseRequest& core() const override { vireo::impl::throwLogicError("no core"); }
};

/// A request of a route.
class Asked {
public:
    Asked(std::string_view pattern, std::string_view target, std::vector<ql::HeaderLine> headerLines = {})
        : lines_(std::move(headerLines)), data_(source_, 0, "GET", target, lines_, ql::IpAddress(), nullptr, nullptr) {
        RouteTable table;
        auto endpoint = std::make_shared<Endpoint>();
        endpoint->method = "GET";
        endpoint->pattern = pattern;
        table.add(endpoint);
        EXPECT_EQ(data_.head.split(), HeadView::Fault::None);
        const Match match = table.match("GET", data_.head.segments());
        EXPECT_EQ(match.outcome, Match::Outcome::Found);
        data_.head.setMatch(match);
    }

    Request& operator*() { return data_.request; }
    Request* operator->() { return &data_.request; }

private:
    HeadAlone source_;
    std::vector<ql::HeaderLine> lines_;
    RequestData data_;
};

/// The status of the error that a call throws; 0 for none.
template <class Call>
int statusOf(const Call& call) {
    try {
        call();
        return 0;
    } catch (const HttpError& error) {
        return error.status();
    }
}

TEST(Request, ViewsOfWhatItHasLiveAsLongAsItDoes) {
    Asked asked(
        "/hello/{name}", "/hello/a%20rather%20long%20name%20of%20somebody?q=a+rather+long+text+of+a+query",
        {{"X-Text", "a rather long text"}, {"X-Text", "of a header"}, {"Cookie", "c=a rather long cookie, too"}});
    const std::string_view path = asked->path("name");
    const std::string_view query = asked->query("q");
    const std::string_view header = asked->header("x-text");
    const std::string_view cookie = asked->cookie("c");
    for (int i = 0; i < 100; ++i) {
        asked->header("x-" + std::to_string(i));
        asked->query(std::to_string(i));
    }
    EXPECT_EQ(path, "a rather long name of somebody");
    EXPECT_EQ(query, "a rather long text of a query");
    EXPECT_EQ(header, "a rather long text, of a header");
    EXPECT_EQ(cookie, "a rather long cookie, too");
}

TEST(Request, AParameterThatTheRouteHasNotIsTheProgramsFault) {
    Asked asked("/hello/{name}", "/hello/you");
    try {
        asked->path("nmae");
        FAIL() << "nothing was thrown";
    } catch (const std::logic_error& error) {
        EXPECT_EQ(std::string(error.what()), "the route \"/hello/{name}\" has no parameter \"nmae\"");
    }
}

TEST(Request, ParametersAsValues) {
    EXPECT_EQ(Asked("/{n:int}", "/-12")->path<int>("n"), -12);
    EXPECT_EQ(Asked("/{n}", "/250")->path<std::uint8_t>("n"), 250);
    EXPECT_EQ(Asked("/{n}", "/1.5")->path<double>("n"), 1.5);
    EXPECT_EQ(Asked("/{n}", "/x%20y")->path<std::string>("n"), "x y");
    for (const char* const target : {"/256", "/-1", "/x", "/1x", "/%201", "/0x10", "/+1"}) {
        Asked asked("/{n}", target);
        EXPECT_EQ(statusOf([&] { asked->path<std::uint8_t>("n"); }), 404) << target;
    }
    Asked asked("/{n}", "/9223372036854775807");
    EXPECT_EQ(asked->path<std::int64_t>("n"), (std::numeric_limits<std::int64_t>::max)());
    EXPECT_EQ(statusOf([&] { asked->path<int>("n"); }), 404);
}

TEST(Request, ArgumentsOneAfterTheOther) {
    Asked asked("/", "/?b=tea+time&a=1&b&a=2");
    std::string text;
    for (const auto& [name, value] : asked->queryArguments()) {
        text += name + "=" + value + ";";
    }
    EXPECT_EQ(text, "b=tea time;a=1;b=;a=2;");
    EXPECT_TRUE(Asked("/", "/")->queryArguments().empty());
}

TEST(Request, ChoosesWhatTheClientLikesBest) {
    Asked asked("/", "/",
                {{"Accept", "text/html;q=0.5, application/json"},
                 {"Accept-Language", "de, en;q=0.5"},
                 {"Accept-Encoding", "br;q=0, gzip"}});
    EXPECT_EQ(asked->accepts({"text/html", "application/json"}), "application/json");
    EXPECT_EQ(asked->accepts({"text/plain"}), "");
    EXPECT_EQ(asked->acceptsLanguage({"en", "de-AT"}), "de-AT");
    EXPECT_EQ(asked->acceptsEncoding({"br", "gzip"}), "gzip");
}

TEST(Request, TellsForHowLongItIsThere) {
    Asked asked("/", "/"); // since the clock's beginning
    const auto before = std::chrono::milliseconds(qlSystemUtils::GetTimeBaseMs());
    const std::chrono::milliseconds elapsed = asked->elapsed();
    EXPECT_GE(elapsed, before);
    EXPECT_LE(elapsed, std::chrono::milliseconds(qlSystemUtils::GetTimeBaseMs()));
}

TEST(Request, ArgumentsAsValues) {
    Asked asked("/", "/?n=7&f=2.5e3&yes=on&no=false&bad=7x&inf=inf&nan=nan&big=1e999&empty=&u=18446744073709551615");
    EXPECT_EQ(asked->query<int>("n"), 7);
    EXPECT_EQ(asked->query<float>("f"), 2500.0F);
    EXPECT_TRUE(asked->query<bool>("yes"));
    EXPECT_FALSE(asked->query<bool>("no"));
    EXPECT_EQ(asked->query<std::uint64_t>("u"), (std::numeric_limits<std::uint64_t>::max)());
    EXPECT_EQ(asked->query("n", 1), 7);
    EXPECT_EQ(asked->query("missing", 1), 1);
    EXPECT_EQ(asked->query("missing", 2.5), 2.5);
    EXPECT_TRUE(asked->query("missing", true));
    EXPECT_EQ(statusOf([&] { asked->query<int>("bad"); }), 400);
    EXPECT_EQ(statusOf([&] { asked->query("bad", 1); }), 400);
    EXPECT_EQ(statusOf([&] { asked->query<int>("missing"); }), 400);
    EXPECT_EQ(statusOf([&] { asked->query<int>("empty"); }), 400);
    EXPECT_EQ(statusOf([&] { asked->query<bool>("n"); }), 400);
    for (const char* const name : {"inf", "nan", "big"}) {
        EXPECT_EQ(statusOf([&] { asked->query<double>(name); }), 400) << name;
    }
    EXPECT_EQ(statusOf([&] { asked->query<float>("big"); }), 400);
    EXPECT_EQ(asked->query<std::string>("empty"), "");
    try {
        asked->query<int>("missing");
    } catch (const HttpError& error) {
        EXPECT_NE(std::string(error.what()).find("missing"), std::string::npos);
    }
}

TEST(Request, TextsForMissingArgumentsAreTexts) {
    Asked asked("/", "/?name=you&empty=");
    static_assert(std::is_same_v<decltype(asked->query("name", "world")), std::string>);
    EXPECT_EQ(asked->query("name", "world"), "you");
    EXPECT_EQ(asked->query("other", "world"), "world");
    EXPECT_EQ(asked->query("empty", "world"), "");
    EXPECT_EQ(asked->query("other", std::string("world")), "world");
}

TEST(Request, HeadersAsTheyCame) {
    Asked asked("/", "/", {{"Host", "here"}, {"X-One", "1"}, {"x-one", "2"}});
    ASSERT_EQ(asked->headerCount(), 3U);
    EXPECT_EQ(asked->headerAt(2).name, "x-one");
    EXPECT_EQ(asked->headerAt(2).value, "2");
    EXPECT_THROW(asked->headerAt(3), std::logic_error);
    EXPECT_EQ(asked->host(), "here");
    EXPECT_FALSE(asked->isSecure());
}

TEST(Request, BoolsHaveEightWords) {
    bool value = false;
    for (const std::string_view yes : {"true", "1", "on", "yes"}) {
        value = false;
        EXPECT_TRUE(vireo::impl::readBool(yes, value)) << yes;
        EXPECT_TRUE(value) << yes;
    }
    for (const std::string_view no : {"false", "0", "off", "no"}) {
        value = true;
        EXPECT_TRUE(vireo::impl::readBool(no, value)) << no;
        EXPECT_FALSE(value) << no;
    }
    for (const std::string_view none : {"", "True", "2", "y", "true "}) {
        EXPECT_FALSE(vireo::impl::readBool(none, value)) << none;
    }
}

const RequestKey<std::string> FirstText;
const RequestKey<std::string> SecondText;
const RequestKey<int> Number;

TEST(Request, ValuesOfYourOwnAreKeptByTheirKeys) {
    Asked asked("/", "/");
    EXPECT_EQ((*asked)[Number], 0);
    (*asked)[FirstText] = "first";
    (*asked)[SecondText] = "second";
    (*asked)[Number] = 7;
    std::string& first = (*asked)[FirstText];
    EXPECT_EQ(first, "first");
    EXPECT_EQ((*asked)[SecondText], "second");
    EXPECT_EQ((*asked)[Number], 7);
    EXPECT_EQ(&first, &(*asked)[FirstText]);
    Asked other("/", "/");
    EXPECT_EQ((*other)[Number], 0);
}

struct Counted {
    Counted() { ++alive; }
    Counted(const Counted&) = delete;
    Counted& operator=(const Counted&) = delete;
    ~Counted() { --alive; }

    static std::atomic<int> alive;
};
std::atomic<int> Counted::alive{0};
const RequestKey<Counted> OneForAll;

/// While the first one is made, somebody else asks for it.
struct Late {
    Late() {
        if (request != nullptr) {
            Request& asked = *std::exchange(request, nullptr);
            other = &asked[key];
        }
    }

    static const RequestKey<Late> key;
    static Request* request;
    static Late* other;
};
const RequestKey<Late> Late::key;
Request* Late::request = nullptr;
Late* Late::other = nullptr;

TEST(Request, OfTwoThatMakeAValueTheFirstToBeReadyCounts) {
    Asked asked("/", "/");
    Late::request = &*asked;
    Late* const mine = &(*asked)[Late::key];
    ASSERT_NE(Late::other, nullptr);
    EXPECT_EQ(mine, Late::other);
}

TEST(Request, ThreadsThatAskForAValueAtOnceGetTheSame) {
    constexpr int Threads = 4;
    for (int round = 0; round < 50; ++round) {
        {
            Asked asked("/", "/");
            std::atomic<int> ready{0};
            std::vector<Counted*> found(Threads);
            std::vector<std::thread> threads;
            for (Counted*& mine : found) {
                threads.emplace_back([&asked, &ready, &mine] {
                    ++ready;
                    while (ready < Threads) {
                        std::this_thread::yield();
                    }
                    mine = &(*asked)[OneForAll];
                });
            }
            for (std::thread& thread : threads) {
                thread.join();
            }
            for (Counted* const mine : found) {
                EXPECT_EQ(mine, found.front());
            }
            EXPECT_EQ(Counted::alive, 1);
        }
        EXPECT_EQ(Counted::alive, 0);
    }
}

} // namespace
