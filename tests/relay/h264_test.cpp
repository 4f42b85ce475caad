// Parameter sets of real encoders, of thousands of random ones and of none at all, and whole streams with
// them.
#include <random>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "relay/h264/bits.h"
#include "relay/h264/parameter_sets.h"
#include "relay/h264/stream.h"

namespace vlk::relay {
namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes from_hex(const std::string& hex) {
  Bytes bytes;
  for (std::size_t i = 0; i < hex.size(); i += 2)
    bytes.push_back(static_cast<std::uint8_t>(std::stoul(hex.substr(i, 2), nullptr, 16)));
  return bytes;
}

struct Known {
  const char* encoder;
  const char* before;
  const char* in_order;  // with the promise
  const char* as_said;   // without it
};

// The results were read with FFmpeg's own parser (its bitstream filter trace_headers) when they were written
// down.
const Known kKnown[] = {
    {"x264, baseline", "6742c00cda05067e7c04400000030040000007a3c50aa8",
     "6742c00cda05067e7c05a80868320000030002000003003d1e285540",
     "6742c00cda05067e7c05a80868320000030002000003003d1e285540"},
    {"x264, high, B frames", "6764000cacd941419f9f0110000003001000000301e0f1429960",
     "6764000cacd941419f9f016a021a0c80000003008000000f078a152c",
     "6764000cacd941419f9f016a021a0c80000003008000000f078a14cb"},
    {"x264, high, with all that it can say",
     "67640015ace81433f26034a0404034a0000003002000000303cc04003d08000f427258c07c50aa80",
     "67640015ace81433f26036a021a0d4a0000003002000000303cc04003d08000f427258c07c50aa80",
     "67640015ace81433f26036a021a0d4a0000003002000000303cc04003d08000f427258c07c50aa80"},
    {"x264, high 4:4:4", "67f4000c919681419f8dc044000003000400000300783c50aa80",
     "67f4000c919681419f8dc05a80868320000003002000000303c1e28554",
     "67f4000c919681419f8dc05a80868320000003002000000303c1e28554"},
    {"x264, high, ten bits", "676e000ca6cd941419f9f0110000030001000003001e0f142996",
     "676e000ca6cd941419f9f016a021a0c8000003000800000300f078a152c0",
     "676e000ca6cd941419f9f016a021a0c8000003000800000300f078a14cb0"},
    {"OpenH264, main", "674d4c148c8d40a0cbcf00f08846a0", "674d4c148c8d40a0cbcf35010d0607844235",
     "674d4c148c8d40a0cbcf35010d0607844235"},
    {"OpenH264, without anything behind the size, as many encoders of systems have it",
     "674d4c148c8d40a0cbce80", "674d4c148c8d40a0cbcf35010d0607840215", "674d4c148c8d40a0cbcf35010d0602"},
};

TEST(H264ParameterSet, OfRealEncodersAreCompletedToTheBit) {
  for (const Known& known : kKnown) {
    const Bytes before = from_hex(known.before);
    EXPECT_EQ(complete_parameter_set(before, true), from_hex(known.in_order)) << known.encoder;
    EXPECT_EQ(complete_parameter_set(before, false), from_hex(known.as_said)) << known.encoder;
    // What is complete stays as it is.
    EXPECT_EQ(complete_parameter_set(from_hex(known.in_order), true), from_hex(known.in_order))
        << known.encoder;
  }
}

// Writes a parameter set field by field. The same seed gives the same set, with the colours and the
// restriction either as an encoder might have them or as they are to become.
class RandomSet {
 public:
  RandomSet(unsigned seed, bool finished, bool in_order)
      : random_(seed), finished_(finished), in_order_(in_order) {}

  Bytes build() {
    out_.bits(0x67, 8);
    const std::uint32_t profile = pick({66, 77, 88, 100, 110, 122, 244, 44, 118, 128});
    out_.bits(profile, 8);
    any(16);
    any_golomb(31);
    if (profile > 88 || profile == 44) chroma();
    any_golomb(12);
    picture_order();
    refs_ = any_golomb(16);
    any(1);
    any_golomb(500);
    any_golomb(500);
    if (any(1) == 0) any(1);
    any(1);
    if (any(1) == 1) golombs(4);
    const bool has_vui = roll(1) == 1;
    out_.bits(has_vui || finished_, 1);
    if (has_vui) {
      vui();
    } else if (finished_) {
      out_.bits(0, 2);
      colours();
      out_.bits(0, 5);
      restriction(false);
    }
    return with_emulation_bytes(out_.finish());
  }

 private:
  std::uint32_t roll(std::uint32_t most) {
    return std::uniform_int_distribution<std::uint32_t>(0, most)(random_);
  }
  std::uint32_t pick(const std::vector<std::uint32_t>& list) {
    return list[roll(static_cast<std::uint32_t>(list.size()) - 1)];
  }
  std::uint32_t any(unsigned count) {
    // Zeros are frequent, so that emulation bytes are.
    const std::uint32_t value = roll(2) == 0 ? 0 : roll(0xFFFFFFFF) >> (32 - count);
    out_.bits(value, count);
    return value;
  }
  std::uint32_t any_golomb(std::uint32_t most) {
    const std::uint32_t value = roll(most);
    out_.golomb(value);
    return value;
  }
  void golombs(int count) {
    for (int i = 0; i < count; ++i)
      any_golomb(i % 2 == 0 ? 9 : 0xFFFFFFFE);
  }

  void chroma() {
    const std::uint32_t format = any_golomb(3);
    if (format == 3) any(1);
    any_golomb(6);
    any_golomb(6);
    any(1);
    if (any(1) == 0) return;
    for (int i = 0; i < (format == 3 ? 12 : 8); ++i) {
      if (any(1) == 1) scaling_list(i < 6 ? 16 : 64);
    }
  }
  void scaling_list(int size) {
    int last = 8;
    const int end = roll(1) == 1 ? static_cast<int>(roll(static_cast<std::uint32_t>(size) - 1)) : size;
    for (int i = 0; i < size; ++i) {
      const int next = i == end ? 0 : 1 + static_cast<int>(roll(254));
      int delta = next - last;
      if (delta > 127) delta -= 256;
      if (delta < -128) delta += 256;
      out_.golomb(delta > 0 ? static_cast<std::uint32_t>(2 * delta - 1)
                            : static_cast<std::uint32_t>(-2 * delta));
      if (next == 0) return;
      last = next;
    }
  }
  void picture_order() {
    const std::uint32_t type = any_golomb(2);
    if (type == 0) any_golomb(12);
    if (type != 1) return;
    any(1);
    golombs(2);
    golombs(static_cast<int>(any_golomb(255)));
  }
  void colours() {
    if (finished_) return out_.bits(0b1'101'0'1'00000001'00001101'00000110, 30);
    if (any(1) == 0) return;
    any(4);
    if (any(1) == 1) any(24);
  }
  bool hrd() {
    if (any(1) == 0) return false;
    const std::uint32_t cpbs = any_golomb(31) + 1;
    any(8);
    for (std::uint32_t i = 0; i < cpbs; ++i) {
      golombs(2);
      any(1);
    }
    any(20);
    return true;
  }
  void vui() {
    if (any(1) == 1) {
      const std::uint32_t aspect = pick({0, 1, 14, 255});
      out_.bits(aspect, 8);
      if (aspect == 255) any(32);
    }
    if (any(1) == 1) any(1);
    // The encoder's colours are rolled in both cases, so that what follows is the same.
    BitWriter kept = out_;
    const bool finished = std::exchange(finished_, false);
    colours();
    finished_ = finished;
    if (finished) {
      out_ = std::move(kept);
      colours();
    }
    if (any(1) == 1) golombs(2);
    if (any(1) == 1) any(32), any(32), any(1);
    const bool nal = hrd();
    const bool vcl = hrd();
    if (nal || vcl) any(1);
    any(1);
    restriction(true);
  }
  void restriction(bool may_be_there) {
    const bool there = may_be_there && roll(1) == 1;
    const bool promise = finished_ && in_order_;
    out_.bits(there || promise, 1);
    if (there) {
      any(1);
      golombs(4);
    } else if (promise) {
      out_.bits(1, 1);
      for (const std::uint32_t value : {0u, 0u, 15u, 15u})
        out_.golomb(value);
    }
    const std::uint32_t reorder = roll(16);
    const std::uint32_t buffering = roll(16);
    if (!there && !promise) return;
    out_.golomb(promise ? 0 : reorder);
    out_.golomb(promise ? refs_ : buffering);
  }

  std::mt19937 random_;
  bool finished_;
  const bool in_order_;
  std::uint32_t refs_ = 0;
  BitWriter out_;
};

TEST(H264ParameterSet, TenThousandRandomOnesKeepAllElseBitForBit) {
  for (unsigned seed = 0; seed < 10'000; ++seed) {
    const Bytes before = RandomSet(seed, false, false).build();
    for (const bool in_order : {false, true}) {
      const auto complete = complete_parameter_set(before, in_order);
      ASSERT_TRUE(complete) << "seed " << seed;
      ASSERT_EQ(*complete, RandomSet(seed, true, in_order).build()) << "seed " << seed;
    }
  }
}

TEST(H264ParameterSet, TruncatedOnesAreLeftAlone) {
  for (const Known& known : kKnown) {
    const Bytes whole = from_hex(known.before);
    for (std::size_t size = 0; size < whole.size(); ++size)
      EXPECT_FALSE(complete_parameter_set(std::span(whole).first(size), true))
          << known.encoder << ", " << size;
  }
}

TEST(H264ParameterSet, ExcessAndOtherUnitsAreLeftAlone) {
  Bytes unit = from_hex(kKnown[0].before);
  unit.push_back(0x80);
  EXPECT_FALSE(complete_parameter_set(unit, true));
  unit.pop_back();
  unit[0] = 0x68;
  EXPECT_FALSE(complete_parameter_set(unit, true));
}

TEST(H264ParameterSet, RandomBytesNeverMakeTrouble) {
  std::mt19937 random(7);
  for (int i = 0; i < 20'000; ++i) {
    Bytes unit(random() % 64);
    for (std::uint8_t& byte : unit)
      byte = static_cast<std::uint8_t>(random() % 3 == 0 ? 0 : random());
    if (!unit.empty()) unit[0] = 0x67;
    const auto complete = complete_parameter_set(unit, true);
    if (complete) {
      EXPECT_EQ(complete_parameter_set(*complete, true), complete);
    }
  }
}

const Bytes kStart = {0, 0, 0, 1};
const Bytes kShortStart = {0, 0, 1};

Bytes joined(std::initializer_list<Bytes> parts) {
  Bytes all;
  for (const Bytes& part : parts)
    all.insert(all.end(), part.begin(), part.end());
  return all;
}

// A slice unit of that type, as far as anybody here reads it.
Bytes slice(std::uint32_t slice_type, std::uint8_t header = 0x41) {
  BitWriter writer;
  writer.bits(header, 8);
  writer.golomb(0);
  writer.golomb(slice_type);
  writer.bits(0xABCDEF, 24);
  return with_emulation_bytes(writer.finish());
}

const Bytes kSet = from_hex(kKnown[6].before);
const Bytes kInOrder = from_hex(kKnown[6].in_order);
const Bytes kAsSaid = from_hex(kKnown[6].as_said);
const Bytes kPictureSet = {0x68, 0xce, 0x3c, 0x80};
const Bytes kHead = {83, 0, 0, 0, 0, 7, 0, 0, 0, 0};  // anything in front of the stream
constexpr std::uint32_t kP = 5, kB = 6, kI = 7;

TEST(H264Stream, KeyFramesGetTheirParameterSetAndKeepTheRest) {
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
    EXPECT_TRUE(H264Stream().pass(message, kHead.size()));
    EXPECT_EQ(message, frame(kInOrder));
  }
}

TEST(H264Stream, OtherFramesPassUntouched) {
  H264Stream stream;
  const Bytes frames[] = {joined({kHead, kStart, slice(kP)}),
                          kHead,
                          joined({kHead, kStart}),
                          joined({kHead, {0, 0}}),
                          joined({kHead, {0xff, 0xd8}, kStart, kSet}),
                          joined({kHead, {9}, kStart, kSet}),
                          joined({kHead, {9}, kShortStart, kSet})};
  for (const Bytes& frame : frames) {
    Bytes message = frame;
    EXPECT_TRUE(stream.pass(message, kHead.size()));
    EXPECT_EQ(message, frame);
  }
  Bytes message = kHead;
  EXPECT_TRUE(stream.pass(message, kHead.size() + 1));
  EXPECT_EQ(message, kHead);
}

TEST(H264Stream, AParameterSetThatIsNotUnderstoodPassesUntouched) {
  const Bytes frame = joined({kHead, kStart, from_hex("6742c0"), kStart, slice(kI, 0x65)});
  Bytes message = frame;
  EXPECT_TRUE(H264Stream().pass(message, kHead.size()));
  EXPECT_EQ(message, frame);
}

TEST(H264Stream, ABFrameEndsThePromiseAndAsksOnceForAKeyFrame) {
  H264Stream stream;
  const auto key = [](const Bytes& set) { return joined({kHead, kStart, set, kStart, slice(kI, 0x65)}); };
  const auto send = [&](Bytes message) {
    const bool whole = stream.pass(message, kHead.size());
    return std::pair(whole, message);
  };
  EXPECT_EQ(send(key(kSet)), std::pair(true, key(kInOrder)));
  EXPECT_TRUE(send(joined({kHead, kStart, slice(kP)})).first);
  EXPECT_FALSE(send(joined({kHead, kStart, slice(kB)})).first);
  EXPECT_TRUE(send(joined({kHead, kStart, slice(kB)})).first);
  EXPECT_EQ(send(key(kSet)), std::pair(true, key(kAsSaid)));
  EXPECT_TRUE(send(joined({kHead, kStart, slice(1)})).first);
}

TEST(H264Stream, AMessageThatHoldsItsBFramesBehindTheKeyFrameGetsNoPromise) {
  const auto frame = [](const Bytes& set) {
    return joined({kHead, kStart, set, kStart, slice(kI, 0x65), kStart, slice(kP), kStart, slice(kB)});
  };
  Bytes message = frame(kSet);
  EXPECT_TRUE(H264Stream().pass(message, kHead.size()));
  EXPECT_EQ(message, frame(kAsSaid));
}

TEST(H264Stream, EveryTruncationAndManyRandomBytesPassWithoutHarm) {
  const Bytes whole = joined({kHead, kStart, kSet, kStart, kPictureSet, kStart, slice(kI, 0x65)});
  for (std::size_t size = kHead.size(); size <= whole.size(); ++size) {
    Bytes message(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
    H264Stream().pass(message, kHead.size());
  }
  std::mt19937 random(11);
  H264Stream stream;
  for (int i = 0; i < 5'000; ++i) {
    Bytes message = joined({kHead, kStart});
    for (std::size_t left = random() % 200; left-- > 0;)
      message.push_back(static_cast<std::uint8_t>(random() % 4 == 0 ? random() : random() % 4));
    const Bytes head(message.begin(), message.begin() + 10);
    stream.pass(message, kHead.size());
    ASSERT_EQ(Bytes(message.begin(), message.begin() + 10), head);
  }
}

}  // namespace
}  // namespace vlk::relay
