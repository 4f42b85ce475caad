// The number of log lines of one source.
#include "relay/base/log.h"

#include <algorithm>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

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

TEST(LogTest, JsonLinesAreValidForEveryInput) {
  std::string line;
  const Log log([&](std::string_view written) { line = written; }, {}, LogFormat::JsonLines);
  log.write("192.0.2.1:7", "m1", "name \"a\\b\"");
  auto read = nlohmann::json::parse(line);
  EXPECT_EQ(read["peer"], "192.0.2.1:7");
  EXPECT_EQ(read["agent"], "m1");
  EXPECT_EQ(read["text"], "name \"a\\b\"");
  EXPECT_EQ(read["time"].get<std::string>().size(), 20u) << line;
  EXPECT_TRUE(line.starts_with("{\"time\":")) << line;
  for (int first = 0; first < 256; ++first) {
    for (const char second : {'\0', 'x', '\x7F', '\x80', '\xC3', '\xFF'}) {
      const std::string text = {'a', static_cast<char>(first), second};
      log.write("", "", text);
      read = nlohmann::json::parse(line, nullptr, false);
      ASSERT_TRUE(read.is_object()) << line;
      EXPECT_EQ(read["peer"], "");
      EXPECT_TRUE(std::ranges::all_of(line, [](char c) { return c >= 0x20 && c < 0x7F; })) << line;
    }
  }
  log.write("", "", std::string(1000, 'x'));
  EXPECT_EQ(nlohmann::json::parse(line)["text"].get<std::string>().size(), 400u);
}

TEST(LogTest, WrittenLinesAndThoseLeftOutAreCounted) {
  const Log log([](std::string_view) {}, {.lines = 2});
  for (int i = 0; i < 5; ++i)
    log.write("192.0.2.1:7", "", "bad request");
  EXPECT_EQ(log.lines(), 2u);
  EXPECT_EQ(log.left_out(), 3u);
}

}  // namespace
}  // namespace vlk::relay
