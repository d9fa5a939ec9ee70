#include "session/Deflater.h"

#include "session/Codec.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

using namespace sessiontest;
using ql::impl::ByteBuffer;
using ql::impl::Deflater;
using ql::impl::DeflateSettings;

namespace {

/// Nothing: it is to be sent as it is.
std::optional<std::string> compressed(Deflater& deflater, const std::string& message) {
    ByteBuffer out;
    if (!deflater.compress(bytesOf(message), out)) {
        EXPECT_TRUE(out.isEmpty());
        return std::nullopt;
    }
    EXPECT_LT(out.bytes().size(), message.size());
    return textOf(out.bytes());
}

/// Repeats itself from near, and from as far as there are windows for.
std::string repetitive(unsigned int seed) {
    const std::string far = letters(33000, seed);
    return far + letters(400, seed + 1) + far.substr(0, 9000) + far.substr(8000, 9000) + letters(100, seed) + far;
}

} // namespace

TEST(Deflater, CompressesForEveryWindowWithAndWithoutContext) {
    for (int windowBits = 9; windowBits <= 15; ++windowBits) {
        for (const bool takesOver : {true, false}) {
            for (const int level : {1, 6, 9}) {
                DeflateSettings settings;
                settings.level = level;
                Deflater deflater(settings, windowBits, takesOver);
                // A client that has agreed on no context begins each message with an empty window.
                std::optional<ClientInflater> client;
                for (unsigned int i = 0; i < 4; ++i) {
                    const std::string message = repetitive(i % 2);
                    const std::optional<std::string> data = compressed(deflater, message);
                    ASSERT_TRUE(data);
                    if (!client || !takesOver) {
                        client.emplace(windowBits);
                    }
                    ASSERT_EQ(client->inflate(*data), message) << "window " << windowBits << ", message " << i;
                }
            }
        }
    }
}

TEST(Deflater, UsesAsMuchOfTheWindowAsWasAgreed) {
    const std::string far = letters(20000);
    Deflater small({}, 9, true);
    Deflater large({}, 15, true);
    EXPECT_GT(compressed(small, far + far)->size(), compressed(large, far + far)->size() * 3 / 2);
}

TEST(Deflater, RefersToEarlierMessagesOnlyWithTakeover) {
    const std::string message = letters(2000);
    Deflater with({}, 15, true);
    const std::string first = compressed(with, message).value();
    EXPECT_LT(compressed(with, message)->size(), 50U);

    Deflater without({}, 15, false);
    EXPECT_EQ(compressed(without, message), first);
    EXPECT_EQ(compressed(without, message), first);
}

TEST(Deflater, ResetForgetsEarlierMessages) {
    const std::string message = letters(2000);
    Deflater deflater({}, 15, true);
    deflater.reset();
    const std::string first = compressed(deflater, message).value();
    deflater.reset();
    EXPECT_EQ(compressed(deflater, message), first);
    EXPECT_LT(compressed(deflater, message)->size(), 50U) << "what comes after it counts again";
}

TEST(Deflater, LeavesAMessageThatDoesNotGetShorter) {
    Deflater deflater({}, 15, true);
    EXPECT_FALSE(compressed(deflater, ""));
    EXPECT_FALSE(compressed(deflater, "a"));
    EXPECT_FALSE(compressed(deflater, noise(100000)));
    EXPECT_TRUE(compressed(deflater, letters(1000)));
    EXPECT_FALSE(compressed(deflater, ""));
    for (std::size_t size = 1; size < 400; ++size) {
        Deflater fresh({}, 15, true);
        const std::optional<std::string> data = compressed(fresh, letters(size));
        if (data) {
            ASSERT_EQ(ClientInflater().inflate(*data), letters(size));
        }
    }
}

TEST(Deflater, NeverRefersToAMessageThatWasNotSentCompressed) {
    for (const bool takesOver : {true, false}) {
        Deflater deflater({}, 15, takesOver);
        std::optional<ClientInflater> client(std::in_place);
        const std::string unsent = noise(5000);
        for (const std::string& message : {letters(3000), unsent, letters(3000) + unsent, letters(3000)}) {
            const std::optional<std::string> data = compressed(deflater, message);
            EXPECT_EQ(!data, message == unsent);
            if (!takesOver) {
                client.emplace();
            }
            if (data) {
                ASSERT_EQ(client->inflate(*data), message);
            }
        }
    }
}

TEST(Deflater, AppendsToWhatIsThere) {
    ByteBuffer out;
    out.room(3, 3)[0] = 'x';
    out.added(1);
    Deflater deflater({}, 15, true);
    ASSERT_TRUE(deflater.compress(bytesOf(letters(1000)), out));
    EXPECT_EQ(textOf(out.bytes()).front(), 'x');
    EXPECT_EQ(ClientInflater().inflate(textOf(out.bytes()).substr(1)), letters(1000));
}
