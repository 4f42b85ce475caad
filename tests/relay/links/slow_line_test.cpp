// Browsers on slow connections. The limits are shorter than usual, and the connections accordingly faster.
#include "relay/links/raw_session.h"
#include "relay/relay_fixture.h"

namespace vlk::relay {
namespace {

using std::chrono::milliseconds;
using SlowLineTest = RelayTest;

TEST_F(SlowLineTest, SessionOfABrowserThatReadsSlowlyAndSteadilyContinues) {
  constexpr milliseconds kLimit{1500};
  auto browser = console(4096);
  RawSession session(port_, *browser);
  on_relay([&] { limits_.slow_browser = limits_.dead_browser = kLimit; });
  constexpr std::size_t kLarge = 16u << 20;
  session.send(Msg::ClipboardData, std::string(kLarge, 'x'));
  // About 160 kB/s. At this rate the system's send buffer accepts no new bytes for several seconds.
  const auto end = Clock::now() + 4 * kLimit;
  while (Clock::now() < end) {
    ASSERT_TRUE(browser->read_piece());
    std::this_thread::sleep_for(milliseconds(100));
  }
  EXPECT_EQ(browser->read_binary().size, kLarge + kEnvelopeHeaderSize);
  session.send(Msg::StreamFrame, "picture");
  EXPECT_EQ(browser->read_binary().type, Msg::StreamFrame);
}

TEST_F(SlowLineTest, BrowserToWhichNothingElseIsSentGetsAliveMessages) {
  on_relay([&] { limits_.browser_alive = milliseconds(50); });
  auto browser = console();
  for (int i = 0; i < 3; ++i)
    browser->read_text("alive");
}

}  // namespace
}  // namespace vlk::relay
