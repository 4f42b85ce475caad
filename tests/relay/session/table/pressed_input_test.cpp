// Which keys and buttons a session has pressed, and how they are released.
#include "relay/session/table/pressed_input.h"

#include <initializer_list>
#include <string>

#include <gtest/gtest.h>

#include "wire/messages.h"

namespace vlk::relay {
namespace {

// Events as they are on the wire.
const Bytes kShiftDown{4, 1, 0x10, 0, 0x2A, 0, 0};
const Bytes kShiftUp{4, 0, 0x10, 0, 0x2A, 0, 0};
const Bytes kRightControlDown{4, 1, 0xA3, 0, 0x1D, 0, 1};
const Bytes kRightControlUp{4, 0, 0xA3, 0, 0x1D, 0, 1};
const Bytes kLeftDown{2, 1, 1};
const Bytes kLeftUp{2, 1, 0};
const Bytes kMove{1, 1, 2, 3, 4};
const Bytes kWheel{3, 120, 0};

Bytes batch(std::initializer_list<Bytes> events, int count = -1) {
  Bytes payload{static_cast<std::uint8_t>(count < 0 ? static_cast<int>(events.size()) : count)};
  for (const Bytes& event : events)
    payload.insert(payload.end(), event.begin(), event.end());
  return payload;
}

class PressedInputTest : public testing::Test {
 protected:
  void note(const Bytes& payload, std::uint32_t session = 7) { pressed_.note(session, payload); }
  // The payload of the message that releases everything; empty without such a message.
  Bytes released(std::uint32_t session = 7) {
    const auto message = pressed_.release(session);
    if (!message) return {};
    const Bytes header = encode_envelope(Msg::InputEvent, session, nullptr, 0, 0);
    EXPECT_TRUE(std::equal(header.begin(), header.begin() + 6, message->begin()));
    return {message->begin() + kEnvelopeHeaderSize, message->end()};
  }

  PressedInput pressed_;
};

TEST_F(PressedInputTest, WhatIsPressedIsReleasedOnce) {
  note(batch({kMove, kLeftDown, kWheel}));
  note(batch({kShiftDown, kRightControlDown}));
  EXPECT_EQ(released(), batch({kLeftUp, kShiftUp, kRightControlUp}));
  EXPECT_EQ(released(), Bytes{});
}

TEST_F(PressedInputTest, WhatWasReleasedIsNotReleasedAgain) {
  note(batch({kShiftDown, kLeftDown, kShiftUp}));
  EXPECT_EQ(released(), batch({kLeftUp}));
  note(batch({kShiftDown, kShiftUp}));
  EXPECT_EQ(released(), Bytes{});
}

TEST_F(PressedInputTest, KeyThatRepeatsIsReleasedOnce) {
  note(batch({kShiftDown, kShiftDown, kShiftDown}));
  EXPECT_EQ(released(), batch({kShiftUp}));
}

TEST_F(PressedInputTest, SessionsAreSeparate) {
  note(batch({kShiftDown}), 7);
  note(batch({kLeftDown}), 8);
  EXPECT_EQ(released(7), batch({kShiftUp}));
  pressed_.forget(8);
  EXPECT_EQ(released(8), Bytes{});
}

TEST_F(PressedInputTest, BatchThatTheAgentDropsIsIgnored) {
  for (const Bytes& payload : {Bytes{}, Bytes{1}, Bytes{0}, batch({kShiftDown, Bytes{9}}),
                               batch({kShiftDown, Bytes{4, 1}}), batch({kShiftDown, Bytes{0}})}) {
    note(payload);
    EXPECT_EQ(released(), Bytes{});
  }
}

TEST_F(PressedInputTest, EventsAreReadUpToTheNumberOrTheEndOfTheBatch) {
  note(batch({kShiftDown, kLeftDown}, 1));
  EXPECT_EQ(released(), batch({kShiftUp}));
  note(batch({kShiftDown, kLeftDown}, 200));
  EXPECT_EQ(released(), batch({kLeftUp, kShiftUp}));
}

TEST_F(PressedInputTest, MoreKeysThanOneBatchReleasesAreNotNoted) {
  for (int key = 0; key < 400; ++key) {
    const auto low = static_cast<std::uint8_t>(key), high = static_cast<std::uint8_t>(key >> 8);
    note(batch({{4, 1, low, high, 0, 0, 0}}));
  }
  EXPECT_EQ(released().size(), 1 + PressedInput::kMost * 7);
}

TEST_F(PressedInputTest, OnlyMovesOfThePointerAreNotActs) {
  EXPECT_FALSE(pressed_.note(7, batch({kMove, kMove})));
  EXPECT_TRUE(pressed_.note(7, batch({kMove, kWheel})));
  EXPECT_TRUE(pressed_.note(7, batch({kShiftDown})));
  EXPECT_TRUE(pressed_.note(7, batch({kLeftUp})));
  EXPECT_FALSE(pressed_.note(7, Bytes{1, 9})) << "the agent ignores this";
}

}  // namespace
}  // namespace vlk::relay
