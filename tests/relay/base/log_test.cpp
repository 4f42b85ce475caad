// The number of log lines of one source.
#include "relay/base/log.h"

#include <gtest/gtest.h>

namespace vlk::relay {
namespace {

TEST(LogTest, FurtherLinesOfASourceAndKindAreOnlyCounted) {
  std::string lines;
  const Log log([&](std::string_view line) { lines.append(line.substr(line.find(' '))).append("\n"); },
                {.lines = 2, .window = std::chrono::seconds(60)});
  for (int i = 0; i < 5; ++i)
    log.write("192.0.2.1:" + std::to_string(i), "", "bad request: number " + std::to_string(i));
  log.write("192.0.2.1:9", "", "another kind");
  log.write("192.0.2.2:9", "", "bad request: of another source");
  log.end_windows(Clock::now() + std::chrono::seconds(61));
  EXPECT_EQ(lines,
            " peer=192.0.2.1:0 agent=- bad request: number 0\n"
            " peer=192.0.2.1:1 agent=- bad request: number 1\n"
            " peer=192.0.2.1:9 agent=- another kind\n"
            " peer=192.0.2.2:9 agent=- bad request: of another source\n"
            " peer=192.0.2.1 agent=- bad request... and 3 more\n");
}

TEST(LogTest, LinesOfAllAddressesOfAnIpv6HostAreCountedTogether) {
  int lines = 0;
  const Log log([&](std::string_view) { ++lines; }, {.lines = 2});
  for (int i = 0; i < 5; ++i)
    log.write("[2001:db8::" + std::to_string(i) + "]:80", "", "bad request");
  EXPECT_EQ(lines, 2);
  log.write("[2001:db8:0:1::1]:80", "", "bad request");
  EXPECT_EQ(lines, 3);
}

TEST(LogTest, LinesOfTheRelayItselfAreAllWritten) {
  int lines = 0;
  const Log log([&](std::string_view) { ++lines; }, {.lines = 2});
  for (int i = 0; i < 5; ++i)
    log.write("", "", "the disk is full");
  EXPECT_EQ(lines, 5);
}

TEST(LogTest, LinesOfMoreSourcesThanAreCountedAreLeftOut) {
  std::string lines;
  const Log log([&](std::string_view line) { lines.append(line).append("\n"); }, {.lines = 2, .keys = 3});
  for (int i = 0; i < 10; ++i)
    log.write("192.0.2." + std::to_string(i) + ":1", "", "bad request");
  log.end_windows(Clock::now());
  EXPECT_NE(lines.find("and 7 more lines of many sources"), std::string::npos) << lines;
}

}  // namespace
}  // namespace vlk::relay
