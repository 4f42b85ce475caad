// Completion of the parameter sets in whole H.264 streams.
#include "relay/stream/h264/stream.h"

#include <initializer_list>
#include <random>
#include <utility>

#include <gtest/gtest.h>

#include "relay/stream/h264/bits.h"
#include "relay/stream/h264/known_sets.h"

namespace vlk::relay {
namespace {

const Bytes kStart = {0, 0, 0, 1};
const Bytes kShortStart = {0, 0, 1};

Bytes joined(std::initializer_list<Bytes> parts) {
  Bytes all;
  for (const Bytes& part : parts)
    all.insert(all.end(), part.begin(), part.end());
  return all;
}

// The beginning of a slice unit of type `slice_type`. The code under test does not read more of a slice.
Bytes slice(std::uint32_t slice_type, std::uint8_t header = 0x41) {
  BitWriter writer;
  writer.bits(header, 8);
  writer.golomb(0);
  writer.golomb(slice_type);
  writer.bits(0xABCDEF, 24);
  return with_emulation_bytes(writer.finish());
}

const Bytes kSet = from_hex(kKnownSets[6].before);
const Bytes kInOrder = from_hex(kKnownSets[6].in_order);
const Bytes kOrderUnknown = from_hex(kKnownSets[6].order_unknown);
const Bytes kPictureSet = {0x68, 0xce, 0x3c, 0x80};
const Bytes kHead = {83, 0, 0, 0, 0, 7, 0, 0, 0, 0};  // bytes before the stream, as an envelope's header
constexpr std::uint32_t kP = 5, kB = 6, kI = 7;       // values of slice_type

TEST(H264Stream, NeedsOfAPictureAreThoseOfItsFirstSlice) {
  const Bytes idr = slice(7, 0x65), delta = slice(5), partition = slice(5, 0x42);
  const struct {
    Bytes picture;
    PictureNeeds needs;
  } rows[] = {
      {joined({kStart, idr}), PictureNeeds::Nothing},
      {joined({kStart, kSet, kStart, kPictureSet, kShortStart, idr}), PictureNeeds::Nothing},
      {joined({kStart, delta}), PictureNeeds::Earlier},
      {joined({kStart, partition}), PictureNeeds::Earlier},
      {joined({kStart, {0x09, 0xf0}, kStart, delta, kStart, idr}), PictureNeeds::Earlier},
      {joined({kStart, kSet}), PictureNeeds::Nothing},
      {joined({{0xff, 0xd8, 0xff}, kStart, delta}), PictureNeeds::NoStream},
      {kStart, PictureNeeds::Nothing},
      {{}, PictureNeeds::NoStream},
  };
  for (const auto& row : rows)
    EXPECT_EQ(needs_of(row.picture), row.needs) << testing::PrintToString(row.picture);
}

TEST(H264Stream, ParameterSetsOfKeyFramesAreCompletedAndOtherUnitsAreKept) {
  for (const Bytes& start : {kStart, kShortStart}) {
    const auto frame = [&](const Bytes& set) {
      return joined({kHead,
                     start,
                     set,
                     {0, 0},
                     kStart,
                     kPictureSet,
                     kShortStart,
                     slice(kI, 0x65),
                     kStart,
                     set,
                     kShortStart,
                     slice(kI, 0x65)});
    };
    Bytes message = frame(kSet);
    EXPECT_TRUE(H264Stream().complete(message, kHead.size()));
    EXPECT_EQ(message, frame(kInOrder));
  }
}

TEST(H264Stream, ParameterSetAfterAnyNumberOfLeadingZerosIsCompletedAndTheZerosAreKept) {
  for (const std::size_t zeros : {0u, 1u, 2u, 3u, 8u, 1000u}) {
    const auto frame = [&](const Bytes& set) {
      return joined({kHead, Bytes(zeros), kShortStart, set, kShortStart, slice(kI, 0x65)});
    };
    Bytes message = frame(kSet);
    EXPECT_TRUE(H264Stream().complete(message, kHead.size()));
    EXPECT_EQ(message, frame(kInOrder)) << zeros << " zeros";
  }
}

TEST(H264Stream, FramesWithoutParameterSetsStayUnchangedAndSoDoesOtherContent) {
  H264Stream stream;
  const Bytes frames[] = {joined({kHead, kStart, slice(kP)}),
                          kHead,
                          joined({kHead, kStart}),
                          joined({kHead, {0, 0}}),
                          joined({kHead, Bytes(1000)}),
                          joined({kHead, {0, 0, 0, 0, 0, 2}, kStart, kSet}),
                          joined({kHead, {0xff, 0xd8}, kStart, kSet}),
                          joined({kHead, {9}, kStart, kSet}),
                          joined({kHead, {9}, kShortStart, kSet})};
  for (const Bytes& frame : frames) {
    Bytes message = frame;
    EXPECT_TRUE(stream.complete(message, kHead.size()));
    EXPECT_EQ(message, frame);
  }
  Bytes message = kHead;
  EXPECT_TRUE(stream.complete(message, kHead.size() + 1));
  EXPECT_EQ(message, kHead);
}

TEST(H264Stream, ParameterSetThatCannotBeParsedStaysUnchanged) {
  const Bytes frame = joined({kHead, kStart, from_hex("6742c0"), kStart, slice(kI, 0x65)});
  Bytes message = frame;
  EXPECT_TRUE(H264Stream().complete(message, kHead.size()));
  EXPECT_EQ(message, frame);
}

TEST(H264Stream, FirstBFrameAfterADeclaredFrameOrderIsReportedOnceAndLaterSetsDeclareNoFrameOrder) {
  H264Stream stream;
  const auto key = [](const Bytes& set) { return joined({kHead, kStart, set, kStart, slice(kI, 0x65)}); };
  const auto send = [&](Bytes message) {
    const bool whole = stream.complete(message, kHead.size());
    return std::pair(whole, message);
  };
  EXPECT_EQ(send(key(kSet)), std::pair(true, key(kInOrder)));
  EXPECT_TRUE(send(joined({kHead, kStart, slice(kP)})).first);
  EXPECT_FALSE(send(joined({kHead, kStart, slice(kB)})).first);
  EXPECT_TRUE(send(joined({kHead, kStart, slice(kB)})).first);
  EXPECT_EQ(send(key(kSet)), std::pair(true, key(kOrderUnknown)));
  EXPECT_TRUE(send(joined({kHead, kStart, slice(1)})).first);
}

TEST(H264Stream, BSlicesAreThoseOfWholeSlicesAndOfTheFirstPartition) {
  for (std::uint8_t unit = 0; unit < 32; ++unit) {
    if (unit == 7) continue;  // a parameter set, which the bits of a slice are not
    H264Stream stream;
    Bytes key = joined({kHead, kStart, kSet, kStart, slice(kI, 0x65)});
    EXPECT_TRUE(stream.complete(key, kHead.size()));
    Bytes message = joined({kHead, kStart, slice(kB, unit)});
    EXPECT_EQ(stream.complete(message, kHead.size()), unit != 1 && unit != 2) << int{unit};
  }
}

TEST(H264Stream, ParameterSetInAMessageThatHasABFrameDeclaresNoFrameOrder) {
  const auto frame = [](const Bytes& set) {
    return joined({kHead, kStart, set, kStart, slice(kI, 0x65), kStart, slice(kP), kStart, slice(kB)});
  };
  Bytes message = frame(kSet);
  EXPECT_TRUE(H264Stream().complete(message, kHead.size()));
  EXPECT_EQ(message, frame(kOrderUnknown));
}

TEST(H264Stream, BytesBeforeATruncatedOrRandomStreamAreKept) {
  const Bytes whole = joined({kHead, kStart, kSet, kStart, kPictureSet, kStart, slice(kI, 0x65)});
  for (std::size_t size = kHead.size(); size <= whole.size(); ++size) {
    Bytes message(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
    (void)H264Stream().complete(message, kHead.size());
    ASSERT_EQ(Bytes(message.begin(), message.begin() + 10), kHead);
  }
  std::mt19937 random(11);
  H264Stream stream;
  for (int i = 0; i < 5'000; ++i) {
    Bytes message = joined({kHead, kStart});
    for (std::size_t left = random() % 200; left-- > 0;)
      message.push_back(static_cast<std::uint8_t>(random() % 4 == 0 ? random() : random() % 4));
    const Bytes head(message.begin(), message.begin() + 10);
    (void)stream.complete(message, kHead.size());
    ASSERT_EQ(Bytes(message.begin(), message.begin() + 10), head);
  }
}

}  // namespace
}  // namespace vlk::relay
