// Hardware encoders that are limited in number, and the end of their sessions.
#include <array>

#include "tests/windows/stream/encode/transforms/transforms_fixture.h"
#include "tests/windows/support/debug_log_file.h"

namespace vlk::agent {
namespace {

class LimitedEncoderTest : public H264TransformsTest {};
INSTANTIATE_TEST_SUITE_P(Hardware, LimitedEncoderTest, testing::Values(Transform::Async),
                         [](const auto&) { return "Async"; });

TEST_P(LimitedEncoderTest, ThirdEncoderOfACardWithTwoSessionsIsRefused) {
  board_.session_limit = 2;
  std::array<H264Encoder, 2> others;
  for (H264Encoder& other : others)
    ASSERT_TRUE(other.Init(kWidth, kHeight, 30, 0));
  test::remove_debug_log();
  EXPECT_FALSE(Init());
  EXPECT_EQ(test::debug_log(), "encoder: SetOutputType failed hr=0x800705aa\n");
  others[0].Shutdown();
  ASSERT_TRUE(Init());
  test::H264Decoder decoder;
  ExpectShown(decoder, 1, true);
}

TEST_P(LimitedEncoderTest, KnownSoftwareEncoderDoesNotReplaceAHardwareEncoderThatRefusesItsTypes) {
  ASSERT_TRUE(the_double().Register(L"sync async"));
  board_.session_limit = board_.sessions_elsewhere = 2;
  EXPECT_FALSE(Init());
  EXPECT_EQ(test::debug_log(), "encoder: SetOutputType failed hr=0x800705aa\n");
}

TEST_P(LimitedEncoderTest, SoftwareEncoderReplacesAHardwareEncoderThatCannotBeCreated) {
  ASSERT_TRUE(the_double().Register(L"sync async"));
  board_.session_limit = board_.sessions_elsewhere = 2;
  board_.limits_creation = 1;
  ASSERT_TRUE(Init());
  EXPECT_FALSE(encoder_->hardware);
  test::H264Decoder decoder;
  ExpectShown(decoder, 1, true);
}

TEST_P(LimitedEncoderTest, OnlySessionOfACardIsReleasedBeforeTheNextIsOpened) {
  board_.session_limit = 1;
  ASSERT_TRUE(Init());
  encoder_->Shutdown();
  board_.input_type_result = E_FAIL;
  EXPECT_FALSE(Init()) << "the encoder is left half open, deliberately";
  EXPECT_EQ(board_.open_sessions, 1);
  board_.input_type_result = 0;
  ASSERT_TRUE(Init());
  EXPECT_EQ(board_.open_sessions, 1);
  encoder_->Shutdown();
  EXPECT_EQ(board_.open_sessions, 0);
}

TEST_P(LimitedEncoderTest, KnownEncoderIsReleasedWithoutItsShutdown) {
  ASSERT_TRUE(Init());
  EXPECT_FALSE(Encode(Picture(1), true).empty());
  encoder_->Shutdown();
  EXPECT_EQ(board_.live, 0);
  EXPECT_EQ(board_.shutdowns, 0);
}

TEST_P(LimitedEncoderTest, KnownEncoderThatKeepsItsSessionUntilItsShutdownExhaustsTheCard) {
  board_.session_limit = 2;
  board_.keeps_session = 1;
  for (int i = 0; i < 2; ++i) {
    ASSERT_TRUE(Init());
    encoder_->Shutdown();
  }
  EXPECT_FALSE(Init());
  EXPECT_EQ(board_.open_sessions, 2);
}

}  // namespace
}  // namespace vlk::agent
