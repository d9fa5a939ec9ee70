#include "vireo/support/qlLog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <ios>
#include <locale>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class RecordingLog : public qlLog {
public:
    bool isLogTypeEnabled(qlLogType type) const override { return disabled.count(type) == 0; }
    bool isVerbose() const override { return false; }
    void writeLine(qlLogType type, const char* tag, const std::string& line) override {
        types.push_back(type);
        tags.emplace_back(tag == nullptr ? "(null)" : tag);
        lines.push_back(line);
    }

    std::set<qlLogType> disabled;
    std::vector<qlLogType> types;
    std::vector<std::string> tags;
    std::vector<std::string> lines;
};

/// Installs a log as the process's for a scope.
class InstalledLog {
public:
    explicit InstalledLog(qlLog* log) { qlLog::msInstance = log; }
    ~InstalledLog() { qlLog::msInstance = nullptr; }
    InstalledLog(const InstalledLog&) = delete;
    InstalledLog& operator=(const InstalledLog&) = delete;
};

/// Numbers as some locales write them: 8,181.
class GroupedDigits : public std::numpunct<char> {
protected:
    char do_thousands_sep() const override { return ','; }
    std::string do_grouping() const override { return "\3"; }
};

class GlobalLocale {
public:
    explicit GlobalLocale(const std::locale& locale) : before_(std::locale::global(locale)) {}
    ~GlobalLocale() { std::locale::global(before_); }
    GlobalLocale(const GlobalLocale&) = delete;
    GlobalLocale& operator=(const GlobalLocale&) = delete;

private:
    std::locale before_;
};

TEST(qlLogObject, EmitsOneLineWithTypeAndTagWhenItGoes) {
    RecordingLog log;
    {
        qlLogObject object(qlLogType::Server, "httpserver", &log);
        object << "listen @" << 8181;
        EXPECT_THAT(log.lines, IsEmpty());
    }
    EXPECT_THAT(log.lines, ElementsAre("listen @8181"));
    EXPECT_THAT(log.types, ElementsAre(qlLogType::Server));
    EXPECT_THAT(log.tags, ElementsAre("httpserver"));
}

TEST(qlLogObject, TheTypesHaveTheirNumbers) {
    EXPECT_EQ(static_cast<int>(qlLogType::Connection), 1);
    EXPECT_EQ(static_cast<int>(qlLogType::Server), 2);
    EXPECT_EQ(static_cast<int>(qlLogType::Engine), 4);
    EXPECT_EQ(static_cast<int>(qlLogType::Failure), 5);
}

TEST(qlLogObject, TheTagMayBeNull) {
    RecordingLog log;
    qlLogObject(qlLogType::Engine, nullptr, &log) << "text";
    EXPECT_THAT(log.tags, ElementsAre("(null)"));
}

TEST(qlLogObject, NumbersAndStringsAreFormatted) {
    RecordingLog log;
    qlLogObject(qlLogType::Engine, nullptr, &log)
        << std::string("s") << ' ' << -1 << ' ' << 18446744073709551615ULL << ' ' << 1.5 << ' ' << true;
    EXPECT_THAT(log.lines, ElementsAre("s -1 18446744073709551615 1.5 1"));
}

TEST(qlLogObject, HexadecimalUntilDecimalAgain) {
    RecordingLog log;
    qlLogObject(qlLogType::Engine, nullptr, &log) << "0x" << std::hex << 0x10009 << " " << std::dec << 10;
    EXPECT_THAT(log.lines, ElementsAre("0x10009 10"));
}

TEST(qlLogObject, NullTextCountsAsEmpty) {
    RecordingLog log;
    qlLogObject(qlLogType::Engine, nullptr, &log) << "a" << static_cast<const char*>(nullptr) << "b";
    EXPECT_THAT(log.lines, ElementsAre("ab"));
}

template <typename Character>
std::string lineWithText(Character* text) {
    RecordingLog log;
    qlLogObject(qlLogType::Server, nullptr, &log) << "before " << text << " after";
    return log.lines.at(0);
}

TEST(qlLogObject, CharactersOfAnyKindAreAText) {
    char text[] = "text";
    EXPECT_EQ(lineWithText(text), "before text after");
    EXPECT_EQ(lineWithText(reinterpret_cast<signed char*>(text)), "before text after");
    EXPECT_EQ(lineWithText(reinterpret_cast<const unsigned char*>(text)), "before text after");
}

TEST(qlLogObject, NullTextOfAnyKindDoesNotLoseTheRestOfTheLine) {
    EXPECT_EQ(lineWithText<char>(nullptr), "before  after");
    EXPECT_EQ(lineWithText<const char>(nullptr), "before  after");
    EXPECT_EQ(lineWithText<signed char>(nullptr), "before  after");
    EXPECT_EQ(lineWithText<const signed char>(nullptr), "before  after");
    EXPECT_EQ(lineWithText<unsigned char>(nullptr), "before  after");
    EXPECT_EQ(lineWithText<const unsigned char>(nullptr), "before  after");
}

TEST(qlLogObject, NothingStreamedInIsAnEmptyLine) {
    RecordingLog log;
    { const qlLogObject object(qlLogType::Engine, nullptr, &log); }
    EXPECT_THAT(log.lines, ElementsAre(""));
}

TEST(qlLogObject, ExtraTextStandsInFront) {
    RecordingLog log;
    qlLogObject(qlLogType::Engine, nullptr, &log, "extra ") << "text";
    EXPECT_THAT(log.lines, ElementsAre("extra text"));
}

TEST(qlLogObject, DisabledTypeIsIgnored) {
    RecordingLog log;
    log.disabled = {qlLogType::Connection};
    qlLogObject(qlLogType::Connection, "tcp", &log, "extra") << "text" << 1 << std::hex << std::string("more");
    qlLogObject(qlLogType::Server, "tcp", &log) << "other";
    EXPECT_THAT(log.lines, ElementsAre("other"));
}

TEST(qlLogObject, ForcedLineIgnoresTheFilter) {
    RecordingLog log;
    log.disabled = {qlLogType::Connection};
    qlLogObject(qlLogType::Connection, "tcp", &log, nullptr, true) << "text";
    EXPECT_THAT(log.lines, ElementsAre("text"));
}

TEST(qlLogObject, TheProcessesLogIsTheDefault) {
    RecordingLog log;
    const InstalledLog installed(&log);
    qlLogObject(qlLogType::Failure) << "text";
    EXPECT_THAT(log.lines, ElementsAre("text"));
    EXPECT_THAT(log.types, ElementsAre(qlLogType::Failure));
}

TEST(qlLogObject, TheApplicationsLocaleDoesNotTouchNumbers) {
    const GlobalLocale global(std::locale(std::locale::classic(), new GroupedDigits));
    RecordingLog log;
    qlLogObject(qlLogType::Server, nullptr, &log) << 8181 << " " << 1234567ULL;
    EXPECT_THAT(log.lines, ElementsAre("8181 1234567"));
}

TEST(qlLogObject, LineBreaksReachTheSinkAsTheyAre) {
    RecordingLog log;
    qlLogObject(qlLogType::Engine, nullptr, &log) << "a\nb";
    EXPECT_THAT(log.lines, ElementsAre("a\nb"));
}

TEST(qlLogObject, WhatTheSinkThrowsIsDropped) {
    class ThrowingLog : public RecordingLog {
    public:
        void writeLine(qlLogType type, const char* tag, const std::string& line) override {
            RecordingLog::writeLine(type, tag, line);
            throw std::runtime_error("sink");
        }
    } log;
    EXPECT_NO_THROW(qlLogObject(qlLogType::Engine, nullptr, &log) << "first");
    // The lock is free again.
    EXPECT_NO_THROW(qlLogObject(qlLogType::Engine, nullptr, &log) << "second");
    EXPECT_THAT(log.lines, ElementsAre("first", "second"));
}

TEST(qlLogObject, SinkIsNeverCalledTwiceAtOnce) {
    class OverlapLog : public RecordingLog {
    public:
        void writeLine(qlLogType type, const char* tag, const std::string& line) override {
            if (inside.exchange(true)) {
                overlapped = true;
            }
            // Leaves room for another thread to come in.
            std::this_thread::yield();
            RecordingLog::writeLine(type, tag, line);
            inside = false;
        }
        std::atomic<bool> inside{false};
        std::atomic<bool> overlapped{false};
    } log;
    constexpr int threadCount = 4;
    constexpr int linesPerThread = 500;
    std::vector<std::thread> threads;
    for (int i = 0; i < threadCount; ++i) {
        threads.emplace_back([&log] {
            for (int line = 0; line < linesPerThread; ++line) {
                qlLogObject(qlLogType::Engine, nullptr, &log) << "text";
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_FALSE(log.overlapped);
    EXPECT_EQ(log.lines.size(), static_cast<std::size_t>(threadCount * linesPerThread));
}

class StandardErrorLog : public testing::Test {
protected:
    void SetUp() override { testing::internal::CaptureStderr(); }
    void TearDown() override {
        if (!taken_) {
            testing::internal::GetCapturedStderr();
        }
    }
    std::string takeOutput() {
        taken_ = true;
        return testing::internal::GetCapturedStderr();
    }

private:
    bool taken_ = false;
};

TEST_F(StandardErrorLog, TakesLinesWhenThereIsNoLog) {
    qlLogObject(qlLogType::Server, "httpserver") << "listen @" << 8181;
    EXPECT_EQ(takeOutput(), "[2 httpserver] listen @8181\n");
}

TEST_F(StandardErrorLog, LineWithoutTagShowsTheTypeOnly) {
    qlLogObject(qlLogType::Failure) << "text";
    EXPECT_EQ(takeOutput(), "[5] text\n");
}

TEST_F(StandardErrorLog, EveryTypeIsEnabled) {
    qlLogObject(qlLogType::Connection) << "a";
    qlLogObject(qlLogType::Server) << "b";
    qlLogObject(qlLogType::Engine) << "c";
    qlLogObject(qlLogType::Failure) << "d";
    EXPECT_EQ(takeOutput(), "[1] a\n[2] b\n[4] c\n[5] d\n");
}

TEST_F(StandardErrorLog, ExplicitNullLogGoesThereThoughALogIsInstalled) {
    RecordingLog log;
    const InstalledLog installed(&log);
    qlLogObject(qlLogType::Server, nullptr, nullptr) << "text";
    EXPECT_THAT(log.lines, IsEmpty());
    EXPECT_EQ(takeOutput(), "[2] text\n");
}

TEST_F(StandardErrorLog, LineBreaksBecomeBlanks) {
    qlLogObject(qlLogType::Engine) << "a\r\nb\nc";
    EXPECT_EQ(takeOutput(), "[4] a  b c\n");
}

TEST_F(StandardErrorLog, NothingIsWrittenThatATerminalObeys) {
    qlLogObject(qlLogType::Engine) << "a\x1B[2Jb\tc\x7F\xC2\x9B"
                                   << "2Jd \xC3\xA4";
    EXPECT_EQ(takeOutput(), "[4] a [2Jb c  2Jd \xC3\xA4\n");
}

TEST_F(StandardErrorLog, TheLocaleDoesNotTouchTheTypeEither) {
    const GlobalLocale global(std::locale(std::locale::classic(), new GroupedDigits));
    qlLogObject(static_cast<qlLogType>(12345)) << 12345;
    EXPECT_EQ(takeOutput(), "[12345] 12345\n");
}

TEST_F(StandardErrorLog, LinesOfDifferentThreadsDoNotInterleave) {
    constexpr int threadCount = 4;
    constexpr int linesPerThread = 200;
    std::vector<std::thread> threads;
    for (int i = 0; i < threadCount; ++i) {
        threads.emplace_back([i] {
            const std::string text(300, static_cast<char>('a' + i));
            for (int line = 0; line < linesPerThread; ++line) {
                qlLogObject(qlLogType::Engine, "tag") << text << line;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    const std::string output = takeOutput();
    std::multiset<std::string> lines;
    for (std::size_t start = 0; start < output.size();) {
        const std::size_t end = output.find('\n', start);
        ASSERT_NE(end, std::string::npos);
        lines.insert(output.substr(start, end - start));
        start = end + 1;
    }
    std::multiset<std::string> expected;
    for (int i = 0; i < threadCount; ++i) {
        for (int line = 0; line < linesPerThread; ++line) {
            expected.insert("[4 tag] " + std::string(300, static_cast<char>('a' + i)) + std::to_string(line));
        }
    }
    EXPECT_EQ(lines, expected);
}

} // namespace
