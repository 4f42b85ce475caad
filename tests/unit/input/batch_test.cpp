// Input batches: the record of each event, the errors that discard a batch, and the mapping of the pointer.
#include "input/batch.h"

#include <algorithm>
#include <limits>
#include <memory>
#include <random>
#include <string>

#include <gtest/gtest.h>

namespace vlk::agent {
namespace {

using Bytes = std::vector<unsigned char>;
using Records = std::vector<InputRecord>;

constexpr DesktopRect kDesktop{0, 0, 3840, 1080};
constexpr DesktopRect kMonitor{0, 0, 1920, 1080};

// Parses a copy in memory of exactly its size, so that AddressSanitizer reports a read past the end.
std::optional<Records> parse(const Bytes& payload, std::vector<KeyEvent>* keys = nullptr) {
  const std::unique_ptr<unsigned char[]> exact(new unsigned char[payload.size()]);
  std::copy(payload.begin(), payload.end(), exact.get());
  return ParseInputBatch(exact.get(), payload.size(),
                         {[] { return kDesktop; }, [] { return kMonitor; },
                          [&](const KeyEvent& key) {
                            if (keys != nullptr) keys->push_back(key);
                          }});
}

const Bytes kMoveToEnd = {1, 0xFF, 0x7F, 0xFF, 0x7F};

Bytes batch(int count, std::initializer_list<Bytes> events) {
  Bytes payload{static_cast<unsigned char>(count)};
  for (const Bytes& event : events)
    payload.insert(payload.end(), event.begin(), event.end());
  return payload;
}

TEST(InputBatch, MoveIsAbsoluteOnTheVirtualDesktop) {
  const auto records = parse(batch(1, {kMoveToEnd}));
  ASSERT_TRUE(records);
  EXPECT_EQ(*records, (Records{{.dx = 32758, .dy = 65535, .flags = 0xC001}}));
}

TEST(InputBatch, ButtonsArePressedAndReleasedWithoutAPosition) {
  const std::uint32_t flags[3][2] = {{0x0004, 0x0002}, {0x0010, 0x0008}, {0x0040, 0x0020}};
  for (unsigned char button = 1; button <= 3; ++button) {
    for (const unsigned char pressed : Bytes{0, 1, 255}) {
      const auto records = parse(batch(1, {{2, button, pressed}}));
      ASSERT_TRUE(records);
      EXPECT_EQ(*records, (Records{{.flags = flags[button - 1][pressed != 0]}}));
    }
  }
}

TEST(InputBatch, WheelAmountIsSignExtended) {
  EXPECT_EQ(*parse(batch(1, {{3, 120, 0}})), (Records{{.mouse_data = 120, .flags = 0x0800}}));
  EXPECT_EQ(*parse(batch(1, {{3, 0x88, 0xFF}})), (Records{{.mouse_data = 0xFFFFFF88, .flags = 0x0800}}));
}

struct KeyCase {
  unsigned char down, ext;
  std::uint16_t vk;
  std::uint32_t flags;
};

TEST(InputBatch, KeyFlagsFollowFromTheFieldsDownAndExt) {
  const KeyCase cases[] = {{1, 0, 0x1234, 0}, {0, 0, 0x1234, 2}, {1, 1, 0x1234, 1}, {0, 1, 0x1234, 3},
                           {9, 3, 0x1234, 1}, {1, 2, 0, 4},      {0, 2, 0, 6},      {1, 255, 0x1234, 1}};
  for (const KeyCase& one : cases) {
    std::vector<KeyEvent> keys;
    const auto records = parse(batch(1, {{4, one.down, 0x34, 0x12, 0x78, 0x56, one.ext}}), &keys);
    ASSERT_TRUE(records);
    EXPECT_EQ(*records,
              (Records{{.kind = InputKind::Keyboard, .vk = one.vk, .scan = 0x5678, .flags = one.flags}}));
    ASSERT_EQ(keys.size(), 1u);
    EXPECT_EQ(keys[0].vk, 0x1234) << "the callback gets the original value, also for a Unicode key";
    EXPECT_EQ(keys[0].down, one.down);
    EXPECT_EQ(keys[0].ext, one.ext);
  }
}

TEST(InputBatch, EventsAfterACountOfZeroAreIgnored) {
  EXPECT_TRUE(parse(batch(0, {kMoveToEnd, {9, 9}}))->empty());
}

TEST(InputBatch, UnknownTypeDiscardsTheBatch) {
  for (const unsigned char type : Bytes{0, 5, 9, 255}) {
    EXPECT_FALSE(parse(batch(2, {kMoveToEnd, {type, 0, 0, 0, 0, 0, 0, 0, 0}}))) << int{type};
  }
}

TEST(InputBatch, TruncatedEventDiscardsTheBatch) {
  EXPECT_FALSE(parse(batch(2, {kMoveToEnd, {4, 1, 65, 0, 0, 0}})));
}

TEST(InputBatch, PayloadThatEndsBetweenEventsGivesTheEarlierEvents) {
  EXPECT_EQ(parse(batch(3, {{3, 120, 0}, {2, 1, 1}}))->size(), 2u);
  EXPECT_TRUE(parse(batch(200, {}))->empty());
}

TEST(InputBatch, EventsBeyondTheCountAreIgnored) {
  EXPECT_EQ(*parse(batch(1, {{3, 120, 0}, {2, 1, 1}})), (Records{{.mouse_data = 120, .flags = 0x0800}}));
}

TEST(InputBatch, UnknownButtonIsSkippedButCountsAsAnEvent) {
  const Bytes key = {4, 1, 65, 0, 0, 0, 0};
  for (const unsigned char button : Bytes{0, 4, 255}) {
    EXPECT_EQ(*parse(batch(2, {{2, button, 1}, key})), (Records{{.kind = InputKind::Keyboard, .vk = 65}}));
    EXPECT_TRUE(parse(batch(1, {{2, button, 1}, key}))->empty());
  }
}

TEST(InputBatch, BatchTruncatedAtAnyByteGivesCompleteEventsOrNothing) {
  const Bytes whole = batch(4, {kMoveToEnd, {2, 1, 1}, {3, 120, 0}, {4, 1, 65, 0, 0, 0, 0}});
  const std::size_t ends[] = {1, 6, 9, 12, 19};
  for (std::size_t length = 1; length <= whole.size(); ++length) {
    const auto records = parse(Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length)));
    const auto* const end = std::find(std::begin(ends), std::end(ends), length);
    ASSERT_EQ(records.has_value(), end != std::end(ends)) << length;
    if (records) {
      EXPECT_EQ(records->size(), static_cast<std::size_t>(end - std::begin(ends)));
    }
  }
}

TEST(InputBatch, DesktopAndMonitorRectanglesAreReadForEachMoveAndForNoOtherEvent) {
  const Bytes payload = batch(5, {kMoveToEnd, {2, 1, 1}, {3, 1, 0}, {4, 1, 65, 0, 0, 0, 0}, kMoveToEnd});
  std::string asked;
  (void)ParseInputBatch(payload.data(), payload.size(),
                        {[&] {
                           asked += "desktop ";
                           return kDesktop;
                         },
                         [&] {
                           asked += "monitor ";
                           return kMonitor;
                         },
                         [&](const KeyEvent&) { asked += "key "; }});
  EXPECT_EQ(asked, "desktop monitor key desktop monitor ");
}

TEST(InputBatch, CompleteKeyEventsAreReportedEvenIfALaterEventDiscardsTheBatch) {
  std::vector<KeyEvent> keys;
  EXPECT_FALSE(parse(batch(3, {{4, 1, 65, 0, 0, 0, 0}, {9}, {4, 1, 66, 0, 0, 0, 0}}), &keys));
  EXPECT_EQ(keys.size(), 1u);
  EXPECT_FALSE(parse(batch(2, {{4, 0, 65, 0, 0, 0, 0}, {4, 1, 66, 0, 0, 0}}), &keys));
  EXPECT_EQ(keys.size(), 2u);
}

TEST(InputBatch, RandomBytesNeverGiveMoreRecordsThanTheCount) {
  std::mt19937 random(7);
  for (int round = 0; round < 20000; ++round) {
    Bytes payload(random() % 64 + 1);
    for (unsigned char& byte : payload)
      byte = static_cast<unsigned char>(random() % 6);
    const auto records = parse(payload);
    if (records) {
      EXPECT_LE(records->size(), payload[0]);
    }
  }
}

struct MapCase {
  const char* name;
  std::int16_t x, y;
  DesktopRect desktop, monitor;
  std::int32_t dx, dy;
};

TEST(PointerMapping, ScalesMonitorCoordinatesToTheVirtualDesktop) {
  const MapCase cases[] = {
      {"last pixel of the left of two monitors",
       32767,
       32767,
       {0, 0, 3840, 1080},
       {0, 0, 1920, 1080},
       32758,
       65535},
      {"first pixel of a monitor left of the origin",
       0,
       0,
       {-1920, 0, 3840, 1080},
       {-1920, 0, 1920, 1080},
       0,
       0},
      {"no width known", 32767, 32767, {-100, -50, 1000, 500}, {5, 5, 0, 400}, 65535, 65535},
      {"no height known", 0, 0, {-100, -50, 1000, 500}, {5, 5, 400, 0}, 0, 0},
      {"negative size", 32767, 0, {0, 0, 1000, 500}, {5, 5, -1, 400}, 65535, 0},
      {"one pixel wide", 32767, 32767, {0, 0, 1, 1}, {0, 0, 1, 1}, 0, 0},
      {"empty desktop", 100, 100, {0, 0, 0, 0}, {0, 0, 0, 0}, 0, 0},
      {"left of the monitor", -32768, 0, {0, 0, 1280, 720}, {0, 0, 1280, 720}, -65537, 0},
      {"truncation goes toward zero", -1, 0, {0, 0, 1280, 720}, {0, 0, 1280, 720}, -2, 0},
      {"second pixel from the left and from the top", 26, 46, {0, 0, 1280, 720}, {0, 0, 1280, 720}, 52, 92},
  };
  for (const MapCase& one : cases) {
    const InputRecord record = MapPointer(one.x, one.y, one.desktop, one.monitor);
    EXPECT_EQ(record.dx, one.dx) << one.name;
    EXPECT_EQ(record.dy, one.dy) << one.name;
  }
}

TEST(PointerMapping, HugeRectanglesDoNotOverflow) {
  constexpr std::int32_t kMax = std::numeric_limits<std::int32_t>::max();
  const InputRecord record = MapPointer(32767, -32768, {-kMax, kMax, 2, 2}, {kMax, -kMax, kMax, kMax});
  EXPECT_EQ(record.dx, std::numeric_limits<std::int32_t>::min());
  EXPECT_EQ(record.dy, std::numeric_limits<std::int32_t>::min());
}

}  // namespace
}  // namespace vlk::agent
