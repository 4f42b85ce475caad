// Hexadecimal digits, and the lengths of passwords.
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

TEST(PasswordFault, PasswordsHaveFromTenTo1024Bytes) {
  EXPECT_EQ(password_fault(std::string(9, 'x')), "needs at least 10 characters");
  EXPECT_EQ(password_fault(std::string(10, 'x')), "");
  EXPECT_EQ(password_fault(std::string(1024, 'x')), "");
  EXPECT_EQ(password_fault(std::string(1025, 'x')), "can have at most 1024 bytes");
}

}  // namespace
}  // namespace vlk::relay
