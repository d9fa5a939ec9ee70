#include "vireo/AccessLog.h"

#include "server/ExchangeRecordData.h"
#include "support/TestLog.h"
#include "vireo/ExchangeRecord.h"

#include <NativeSockets.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <limits>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>
#include <vector>

namespace {

using ql::IpAddress;
using ql::http::AccessLog;
using ql::http::ExchangeRecord;
using ql::impl::ExchangeRecordData;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;
using vireotest::TestLog;

constexpr auto Combined = AccessLog::Format::Combined;
constexpr auto Json = AccessLog::Format::Json;

IpAddress ipv4(const char* text) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    EXPECT_EQ(inet_pton(AF_INET, text, &address.sin_addr), 1);
    IpAddress ip;
    EXPECT_TRUE(ip.fromIP(reinterpret_cast<const sockaddr*>(&address)));
    return ip;
}

/// An exchange of which everything is known.
ExchangeRecordData wholeExchange() {
    ExchangeRecordData data;
    data.method = "GET";
    data.target = "/index.html?q=1";
    data.version = "HTTP/1.1";
    data.referer = "http://example.org/";
    data.userAgent = "curl/7.88.1";
    data.status = 200;
    data.receivedHeadBytes = 78;
    data.receivedBodyBytes = 5;
    data.sentHeadBytes = 150;
    data.sentBodyBytes = 2326;
    data.durationsMs = {1, 0, 500, 3};
    // date --utc --date @1000000000.042
    data.startTime += std::chrono::milliseconds(1000000000042);
    data.clientAddress = ipv4("192.0.2.1");
    data.clientPort = 50000;
    data.localAddress = ipv4("127.0.0.1");
    data.localPort = 8181;
    data.connectionId = "018f";
    data.ordinal = 2;
    data.ending = ExchangeRecord::Ending::ClientLeft;
    data.reason = "reset";
    return data;
}

ExchangeRecord makeRecord(const ExchangeRecordData& data) {
    return ExchangeRecord(std::make_shared<ExchangeRecordData>(data));
}

std::string lineOf(AccessLog::Format format, const ExchangeRecordData& data) {
    return AccessLog::formatLine(format, makeRecord(data));
}

/// By a Unix socket.
ExchangeRecordData localExchange() {
    ExchangeRecordData data;
    data.isUnixClient = true;
    return data;
}

/// An exchange with that target.
ExchangeRecord exchangeOf(const std::string& target) {
    ExchangeRecordData data;
    data.method = "GET";
    data.target = target;
    return makeRecord(data);
}

/// What a text comes to in a line: the User-Agent of an exchange without more.
std::string asCombined(const std::string& text) {
    ExchangeRecordData data;
    data.userAgent = text;
    const std::string line = lineOf(Combined, data);
    const std::size_t start = line.find("\"-\" \"", line.find(" 0 ")) + 5;
    return line.substr(start, line.size() - 1 - start);
}

std::string asJson(const std::string& text) {
    ExchangeRecordData data;
    data.reason = text;
    const std::string line = lineOf(Json, data);
    const std::size_t start = line.find("\"reason\":") + 9;
    return line.substr(start, line.find(",\"receivedHeadBytes\"") - start);
}

std::vector<std::string> linesOf(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) {
        lines.push_back(line);
    }
    return lines;
}

std::string contentOf(const std::filesystem::path& path) {
    std::ostringstream content;
    content << std::ifstream(path, std::ios::binary).rdbuf();
    return content.str();
}

/// What a file holds of an exchange with that target.
std::string writtenOf(const std::string& target) {
    return AccessLog::formatLine(Combined, exchangeOf(target)) + "\n";
}

/// A directory for one test.
class AccessLogFiles : public testing::Test {
protected:
    AccessLogFiles() {
        std::filesystem::remove_all(directory_);
        std::filesystem::create_directory(directory_);
    }
    ~AccessLogFiles() override { std::filesystem::remove_all(directory_); }

    const std::filesystem::path directory_ =
        std::filesystem::path(testing::TempDir()) /
        ("access-log-" + std::string(testing::UnitTest::GetInstance()->current_test_info()->name()) +
         std::to_string(std::chrono::steady_clock::now().time_since_epoch().count()));
    const std::filesystem::path path_ = directory_ / "access.log";
    const std::filesystem::path old_ = directory_ / "access.log.1";
};

TEST(AccessLog, CombinedLineTellsWhatServersTell) {
    EXPECT_EQ(lineOf(Combined, wholeExchange()),
              "192.0.2.1 - - [09/Sep/2001:01:46:40 +0000] \"GET /index.html?q=1 HTTP/1.1\" 200 2326 "
              "\"http://example.org/\" \"curl/7.88.1\"");
}

TEST(AccessLog, JsonLineTellsAll) {
    EXPECT_EQ(lineOf(Json, wholeExchange()),
              "{\"time\":\"2001-09-09T01:46:40.042Z\",\"client\":\"192.0.2.1\",\"clientPort\":50000,"
              "\"local\":\"127.0.0.1\",\"localPort\":8181,\"connection\":\"018f\",\"ordinal\":2,\"method\":\"GET\","
              "\"target\":\"/index.html?q=1\",\"version\":\"HTTP/1.1\",\"referer\":\"http://example.org/\","
              "\"userAgent\":\"curl/7.88.1\",\"status\":200,\"ending\":\"client_left\",\"reason\":\"reset\","
              "\"receivedHeadBytes\":78,\"receivedBodyBytes\":5,\"sentHeadBytes\":150,\"sentBodyBytes\":2326,"
              "\"headMs\":1,\"bodyMs\":0,\"waitMs\":500,\"sendMs\":3}");
}

TEST(AccessLog, CombinedLineMarksWhatIsNotKnown) {
    EXPECT_EQ(lineOf(Combined, {}), "- - - [01/Jan/1970:00:00:00 +0000] \"-\" - 0 \"-\" \"-\"");
}

TEST(AccessLog, JsonLineMarksWhatIsNotKnown) {
    EXPECT_EQ(lineOf(Json, {}),
              "{\"time\":\"1970-01-01T00:00:00.000Z\",\"client\":null,\"clientPort\":null,\"local\":null,"
              "\"localPort\":null,\"connection\":null,\"ordinal\":null,\"method\":null,\"target\":null,"
              "\"version\":null,\"referer\":null,\"userAgent\":null,\"status\":null,\"ending\":\"completed\","
              "\"reason\":null,\"receivedHeadBytes\":0,\"receivedBodyBytes\":0,\"sentHeadBytes\":0,"
              "\"sentBodyBytes\":0,\"headMs\":null,\"bodyMs\":null,\"waitMs\":null,\"sendMs\":null}");
}

TEST(AccessLog, ClientOfAUnixSocketIsCalledSo) {
    EXPECT_EQ(lineOf(Combined, localExchange()).substr(0, 10), "unix: - - ");
    EXPECT_NE(lineOf(Json, localExchange()).find("\"client\":\"unix:\""), std::string::npos);
}

TEST(AccessLog, RequestOfWhichOnlyTheTargetIsKnownKeepsItsThreeParts) {
    ExchangeRecordData data;
    data.target = "/long";
    EXPECT_THAT(lineOf(Combined, data), HasSubstr("] \"- /long -\" - 0 "));
}

TEST(AccessLog, LargestNumbersAreWhole) {
    ExchangeRecordData data;
    data.sentBodyBytes = std::numeric_limits<std::uint64_t>::max();
    data.durationsMs[0] = std::numeric_limits<std::int64_t>::max();
    EXPECT_THAT(lineOf(Combined, data), HasSubstr(" - 18446744073709551615 "));
    EXPECT_THAT(lineOf(Json, data),
                HasSubstr("\"sentBodyBytes\":18446744073709551615,\"headMs\":9223372036854775807,"));
}

TEST(AccessLog, MomentBeforeTheEpochIsADateToo) {
    ExchangeRecordData data;
    data.startTime -= std::chrono::milliseconds(1);
    EXPECT_THAT(lineOf(Json, data), StartsWith("{\"time\":\"1969-12-31T23:59:59.999Z\""));
    EXPECT_THAT(lineOf(Combined, data), HasSubstr(" [31/Dec/1969:23:59:59 +0000] "));
}

TEST(AccessLog, CombinedTextEscapesWhateverIsNotPrintableAscii) {
    EXPECT_EQ(asCombined("a b~"), "a b~");
    EXPECT_EQ(asCombined("\" 200 0 \"forged"), "\\x22 200 0 \\x22forged");
    EXPECT_EQ(asCombined("\\x22"), "\\x5Cx22");
    EXPECT_EQ(asCombined("\r\n192.0.2.9"), "\\x0D\\x0A192.0.2.9");
    EXPECT_EQ(asCombined(std::string("\0\x1B[2J\x7F", 6)), "\\x00\\x1B[2J\\x7F");
    EXPECT_EQ(asCombined("\xC3\xA4\xFF"), "\\xC3\\xA4\\xFF");
}

TEST(AccessLog, JsonTextEscapesWhateverIsNotPrintableAscii) {
    EXPECT_EQ(asJson("a b~/"), "\"a b~/\"");
    EXPECT_EQ(asJson("\",\"status\":200"), R"("\u0022,\u0022status\u0022:200")");
    EXPECT_EQ(asJson("\\n"), R"("\u005Cn")");
    EXPECT_EQ(asJson("\r\n{}"), R"("\u000D\u000A{}")");
    EXPECT_EQ(asJson(std::string("\0\x1B[2J\x7F", 6)), R"("\u0000\u001B[2J\u007F")");
    EXPECT_EQ(asJson("\xC2\x9B\xE2\x80\xA8\xE2\x80\xAE"), R"("\u009B\u2028\u202E")");
}

TEST(AccessLog, JsonTextKeepsEveryCharacterAndReplacesBytesThatAreNone) {
    EXPECT_EQ(asJson("\xC3\xA4\xEF\xBF\xBF\xF0\x90\x80\x80\xF0\x9F\x98\x80\xF4\x8F\xBF\xBF"),
              R"("\u00E4\uFFFF\uD800\uDC00\uD83D\uDE00\uDBFF\uDFFF")");
    EXPECT_EQ(asJson("\xFFz"), R"("\uFFFDz")");
    EXPECT_EQ(asJson("a\xC3"), R"("a\uFFFD")");
    EXPECT_EQ(asJson("\xC3\xA4\xC0\xAF\xED\xA0\x80"), R"("\u00E4\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD")");
}

TEST(AccessLog, NoByteInAnyTextGetsOutOfItsPlace) {
    std::string every;
    for (int byte = 0; byte < 256; ++byte) {
        every += static_cast<char>(byte);
    }
    ExchangeRecordData data;
    data.method = every;
    data.target = every;
    data.version = every;
    data.referer = every;
    data.userAgent = every;
    data.connectionId = every;
    data.reason = every;
    const std::string combined = lineOf(Combined, data);
    EXPECT_EQ(std::count(combined.begin(), combined.end(), '"'), 6);
    // 23 names and 9 texts.
    const std::string json = lineOf(Json, data);
    EXPECT_EQ(std::count(json.begin(), json.end(), '"'), 2 * (23 + 9));
    for (const std::string& line : {combined, json}) {
        EXPECT_TRUE(std::all_of(line.begin(), line.end(), [](char c) { return c >= ' ' && c <= '~'; })) << line;
    }
}

TEST(AccessLog, SinkGetsALineForEachExchangeInTheFormatAskedFor) {
    std::vector<std::string> lines;
    const AccessLog::Sink sink = [&](std::string_view line) { lines.emplace_back(line); };
    AccessLog combined(Combined, sink);
    AccessLog json(Json, sink);
    const ExchangeRecord record = makeRecord(wholeExchange());
    combined.onExchange(record);
    json.onExchange(record);
    combined.reopen();
    combined.onExchange(record);
    EXPECT_THAT(lines, ElementsAre(lineOf(Combined, wholeExchange()), lineOf(Json, wholeExchange()),
                                   lineOf(Combined, wholeExchange())));
    EXPECT_EQ(combined.getLostLineCount(), 0U);
}

TEST(AccessLog, SinkIsNeverCalledTwiceAtOnce) {
    std::atomic<int> inside{0};
    std::atomic<bool> overlapped{false};
    std::size_t lines = 0;
    AccessLog log(Combined, [&](std::string_view) {
        if (inside.fetch_add(1) != 0) {
            overlapped = true;
        }
        ++lines;
        std::this_thread::yield();
        inside.fetch_sub(1);
    });
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int j = 0; j < 500; ++j) {
                log.onExchange(exchangeOf("/"));
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_FALSE(overlapped);
    EXPECT_EQ(lines, 2000U);
}

TEST(AccessLog, ExceptionOfTheSinkLeavesAndTheNextLineIsWritten) {
    std::size_t calls = 0;
    AccessLog log(Combined, [&](std::string_view) {
        if (++calls == 1) {
            throw std::runtime_error("full");
        }
    });
    EXPECT_THROW(log.onExchange(exchangeOf("/")), std::runtime_error);
    log.onExchange(exchangeOf("/"));
    EXPECT_EQ(calls, 2U);
}

TEST(AccessLog, ForwardedClientStandsFirst) {
    ExchangeRecordData data = wholeExchange();
    data.notes.forwardedClient = ipv4("203.0.113.7");
    EXPECT_THAT(lineOf(Combined, data), StartsWith("203.0.113.7 - - ["));
    data.clientAddress = {};
    data.isUnixClient = true;
    EXPECT_THAT(lineOf(Combined, data), StartsWith("203.0.113.7 - - ["));
}

TEST(AccessLog, JsonHasWhatTheApplicationHasSaidOnlyWhereItHas) {
    ExchangeRecordData data = wholeExchange();
    const std::string plain = lineOf(Json, data);
    EXPECT_THAT(plain, HasSubstr("\"client\":\"192.0.2.1\",\"clientPort\""));
    EXPECT_THAT(plain, HasSubstr("\"ordinal\":2,\"method\""));
    data.notes.forwardedClient = ipv4("203.0.113.7");
    EXPECT_THAT(lineOf(Json, data),
                HasSubstr("\"client\":\"192.0.2.1\",\"forwardedClient\":\"203.0.113.7\",\"clientPort\""));
    data.notes.requestId = "a\"b";
    EXPECT_THAT(lineOf(Json, data), HasSubstr("\"ordinal\":2,\"requestId\":\"a\\u0022b\",\"method\""));
}

TEST(AccessLog, EmptySinkIsRefused) {
    EXPECT_THROW(AccessLog(Combined, AccessLog::Sink()), std::invalid_argument);
}

TEST_F(AccessLogFiles, LinesAreInTheFileAtOnceAfterWhatWasThere) {
    std::ofstream(path_, std::ios::binary) << "before\n";
    AccessLog log(Combined, path_);
    log.onExchange(makeRecord(wholeExchange()));
    EXPECT_THAT(linesOf(path_), ElementsAre("before", lineOf(Combined, wholeExchange())));
}

TEST_F(AccessLogFiles, TwoLogsAppendToOneFile) {
    AccessLog first(Combined, path_);
    AccessLog second(Json, path_);
    for (int i = 0; i < 2; ++i) {
        first.onExchange(makeRecord(wholeExchange()));
        second.onExchange(makeRecord(wholeExchange()));
    }
    EXPECT_THAT(linesOf(path_), ElementsAre(StartsWith("192"), StartsWith("{"), StartsWith("192"), StartsWith("{")));
}

TEST_F(AccessLogFiles, LineThatIsLargerThanAnyBufferIsWhole) {
    AccessLog log(Combined, path_);
    const std::string target(1'000'000, 'x');
    log.onExchange(exchangeOf(target));
    log.onExchange(exchangeOf("/"));
    EXPECT_THAT(linesOf(path_), ElementsAre(HasSubstr("\"GET " + target + " -\""), HasSubstr("\"GET / -\"")));
}

TEST_F(AccessLogFiles, LinesOfManyThreadsAreWholeAndNoneIsLostByReopening) {
    constexpr int ThreadCount = 4;
    constexpr int LineCount = 500;
    {
        AccessLog log(Combined, path_);
        std::vector<std::thread> threads;
        for (int i = 0; i < ThreadCount; ++i) {
            threads.emplace_back([&, i] {
                for (int j = 0; j < LineCount; ++j) {
                    log.onExchange(
                        exchangeOf("/" + std::string(static_cast<std::size_t>(j), static_cast<char>('a' + i))));
                }
            });
        }
        for (int i = 0; i < 20; ++i) {
            log.reopen();
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        EXPECT_EQ(log.getLostLineCount(), 0U);
    }
    std::vector<std::string> lines = linesOf(path_);
    std::vector<std::string> expected;
    for (int i = 0; i < ThreadCount; ++i) {
        for (int j = 0; j < LineCount; ++j) {
            const std::string target = "/" + std::string(static_cast<std::size_t>(j), static_cast<char>('a' + i));
            expected.push_back(AccessLog::formatLine(Combined, exchangeOf(target)));
        }
    }
    std::sort(lines.begin(), lines.end());
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(lines, expected);
}

TEST_F(AccessLogFiles, FileThatCannotBeOpenedIsRefusedWithTheReason) {
    try {
        AccessLog(Combined, directory_ / "missing" / "access.log");
        FAIL() << "was opened";
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code(), std::errc::no_such_file_or_directory);
        EXPECT_THAT(error.what(), HasSubstr("access.log"));
    }
}

TEST_F(AccessLogFiles, RenamedFileIsWrittenToUntilTheLogIsReopened) {
    AccessLog log(Combined, path_);
    log.onExchange(exchangeOf("/one"));
    std::filesystem::rename(path_, old_);
    log.onExchange(exchangeOf("/two"));
    EXPECT_FALSE(std::filesystem::exists(path_));
    log.reopen();
    log.onExchange(exchangeOf("/three"));
    EXPECT_EQ(contentOf(old_), writtenOf("/one") + writtenOf("/two"));
    EXPECT_EQ(contentOf(path_), writtenOf("/three"));
}

TEST_F(AccessLogFiles, OldFileIsKeptWhenTheNewOneCannotBeOpened) {
    AccessLog log(Combined, path_);
    std::filesystem::rename(path_, old_);
    std::filesystem::create_directory(path_);
    try {
        log.reopen();
        FAIL() << "was opened";
    } catch (const std::system_error& error) {
        EXPECT_EQ(error.code(), std::errc::is_a_directory);
    }
    log.onExchange(exchangeOf("/one"));
    EXPECT_EQ(contentOf(old_), writtenOf("/one"));
}

// The name is a link to a device that is always full, later to a file.
TEST_F(AccessLogFiles, LinesLostInARowAreCountedLoggedOnceAndEndedBeforeTheNext) {
    const TestLog messages;
    std::filesystem::create_symlink("/dev/full", path_);
    AccessLog log(Combined, path_);
    log.onExchange(exchangeOf("/one"));
    log.onExchange(exchangeOf("/two"));
    EXPECT_EQ(log.getLostLineCount(), 2U);
    EXPECT_THAT(messages.lines(),
                ElementsAre(TestLog::Line{qlLogType::Failure, "httpserver",
                                          "cannot write access log " + path_.string() + " : No space left on device"}));

    std::filesystem::remove(path_);
    log.onExchange(exchangeOf("/three"));
    log.onExchange(exchangeOf("/four"));
    EXPECT_EQ(contentOf(path_), "\n" + writtenOf("/three") + writtenOf("/four"));
    EXPECT_EQ(log.getLostLineCount(), 2U);
    EXPECT_EQ(messages.lines().size(), 1U);

    std::filesystem::remove(path_);
    std::filesystem::create_symlink("/dev/full", path_);
    log.reopen();
    log.onExchange(exchangeOf("/five"));
    EXPECT_EQ(log.getLostLineCount(), 3U);
    EXPECT_EQ(messages.lines().size(), 2U);
}

} // namespace
