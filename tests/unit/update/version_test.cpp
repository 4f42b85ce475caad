// The comparison of versions.
#include "update/version.h"

#include <gtest/gtest.h>

namespace vlk::agent {
namespace {

bool newer(std::string_view offered) {
  return is_newer("0.1.6", offered);
}

TEST(VersionTest, OfferedVersionsAreComparedWithVersion016) {
  EXPECT_STREQ(kUpdateVersion, "0.1.6");
}

TEST(VersionTest, VersionsWithGreaterNumbersOrMoreFieldsAreNewer) {
  for (const char* offered :
       {"0.1.7", "0.2", "0.2.0", "1", "0.1.6.1", "0.1.6.0.1", "0.1.10", "00.01.07", "0.1.7-beta"}) {
    EXPECT_TRUE(newer(offered)) << offered;
  }
}

TEST(VersionTest, VersionsWithEqualOrSmallerNumbersAreNotNewer) {
  for (const char* offered : {"0.1.6", "0.1.5", "0.1.5.9", "0.0.9", "0.1.6.0", "0.1.6.0.0", "", "0", "0.1.06",
                              "0.1", "0.1.", "....", "0.1.6....", "-1.1", "0.-1"}) {
    EXPECT_FALSE(newer(offered)) << offered;
  }
}

TEST(VersionTest, TextAfterANumberInItsFieldIsIgnored) {
  for (const char* offered : {"0.1.6-beta", "0.1.6b", "0.1.6 7", "0x9.1y9.6z9", "0.1.6-beta9"}) {
    EXPECT_FALSE(newer(offered)) << offered;
  }
  EXPECT_TRUE(newer("0.1.6-beta.1")) << "the dot after the text begins another field";
}

TEST(VersionTest, FieldThatDoesNotBeginWithADigitCountsAsZero) {
  EXPECT_TRUE(newer("r0.1.7"));
  EXPECT_TRUE(newer("r9.1.7")) << "the 9 is not the first character of its field";
  EXPECT_FALSE(newer("v1"));
  EXPECT_FALSE(newer(" 1"));
  EXPECT_TRUE(newer("-9.2"));
  EXPECT_FALSE(newer("+9.1"));
  EXPECT_TRUE(newer(".2"));
  EXPECT_FALSE(newer("r0.1.6"));
}

TEST(VersionTest, MissingFieldsOfEitherVersionCountAsZero) {
  EXPECT_TRUE(is_newer("", "0.0.1"));
  EXPECT_FALSE(is_newer("0.0.1", ""));
  EXPECT_FALSE(is_newer("", ""));
  EXPECT_FALSE(is_newer("", "0.0.0"));
  EXPECT_FALSE(is_newer("0.0.0", ""));
}

TEST(VersionTest, NumbersWrapAroundToSigned32BitValues) {
  EXPECT_TRUE(newer("2147483647"));
  EXPECT_FALSE(newer("2147483648")) << "wraps to the smallest number";
  EXPECT_FALSE(newer("4294967295")) << "wraps to minus one";
  EXPECT_FALSE(newer("4294967296.0.9")) << "wraps to 0";
  EXPECT_TRUE(newer("4294967297")) << "wraps to 1";
  EXPECT_TRUE(newer("0.1.4294967303")) << "wraps to 7";
  EXPECT_FALSE(newer("0.1.99999999999999999999999999")) << "a number of any length wraps";
  EXPECT_TRUE(is_newer("4294967295", "0")) << "the current version wraps too";
}

TEST(VersionTest, FieldsOfBytesOtherThanDigitsCountAsZero) {
  EXPECT_FALSE(newer(std::string_view("0.1.6\0.9", 5)));
  EXPECT_TRUE(newer(std::string_view("0.1.6\0.9", 8)));
  EXPECT_FALSE(newer("\xFF\xFE.\x80"));
}

}  // namespace
}  // namespace vlk::agent
