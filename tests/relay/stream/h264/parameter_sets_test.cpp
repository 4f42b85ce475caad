// Completion of parameter sets from real encoders, of thousands of random sets, and of invalid data.
#include "relay/stream/h264/parameter_sets.h"

#include <random>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "relay/stream/h264/bits.h"
#include "relay/stream/h264/known_sets.h"

namespace vlk::relay {
namespace {

TEST(H264ParameterSet, ParameterSetsOfRealEncodersAreCompletedAsExpected) {
  for (const KnownSet& known : kKnownSets) {
    const Bytes before = from_hex(known.before);
    EXPECT_EQ(complete_parameter_set(before, true), from_hex(known.in_order)) << known.encoder;
    EXPECT_EQ(complete_parameter_set(before, false), from_hex(known.order_unknown)) << known.encoder;
    // A set that was completed already stays unchanged.
    EXPECT_EQ(complete_parameter_set(from_hex(known.in_order), true), from_hex(known.in_order))
        << known.encoder;
  }
}

// Writes a random parameter set field by field. With the same seed, all sets have the same fields except the
// colours and the bitstream restriction: these are random, as from an encoder, or as complete_parameter_set
// must write them if `completed` is true.
class RandomSet {
 public:
  RandomSet(unsigned seed, bool completed, bool in_order)
      : random_(seed), completed_(completed), in_order_(in_order) {}

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
    const bool has_vui = draw(1) == 1;
    out_.bits(has_vui || completed_, 1);
    if (has_vui) {
      vui();
    } else if (completed_) {
      out_.bits(0, 2);
      colours();
      out_.bits(0, 5);
      restriction(false);
    }
    return with_emulation_bytes(out_.finish());
  }

 private:
  std::uint32_t draw(std::uint32_t most) {
    return std::uniform_int_distribution<std::uint32_t>(0, most)(random_);
  }
  std::uint32_t pick(const std::vector<std::uint32_t>& list) {
    return list[draw(static_cast<std::uint32_t>(list.size()) - 1)];
  }
  std::uint32_t any(unsigned count) {
    // About a third of the values are 0, so that emulation prevention bytes are frequent.
    const std::uint32_t value = draw(2) == 0 ? 0 : draw(0xFFFFFFFF) >> (32 - count);
    out_.bits(value, count);
    return value;
  }
  std::uint32_t any_golomb(std::uint32_t most) {
    const std::uint32_t value = draw(most);
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
    const int end = draw(1) == 1 ? static_cast<int>(draw(static_cast<std::uint32_t>(size) - 1)) : size;
    for (int i = 0; i < size; ++i) {
      const int next = i == end ? 0 : 1 + static_cast<int>(draw(254));
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
    if (completed_) return out_.bits(0b1'101'0'1'00000001'00001101'00000110, 30);
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
    // The encoder's colours are drawn even if they are not used, so that later fields get the same random
    // numbers.
    BitWriter kept = out_;
    const bool completed = std::exchange(completed_, false);
    colours();
    completed_ = completed;
    if (completed) {
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
  void restriction(bool may_be_present) {
    const bool present = may_be_present && draw(1) == 1;
    const bool promise = completed_ && in_order_;
    out_.bits(present || promise, 1);
    if (present) {
      any(1);
      golombs(4);
    } else if (promise) {
      out_.bits(1, 1);
      for (const std::uint32_t value : {0u, 0u, 15u, 15u})
        out_.golomb(value);
    }
    const std::uint32_t reorder = draw(16);
    const std::uint32_t buffering = draw(16);
    if (!present && !promise) return;
    out_.golomb(promise ? 0 : reorder);
    out_.golomb(promise ? refs_ : buffering);
  }

  std::mt19937 random_;
  bool completed_;
  const bool in_order_;
  std::uint32_t refs_ = 0;
  BitWriter out_;
};

TEST(H264ParameterSet, CompletionOfRandomSetsChangesOnlyTheColourAndReorderingFields) {
  for (unsigned seed = 0; seed < 10'000; ++seed) {
    const Bytes before = RandomSet(seed, false, false).build();
    for (const bool in_order : {false, true}) {
      const auto complete = complete_parameter_set(before, in_order);
      ASSERT_TRUE(complete) << "seed " << seed;
      ASSERT_EQ(*complete, RandomSet(seed, true, in_order).build()) << "seed " << seed;
    }
  }
}

TEST(H264ParameterSet, TruncatedSetsAreNotCompleted) {
  for (const KnownSet& known : kKnownSets) {
    const Bytes whole = from_hex(known.before);
    for (std::size_t size = 0; size < whole.size(); ++size)
      EXPECT_FALSE(complete_parameter_set(std::span(whole).first(size), true))
          << known.encoder << ", " << size;
  }
}

TEST(H264ParameterSet, SetsWithExcessBytesAreNotCompletedNorAreUnitsOfOtherTypes) {
  Bytes unit = from_hex(kKnownSets[0].before);
  unit.push_back(0x80);
  EXPECT_FALSE(complete_parameter_set(unit, true));
  unit.pop_back();
  unit[0] = 0x68;
  EXPECT_FALSE(complete_parameter_set(unit, true));
}

TEST(H264ParameterSet, CompletionDoesNotCrashOnRandomBytesAndASecondCompletionChangesNothing) {
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

}  // namespace
}  // namespace vlk::relay
