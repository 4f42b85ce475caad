// Hexadecimal digits.
#include "relay/base/secrets.h"

#include <gtest/gtest.h>

namespace vlk::relay {
namespace {

TEST(Hex, BytesAndDigitsAreConvertedBothWays) {
  EXPECT_EQ(to_hex(Bytes{0, 0x7f, 0xff}), "007fff");
  EXPECT_EQ(from_hex("007fFF"), (Bytes{0, 0x7f, 0xff}));
  EXPECT_EQ(to_hex(Bytes{}), "");
  EXPECT_EQ(from_hex(""), Bytes{});
}

TEST(Hex, TextThatIsNotPairsOfDigitsGivesNothing) {
  for (const char* const text : {"0", "000", "0g", "g0", "00 11", "00:11", "zz", "00zz", " 00", "00 "})
    EXPECT_EQ(from_hex(text), Bytes{}) << text;
}

}  // namespace
}  // namespace vlk::relay
