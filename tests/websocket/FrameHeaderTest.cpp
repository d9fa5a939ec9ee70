#include "websocket/FrameHeader.h"

#include "websocket/Frames.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <optional>
#include <span>

using namespace wstest;
using ql::impl::FrameHeader;
using ql::impl::FrameStatus;
using ql::impl::FrameType;

namespace {

constexpr unsigned char TextFin = 0x81;
constexpr unsigned char BinaryFin = 0x82;

/// As if `size` bytes were there, of which `data` are the first. No byte more than announced is shown, so that a look
/// behind the end would be noticed.
FrameHeader readHeader(const Bytes& data, std::uint64_t size, bool isMessageOpen = false) {
    const std::size_t shown =
        static_cast<std::size_t>(std::min<std::uint64_t>({data.size(), size, ql::impl::MostHeaderBytesRead}));
    const Bytes front(data.begin(), data.begin() + static_cast<std::ptrdiff_t>(shown));
    return ql::impl::readFrameHeader(front, size, isMessageOpen);
}

Bytes writeHeader(FrameType type, bool isFinal, std::uint64_t length, bool isCompressed = false) {
    std::array<unsigned char, ql::impl::MostHeaderBytesWritten> out;
    out.fill(0xEE);
    const std::size_t size = ql::impl::writeFrameHeader(out, type, isFinal, length, isCompressed);
    EXPECT_TRUE(std::all_of(out.begin() + static_cast<std::ptrdiff_t>(size), out.end(), [](unsigned char byte) {
        return byte == 0xEE;
    })) << "bytes behind the header";
    return {out.begin(), out.begin() + static_cast<std::ptrdiff_t>(size)};
}

} // namespace

TEST(ReadFrameHeader, FewerThanSixBytesAreIncomplete) {
    for (std::uint64_t size = 0; size < 6; ++size) {
        const FrameHeader header = readHeader(Bytes(14, 0x8B), size);
        EXPECT_EQ(header.status, FrameStatus::Incomplete) << size;
        EXPECT_EQ(header.isFinal, std::nullopt) << size;
    }
}

TEST(ReadFrameHeader, ReadsEachLengthForm) {
    struct Row {
        LengthForm form;
        std::uint64_t payload;
        std::uint64_t header;
    };
    for (const Row& row :
         {Row{LengthForm::Shortest, 0, 6}, Row{LengthForm::Shortest, 125, 6}, Row{LengthForm::Bits16, 0, 8},
          Row{LengthForm::Bits16, 126, 8}, Row{LengthForm::Bits16, 65535, 8}, Row{LengthForm::Bits64, 3, 14},
          Row{LengthForm::Bits64, 0x0102030405060708, 14}}) {
        const Bytes data = clientHeader(BinaryFin, row.payload, row.form);
        const FrameHeader exact = readHeader(data, row.header + row.payload);
        EXPECT_EQ(exact.status, FrameStatus::Whole);
        EXPECT_EQ(exact.payloadBytes, row.payload);
        EXPECT_EQ(exact.headerBytes, row.header);
        EXPECT_EQ(exact.maskKey, SomeKey);
        EXPECT_EQ(exact.isFinal, true);
        EXPECT_EQ(exact.isBinary, true);

        EXPECT_EQ(readHeader(data, row.header + row.payload + 1).status, FrameStatus::Whole);

        const FrameHeader less = readHeader(data, row.header + row.payload - 1);
        EXPECT_EQ(less.status, FrameStatus::Incomplete);
        EXPECT_EQ(less.headerBytes, 0U);
        EXPECT_EQ(less.maskKey, MaskKey{});
    }
}

TEST(ReadFrameHeader, AnnouncesThePayloadOfAnIncompleteFrame) {
    EXPECT_EQ(readHeader(clientHeader(TextFin, 300), 8).payloadBytes, 300U);
    EXPECT_EQ(readHeader(clientHeader(TextFin, 70000), 10).payloadBytes, 70000U);
    EXPECT_EQ(readHeader(clientHeader(TextFin, 70000), 9).payloadBytes, std::nullopt) << "not yet known";
}

TEST(ReadFrameHeader, LongFormWithFewerThanTenBytesIsIncomplete) {
    const Bytes data = clientHeader(TextFin, 0, LengthForm::Bits64);
    for (std::uint64_t size = 6; size < 14; ++size) {
        EXPECT_EQ(readHeader(data, size).status, FrameStatus::Incomplete) << size;
    }
    EXPECT_EQ(readHeader(data, 14).status, FrameStatus::Whole);
}

TEST(ReadFrameHeader, SumOfHeaderAndPayloadDoesNotWrap) {
    for (std::uint64_t below = 1; below <= 32; ++below) {
        const Bytes data = clientHeader(TextFin, 0 - below, LengthForm::Bits64);
        EXPECT_EQ(readHeader(data, 1000).status, FrameStatus::Incomplete) << below;
    }
}

TEST(ReadFrameHeader, RejectedClassIsInvalid) {
    for (const unsigned char first : Bytes{0x03, 0x83, 0x87, 0x8B, 0x8F}) {
        EXPECT_EQ(readHeader(clientHeader(first, 100), 6, true).status, FrameStatus::Invalid);
        EXPECT_EQ(readHeader(clientHeader(first, 100000), 6, true).status, FrameStatus::Invalid)
            << "whatever length follows";
    }
}

TEST(ReadFrameHeader, ContinuationIsInvalidOnlyWhileNoMessageIsOpen) {
    for (const unsigned char first : Bytes{0x00, 0x80, 0x88, 0x04}) {
        const Bytes data = clientHeader(first, 0);
        EXPECT_EQ(readHeader(data, 6, false).status, FrameStatus::Invalid);

        const FrameHeader continuing = readHeader(data, 6, true);
        EXPECT_EQ(continuing.status, FrameStatus::Whole);
        EXPECT_EQ(continuing.isFinal, (first & 0x80) != 0);
    }
}

TEST(ReadFrameHeader, ContinuationHasNoTypeOfItsOwn) {
    EXPECT_EQ(readHeader(clientHeader(0x00, 0), 6, true).isBinary, std::nullopt);
    EXPECT_EQ(readHeader(clientHeader(0x01, 0), 6, true).isBinary, false);
    EXPECT_EQ(readHeader(clientHeader(0x02, 0), 6, true).isBinary, true);
}

TEST(WriteFrameHeader, FirstByteHoldsTypeAndFin) {
    EXPECT_EQ(writeHeader(FrameType::Text, true, 5), (Bytes{0x81, 5}));
    EXPECT_EQ(writeHeader(FrameType::Binary, true, 5), (Bytes{0x82, 5}));
    EXPECT_EQ(writeHeader(FrameType::Text, false, 5), (Bytes{0x01, 5}));
    EXPECT_EQ(writeHeader(FrameType::Binary, false, 5), (Bytes{0x02, 5}));
    EXPECT_EQ(writeHeader(FrameType::Continuation, false, 5), (Bytes{0x00, 5}));
    EXPECT_EQ(writeHeader(FrameType::Continuation, true, 5), (Bytes{0x80, 5}));
    EXPECT_EQ(writeHeader(FrameType::Close, true, 5), (Bytes{0x88, 5}));
    EXPECT_EQ(writeHeader(FrameType::Ping, true, 5), (Bytes{0x89, 5}));
    EXPECT_EQ(writeHeader(FrameType::Pong, true, 5), (Bytes{0x8A, 5}));
    EXPECT_EQ(writeHeader(FrameType::Text, true, 5, true), (Bytes{0xC1, 5}));
    EXPECT_EQ(writeHeader(FrameType::Binary, false, 5, true), (Bytes{0x42, 5}));
}

TEST(WriteFrameHeader, LengthTakesTheShortestForm) {
    const auto lengthOnly = [](std::uint64_t length) { return writeHeader(FrameType::Binary, true, length); };
    EXPECT_EQ(lengthOnly(0), (Bytes{0x82, 0}));
    EXPECT_EQ(lengthOnly(125), (Bytes{0x82, 125}));
    EXPECT_EQ(lengthOnly(126), (Bytes{0x82, 126, 0, 126}));
    EXPECT_EQ(lengthOnly(65535), (Bytes{0x82, 126, 0xFF, 0xFF}));
    EXPECT_EQ(lengthOnly(65536), (Bytes{0x82, 127, 0, 0, 0, 0, 0, 1, 0, 0}));
    EXPECT_EQ(lengthOnly(0x0102030405060708), (Bytes{0x82, 127, 1, 2, 3, 4, 5, 6, 7, 8}));
}
