// Control characters, UTF-8 boundaries and byte readers.
#include "relay/base/text.h"

#include <gtest/gtest.h>

#include "relay/base/bytes.h"
#include "relay/base/log.h"

namespace vlk::relay {
namespace {

TEST(Text, ControlCharactersAreTheBytesBelow0x20AndDel) {
  for (int code = 0; code < 256; ++code) {
    const char c = static_cast<char>(code);
    EXPECT_EQ(is_c0_control(c), code < 0x20) << code;
    EXPECT_EQ(is_control(c), code < 0x20 || code == 0x7F) << code;
    EXPECT_EQ(has_control(std::string("a") + c), is_control(c)) << code;
    EXPECT_EQ(without_controls(std::string(1, c)), std::string(1, is_control(c) ? ' ' : c)) << code;
  }
}

TEST(Text, FunctionCutUtf8NeverSplitsACharacter) {
  const std::string text = "a\xC3\xA6\xE2\x82\xAC\xF0\x9F\x98\x80";  // characters of 1, 2, 3 and 4 bytes
  const std::size_t expected[] = {0, 1, 1, 3, 3, 3, 6, 6, 6, 6, 10, 10};
  for (std::size_t limit = 0; limit < std::size(expected); ++limit)
    EXPECT_EQ(cut_utf8(text, limit).size(), expected[limit]) << limit;
  EXPECT_EQ(cut_utf8("\x80\x80\x80", 2), "") << "only continuation bytes";
}

TEST(Text, FunctionOneLineReplacesLineBreaksAndReturnsAtMost400Bytes) {
  EXPECT_EQ(one_line("a\r\nb\x7F"), "a  b ");
  EXPECT_EQ(one_line(std::string(1000, 'x')).size(), 400u);
}

TEST(ByteReaderTest, ReadsBigEndianNumbersAndRunsOfBytesInOrder) {
  const Bytes bytes = {1, 2, 3, 4, 'a', 'b', 0, 0, 0, 0, 0, 0, 1, 0};
  ByteReader reader(bytes);
  EXPECT_EQ(reader.u32(), 0x01020304u);
  EXPECT_EQ(reader.take(2), "ab");
  EXPECT_EQ(reader.u64(), 256u);
  EXPECT_EQ(reader.take(0), "");
  EXPECT_EQ(reader.take(1), std::nullopt);
}

TEST(ByteReaderTest, ReadingPastTheEndConsumesNoBytes) {
  const Bytes bytes = {1, 2, 3};
  ByteReader reader(bytes);
  EXPECT_EQ(reader.u32(), std::nullopt);
  EXPECT_EQ(reader.u64(), std::nullopt);
  EXPECT_EQ(reader.take(UINT64_MAX), std::nullopt);
  EXPECT_EQ(reader.take(3), "\1\2\3");
}

TEST(Text, OnlyValidUtf8WithoutNullCharactersIsText) {
  for (const std::string_view text : {"", "abc\x7F\x01", "\xC2\x80", "\xE0\xA0\x80", "\xED\x9F\xBF",
                                      "\xEE\x80\x80", "\xF0\x90\x80\x80", "\xF4\x8F\xBF\xBF", "a\xC3\xB0z"}) {
    EXPECT_TRUE(is_text(text)) << text;
  }
  for (const std::string_view text :
       {std::string_view("\0", 1), std::string_view("a\0b", 3), std::string_view("\x80"),
        std::string_view("\xC3"), std::string_view("\xC1\xBF"), std::string_view("\xE0\x9F\xBF"),
        std::string_view("\xED\xA0\x80"), std::string_view("\xE2\x82"), std::string_view("\xE2\x82z"),
        std::string_view("\xF0\x8F\xBF\xBF"), std::string_view("\xF4\x90\x80\x80"),
        std::string_view("\xF5\x80\x80\x80"), std::string_view("\xF1\x80\x80"), std::string_view("\xFF"),
        std::string_view("\xC3\xC3")}) {
    EXPECT_FALSE(is_text(text)) << text;
  }
}

}  // namespace
}  // namespace vlk::relay
