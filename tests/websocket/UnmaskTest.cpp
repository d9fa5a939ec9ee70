#include "websocket/Unmask.h"

#include "websocket/Frames.h"

#include <gtest/gtest.h>

#include <algorithm>

using namespace wstest;

namespace {

constexpr unsigned char Untouched = 0xA5;

Bytes byteRule(const Bytes& in, const MaskKey& key, std::size_t phase) {
    Bytes out(in.size());
    for (std::size_t i = 0; i < in.size(); ++i) {
        out[i] = static_cast<unsigned char>(in[i] ^ key[(phase + i) % 4]);
    }
    return out;
}

} // namespace

TEST(Unmask, EqualsTheByteRuleForAllLengthsPhasesAndOffsets) {
    for (std::size_t length = 0; length <= 300; ++length) {
        const Bytes in = pattern(length);
        for (std::size_t phase = 0; phase < 4; ++phase) {
            const Bytes expected = byteRule(in, SomeKey, phase);
            for (std::size_t offset = 0; offset < 16; ++offset) {
                Bytes source(offset, 0);
                source.insert(source.end(), in.begin(), in.end());
                const std::size_t targetOffset = 15 - offset;
                Bytes target(targetOffset + length + 1, Untouched);
                ql::impl::unmask(target.data() + targetOffset, source.data() + offset, length, SomeKey.data(), phase);

                Bytes wanted(targetOffset, Untouched);
                wanted.insert(wanted.end(), expected.begin(), expected.end());
                wanted.push_back(Untouched);
                ASSERT_EQ(target, wanted) << "length " << length << " phase " << phase << " offset " << offset;
            }
        }
    }
}

TEST(Unmask, PiecesOfAnyLengthEqualTheWhole) {
    const Bytes in = pattern(300);
    const Bytes expected = byteRule(in, SomeKey, 0);
    for (std::size_t split = 0; split <= in.size(); ++split) {
        Bytes out(in.size());
        ql::impl::unmask(out.data(), in.data(), split, SomeKey.data(), 0);
        ql::impl::unmask(out.data() + split, in.data() + split, in.size() - split, SomeKey.data(), split % 4);
        ASSERT_EQ(out, expected) << "split at " << split;
    }
}

TEST(Unmask, InPlaceEqualsTheByteRuleForAllLengthsAndPhases) {
    for (std::size_t length = 0; length <= 300; ++length) {
        for (std::size_t phase = 0; phase < 4; ++phase) {
            Bytes bytes = pattern(length);
            const Bytes expected = byteRule(bytes, SomeKey, phase);
            ql::impl::unmask(bytes.data(), bytes.data(), length, SomeKey.data(), phase);
            ASSERT_EQ(bytes, expected) << "length " << length << " phase " << phase;
        }
    }
}
