// The distance between the pictures that a machine sends and those that a viewer on a slow line gets.
#include <algorithm>

#include "relay/links/raw_session.h"
#include "relay/net/line/slow_line.h"
#include "relay/relay_fixture.h"

namespace vlk::relay {
namespace {

using std::chrono::milliseconds;
using LineLagTest = RelayTest;

std::string picture(int number, bool key) {
  constexpr std::size_t kBytes = 20 * 1024;
  std::string bytes = std::string(8, '\0') + std::string("\0\0\1", 3) + (key ? '\x65' : '\x41');
  bytes += std::to_string(number) + 'x';
  bytes.resize(kBytes, 'x');
  return bytes;
}

int number_in(const Envelope& picture) {
  constexpr std::size_t kBefore = 12;
  return std::stoi(std::string(picture.payload.begin() + kBefore, picture.payload.begin() + kBefore + 8));
}

// The machine sends four pictures for each that arrives, so the test needs no clock: the line is too slow by
// this factor on any computer. If late pictures were queued, the distance would be 3 / 4 of all pictures.
TEST_F(LineLagTest, PicturesOfAnOverloadedLineDoNotFallBehind) {
  constexpr int kArrivals = 80, kPerArrival = 4, kFarthest = 80;
  const SlowLine line(port_, {.bits_per_second = 4e6, .delay = milliseconds(20), .queue = 32 * 1024});
  Browser browser(line.port());
  unsigned status = 0;
  ASSERT_TRUE(browser.open_console(log_in(), status)) << status;
  RawSession session(port_, browser);
  int sent = 0, farthest = 0;
  for (int arrivals = 0; arrivals < kArrivals; ++arrivals) {
    // Each group begins with a key frame, so the newest group is never dropped as a whole.
    for (int i = 0; i < kPerArrival; ++i, ++sent)
      session.send(Msg::StreamFrame, picture(sent, i == 0));
    farthest = std::max(farthest, sent - number_in(browser.read_envelope(Msg::StreamFrame)));
  }
  EXPECT_LT(farthest, kFarthest);
  RecordProperty("farthest", farthest);
}

}  // namespace
}  // namespace vlk::relay
