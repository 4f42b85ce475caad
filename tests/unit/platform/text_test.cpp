// Text conversion on hosts whose wide characters are code points: sequences of every length, valid and
// malformed.
#include "platform/text.h"

#include <gtest/gtest.h>

namespace vlk {
namespace {

TEST(Text, Utf8SequencesOfEveryLengthAreConvertedInBothDirections) {
  const std::string text("a\0þ€😀", 11);
  EXPECT_EQ(Utf8ToWide(text), std::wstring(L"a\0þ€😀", 5));
  EXPECT_EQ(WideToUtf8(Utf8ToWide(text)), text);
  EXPECT_EQ(Utf8ToWide(""), L"");
  EXPECT_EQ(WideToUtf8(L""), "");
  for (const char32_t point :
       {0x7Fu, 0x80u, 0x7FFu, 0x800u, 0xD7FFu, 0xE000u, 0xFFFFu, 0x10000u, 0x10FFFFu}) {
    const std::wstring wide(1, static_cast<wchar_t>(point));
    EXPECT_EQ(Utf8ToWide(WideToUtf8(wide)), wide) << static_cast<std::uint32_t>(point);
  }
}

TEST(Text, MalformedSequencesAreReplacedAndTheRestIsConverted) {
  for (const char* bytes : {"\x80", "\xFF", "\xC3", "\xC0\x80", "\xE2\x82", "\xE0\x80\x80", "\xED\xA0\x80",
                            "\xF5\x80", "\xF4\x90\x80\x80", "\xF0\x80\x80\x80"}) {
    const std::wstring wide = Utf8ToWide(std::string(bytes) + "x");
    EXPECT_EQ(wide.front(), L'\xFFFD') << bytes;
    EXPECT_EQ(wide.back(), L'x') << bytes;
    EXPECT_EQ(Utf8ToWide(bytes).back(), L'\xFFFD') << "malformed at the end";
  }
  const std::wstring surrogate(1, static_cast<wchar_t>(0xD800));
  EXPECT_EQ(WideToUtf8(surrogate), "\xEF\xBF\xBD");
  EXPECT_EQ(WideToUtf8(std::wstring(1, static_cast<wchar_t>(0x110000))), "\xEF\xBF\xBD");
}

}  // namespace
}  // namespace vlk
