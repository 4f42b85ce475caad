// Messages for which the relay has no memory: they wait at their senders until others have given theirs back.
#include <thread>

#include "relay/links/raw_session.h"
#include "relay/relay_fixture.h"
#include "relay/server.h"

namespace vlk::relay {
namespace {

class MemoryTest : public RelayTest {
 protected:
  static constexpr std::size_t kMiB = 1u << 20;

  // All messages together may have 4 MiB.
  void SetUp() override {
    limits_.bytes_in_flight = 4 * kMiB;
    RelayTest::SetUp();
  }

  static std::string message(std::uint32_t session, std::size_t size) {
    const std::string payload(size - kEnvelopeHeaderSize, 'x');
    const auto bytes =
        encode_envelope(Msg::DirListResult, session, reinterpret_cast<const unsigned char*>(payload.data()),
                        payload.size(), 0);
    return {bytes.begin(), bytes.end()};
  }

  // Sends the message up to the last `held_back` bytes, which are returned.
  static std::string send_most(RawSession& session, std::size_t size, std::size_t held_back) {
    const std::string whole = message(session.number(), size);
    const auto frame =
        encode_frame(kWsBinary, reinterpret_cast<const unsigned char*>(whole.data()), whole.size(), true);
    const auto rest = frame.end() - static_cast<std::ptrdiff_t>(held_back);
    session.agent().send_raw({frame.begin(), rest});
    return {rest, frame.end()};
  }

  // The size of the next message from a machine; 0 if it was dropped.
  static std::size_t next_size(Browser& browser) {
    for (;;) {
      const Browser::Message next = browser.read_message();
      if (!next.text) return next.bytes.size();
      if (Json::parse(next.bytes)["type"] == "too-large") return 0;
    }
  }

  void limit_wait(std::chrono::milliseconds limit) {
    on_relay([&] { limits_.memory_wait = limit; });
  }
  // Waits until the relay has handled what has arrived.
  void settle() { (void)settled_heap(); }
};

TEST_F(MemoryTest, MessageWaitsUntilAnotherOneHasGivenItsMemoryBack) {
  auto first = console(), second = console();
  RawSession slow(port_, *first), waiting(port_, *second);
  const std::string rest = send_most(slow, 3 * kMiB, kMiB);
  settle();
  std::thread sender([&] { waiting.agent().send_bytes(message(waiting.number(), 2 * kMiB)); });
  settle();
  slow.agent().send_raw(rest);
  EXPECT_EQ(next_size(*first), 3 * kMiB);
  EXPECT_EQ(next_size(*second), 2 * kMiB);
  sender.join();
}

TEST_F(MemoryTest, LargestMessageThatArrivesIsCutWhenAnotherOneHasWaitedLong) {
  limit_wait(std::chrono::milliseconds(100));
  auto first = console(), second = console();
  RawSession slow(port_, *first), waiting(port_, *second);
  (void)send_most(slow, 3 * kMiB, kMiB);
  settle();
  waiting.agent().send_bytes(message(waiting.number(), 2 * kMiB));
  EXPECT_EQ(next_size(*second), 2 * kMiB);
  EXPECT_TRUE(logged("its message was the largest when the memory was used up"));
}

TEST_F(MemoryTest, MessageThatIsTheLargestItselfIsDroppedAfterItHasWaited) {
  limit_wait(std::chrono::milliseconds(100));
  auto first = console(), second = console();
  RawSession slow(port_, *first), waiting(port_, *second);
  const std::string rest = send_most(slow, 3 * kMiB, kMiB);
  settle();
  waiting.agent().send_bytes(message(waiting.number(), 3 * kMiB));
  EXPECT_EQ(next_size(*second), 0u);
  slow.agent().send_raw(rest);
  EXPECT_EQ(next_size(*first), 3 * kMiB);
}

TEST_F(MemoryTest, MessageOfABrowserWaitsUntilTheLargestMessageIsCut) {
  limit_wait(std::chrono::milliseconds(100));
  auto first = console(), second = console();
  RawSession slow(port_, *first), waiting(port_, *second);
  (void)send_most(slow, 3 * kMiB, kMiB);
  settle();
  second->send_envelope(Msg::InputEvent, waiting.number(), std::string(2 * kMiB, 'x'));
  EXPECT_EQ(waiting.read(Msg::InputEvent).payload.size(), 2 * kMiB);
  EXPECT_TRUE(logged("its message was the largest when the memory was used up"));
}

}  // namespace
}  // namespace vlk::relay
