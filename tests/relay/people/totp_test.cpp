// One-time codes: the published test values, the window of steps, codes that were used, and backup codes.
#include "relay/people/totp.h"

#include <set>

#include <gtest/gtest.h>

#include "relay/base/secrets.h"

namespace vlk::relay {
namespace {

const std::string kSecretText = "12345678901234567890";
const Bytes kSecret(kSecretText.begin(), kSecretText.end());
constexpr std::int64_t kNow = 1111111109;
constexpr char kCode[] = "081804";
constexpr std::int64_t kStep = kNow / kTotpStepSeconds;

class TotpTest : public testing::Test {
 protected:
  TotpTest() { start_sodium(); }
};

TEST_F(TotpTest, CodesEqualThePublishedTestValues) {
  EXPECT_EQ(accepted_totp_step(kSecret, "287082", 59, 0), 1);
  EXPECT_EQ(accepted_totp_step(kSecret, kCode, kNow, 0), kStep);
  EXPECT_EQ(accepted_totp_step(kSecret, "050471", 1111111111, 0), kStep + 1);
  EXPECT_EQ(accepted_totp_step(kSecret, "353130", 20000000000, 0), 666666666);
}

TEST_F(TotpTest, CodeIsAcceptedOneStepBeforeAndAfterItsOwn) {
  for (std::int64_t steps = -3; steps <= 3; ++steps) {
    const auto accepted = accepted_totp_step(kSecret, kCode, kNow + steps * kTotpStepSeconds, 0);
    EXPECT_EQ(accepted.has_value(), steps >= -1 && steps <= 1) << steps;
  }
}

TEST_F(TotpTest, UsedStepAndEarlierStepsAreNotAcceptedAgain) {
  EXPECT_TRUE(accepted_totp_step(kSecret, kCode, kNow, kStep - 1));
  EXPECT_FALSE(accepted_totp_step(kSecret, kCode, kNow, kStep));
  EXPECT_FALSE(accepted_totp_step(kSecret, kCode, kNow, kStep + 1));
}

TEST_F(TotpTest, TextThatIsNotTheCodeIsRefused) {
  for (const char* text : {"", "08180", "0818040", "081805", "18180 ", "abcdef"})
    EXPECT_FALSE(accepted_totp_step(kSecret, text, kNow, 0)) << text;
  EXPECT_FALSE(accepted_totp_step(kSecret, std::string_view("\0\0\0\0\0\0", 6), kNow, 0));
}

TEST_F(TotpTest, AddressForAuthenticatorsNamesThePersonAndTheSecret) {
  EXPECT_EQ(totp_uri(kSecret, "Sigga & co"),
            "otpauth://totp/Vantelink:Sigga%20%26%20co?secret=GEZDGNBVGY3TQOJQGEZDGNBVGY3TQOJQ"
            "&issuer=Vantelink");
  EXPECT_EQ(new_totp_secret().size(), kTotpSecretBytes);
  EXPECT_NE(new_totp_secret(), new_totp_secret());
}

TEST_F(TotpTest, BackupCodesDifferAndAreReadHoweverTheyAreTyped) {
  const auto codes = new_backup_codes();
  EXPECT_EQ(std::set<std::string>(codes.begin(), codes.end()).size(), kBackupCodes);
  EXPECT_EQ(codes.front().size(), 11u);
  EXPECT_EQ(backup_code_hash(1, "abcde-fghjk"), backup_code_hash(1, " ABCDE FGHJK"));
  EXPECT_NE(backup_code_hash(1, "abcde-fghjk"), backup_code_hash(2, "abcde-fghjk"));
  EXPECT_NE(backup_code_hash(1, "abcde-fghjk"), backup_code_hash(1, "abcde-fghjm"));
}

}  // namespace
}  // namespace vlk::relay
