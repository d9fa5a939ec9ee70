#include "engine/EngineLog.h"

#include "support/TestLog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstring>
#include <optional>
#include <string>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;
using vireotest::TestLog;

constexpr std::size_t MaxLength = 1023;

void relay(const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    ql::impl::relayEngineMessage(nullptr, format, arguments);
    va_end(arguments);
}

class EngineLogTest : public testing::Test {
protected:
    /// What the log says after a message is relayed, without what every such line begins with.
    static std::string relayed(const std::string& message) {
        const TestLog log;
        relay("%s", message.c_str());
        return onlyTextOf(log);
    }

    static std::string onlyTextOf(const TestLog& log) {
        const auto lines = log.lines();
        EXPECT_THAT(lines, SizeIs(1));
        const std::string begin = "libmicrohttpd: ";
        const std::string text = lines.empty() ? "" : lines.front().text;
        EXPECT_THAT(text, StartsWith(begin));
        return text.substr(std::min(begin.size(), text.size()));
    }
};

TEST_F(EngineLogTest, MessageIsALineOfType4WithoutTag) {
    const TestLog log;
    relay("Failed to bind to port %u: %s\n", 8181U, "Address already in use");
    EXPECT_THAT(log.lines(),
                ElementsAre(TestLog::Line{static_cast<qlLogType>(4), std::nullopt,
                                          "libmicrohttpd: Failed to bind to port 8181: Address already in use"}));
}

TEST_F(EngineLogTest, ComplaintAboutAUnixSocketIsLeftOut) {
    const TestLog log;
    constexpr const char* Format = "Setting %s option to %s state failed: %s\n";
    constexpr const char* Consequence = "Failed to push the data from buffers to the network.\n";
    relay(Format, "TCP_NODELAY", "ON", std::strerror(EOPNOTSUPP));
    relay(Format, "TCP_CORK", "OFF", std::strerror(EOPNOTSUPP));
    relay(Consequence);
    EXPECT_THAT(log.lines(), IsEmpty());
    relay(Consequence);
    relay(Format, "TCP_NODELAY", "ON", std::strerror(EINVAL));
    relay("%s", std::strerror(EOPNOTSUPP));
    relay(Format, "TCP_NODELAY", "ON", std::strerror(EOPNOTSUPP));
    relay("%s", "Something else");
    EXPECT_THAT(log.lines(), SizeIs(4)) << "others are not";
}

TEST_F(EngineLogTest, DisabledTypeIsNotLogged) {
    const TestLog log(false, {qlLogType::Engine});
    relay("text");
    EXPECT_THAT(log.lines(), IsEmpty());
}

TEST_F(EngineLogTest, MessageOf1023CharactersIsWhole) {
    for (const std::size_t length : {MaxLength - 1, MaxLength}) {
        EXPECT_EQ(relayed(std::string(length, 'x')), std::string(length, 'x')) << length;
    }
}

TEST_F(EngineLogTest, LongerMessageIsCutAt1023Characters) {
    for (const std::size_t length : {MaxLength + 1, MaxLength + 2, std::size_t{100000}}) {
        EXPECT_EQ(relayed(std::string(length, 'x')), std::string(MaxLength, 'x')) << length;
    }
}

TEST_F(EngineLogTest, TrailingBlanksAreStripped) {
    for (const char* const blanks : {" ", "\t", "\n", "\r", "\r\n", " \t\r\n \t\r\n"}) {
        EXPECT_EQ(relayed(std::string("text") + blanks), "text");
    }
}

TEST_F(EngineLogTest, OtherBlanksStay) {
    EXPECT_EQ(relayed("text\v"), "text\v");
    EXPECT_EQ(relayed("text\f"), "text\f");
    EXPECT_EQ(relayed("text \v \n"), "text \v");
}

TEST_F(EngineLogTest, BlanksInFrontAndInsideStay) {
    EXPECT_EQ(relayed(" \n two  words\n"), " \n two  words");
}

TEST_F(EngineLogTest, TrailingZeroBytesAreStripped) {
    const TestLog log;
    relay("text %c\n%c", 0, 0);
    EXPECT_EQ(onlyTextOf(log), "text");
}

TEST_F(EngineLogTest, OnlyBlanksKeepTheFirst) {
    EXPECT_EQ(relayed(" \n\t"), " ");
    EXPECT_EQ(relayed("\n"), "\n");
    EXPECT_EQ(relayed("\t\t"), "\t");
}

TEST_F(EngineLogTest, OneCharacterBeforeBlanksStays) {
    EXPECT_EQ(relayed("x \n"), "x");
    EXPECT_EQ(relayed(" x \n"), " x");
}

TEST_F(EngineLogTest, EmptyMessageIsALineToo) {
    EXPECT_EQ(relayed(""), "");
}

TEST_F(EngineLogTest, BlanksAtTheCutAreStripped) {
    EXPECT_EQ(relayed(std::string(1000, 'x') + std::string(22, ' ')), std::string(1000, 'x')) << "1022";
    EXPECT_EQ(relayed(std::string(1000, 'x') + std::string(23, ' ')), std::string(1000, 'x')) << "1023";
    EXPECT_EQ(relayed(std::string(1000, 'x') + std::string(24, ' ')), std::string(1000, 'x')) << "1024";
    EXPECT_EQ(relayed(std::string(1022, 'x') + " y"), std::string(1022, 'x')) << "what follows is cut off";
}

TEST_F(EngineLogTest, MessageThatCannotBeFormattedIsStillALine) {
    const TestLog log;
    const wchar_t notInTheCLocale[] = {static_cast<wchar_t>(0xD800), 0};
    relay("before %ls", notInTheCLocale);
    EXPECT_THAT(log.lines(), SizeIs(1));
    EXPECT_THAT(log.lines().front().text, StartsWith("libmicrohttpd: "));
}

} // namespace
