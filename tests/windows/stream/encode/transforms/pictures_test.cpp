// The H.264 encoder on transforms around a real encoder, which the system itself finds and activates: every
// frame decodes to its picture.
#include <mfapi.h>

#include <string>
#include <utility>

#include "tests/windows/stream/encode/transforms/transforms_fixture.h"
#include "tests/windows/support/debug_log_file.h"
#include "tests/windows/support/holdings.h"

namespace vlk::agent {
namespace {

INSTANTIATE_TEST_SUITE_P(Both, H264TransformsTest, testing::Values(Transform::Sync, Transform::Async),
                         [](const auto& kind) { return kind.param == Transform::Sync ? "Sync" : "Async"; });

std::string ReadyLine(bool async) {
  return async ? "encoder: H.264 hardware encoder ready hr=0x00000000\n"
               : "encoder: H.264 software encoder ready hr=0x00000000\n";
}

TEST_P(H264TransformsTest, EveryFrameCanBeDecodedAndKeyFramesAreEncodedOnRequest) {
  ASSERT_TRUE(Init());
  EXPECT_EQ(test::debug_log(), ReadyLine(async()));
  EXPECT_EQ(encoder_->hardware, async());
  test::H264Decoder decoder;
  for (std::uint32_t number = 0; number < 60; ++number)
    ExpectShown(decoder, number, number == 0 || number == 7 || number == 8 || number == 40);
  EXPECT_EQ(board_.forced, 4);
  EXPECT_EQ(board_.inputs, 60);
  EXPECT_EQ(board_.outputs, 60);
}

TEST_P(H264TransformsTest, SampleTimesContinueAcrossSessionsOfOtherSizes) {
  const std::pair<std::int32_t, std::int32_t> sizes[] = {{320, 240}, {1280, 720}, {256, 16}, {320, 240}};
  std::uint32_t number = 0;
  for (const auto& [width, height] : sizes) {
    ASSERT_TRUE(Init(width, height));
    test::H264Decoder decoder;
    for (const bool first : {true, false, false})
      ExpectShown(decoder, number++, first, width, height);
    EXPECT_EQ(board_.time, static_cast<std::int32_t>(number - 1) * 333333);
    EXPECT_EQ(board_.messages, 0x123);
    encoder_->Shutdown();
    EXPECT_EQ(board_.messages, 0x12345);
    EXPECT_EQ(board_.live, 0);
  }
}

TEST_P(H264TransformsTest, FirstFrameIsAKeyFrameWithoutARequest) {
  ASSERT_TRUE(Init());
  EXPECT_EQ(test::nal_types(Encode(Picture(1))), kKeyFrame);
}

TEST_P(H264TransformsTest, AllSettingsArePassedToTheEncoder) {
  ASSERT_TRUE(encoder_->Init(kWidth, kHeight, 15, 1234567));
  EXPECT_EQ(board_.width, kWidth);
  EXPECT_EQ(board_.height, kHeight);
  EXPECT_EQ(board_.fps, 15);
  EXPECT_EQ(board_.type_bitrate, 1234567);
  EXPECT_EQ(board_.bitrate, 1234567);
  EXPECT_EQ(board_.rate_control, 0);
  EXPECT_EQ(board_.low_latency, -1) << "VARIANT_TRUE";
  EXPECT_EQ(board_.speed, 33);
  EXPECT_EQ(board_.profile, 77);
  EXPECT_EQ(board_.interlace, 2);
}

// Makes the searches by which a session finds its encoder.
void Search(bool async) {
  for (const UINT32 flags : {0x44u, 0x41u}) {
    IMFActivate** found = nullptr;
    UINT32 count = 0;
    MFTEnumEx(MFT_CATEGORY_VIDEO_ENCODER, flags, nullptr, nullptr, &found, &count);
    for (UINT32 i = 0; i < count; ++i)
      found[i]->Release();
    CoTaskMemFree(found);
    if (async) return;  // the first search finds the asynchronous encoder
  }
}

TEST_P(H264TransformsTest, SessionsLeaveNothingOpen) {
  constexpr int kWarmUp = 20, kRounds = 200;
  constexpr DWORD kSlack = 5;  // handles of threads that start and end
  // The search of Wine 8 leaks a registry key for each encoder that it finds.
  DWORD lost = 0;
  for (int round = 0; round < kWarmUp + kRounds; ++round) {
    if (round == kWarmUp) lost = test::kernel_handles();
    Search(async());
  }
  lost = test::kernel_handles() - lost;

  const CapturedFrame frame = Picture(1, 64, 64);
  test::Holdings before;
  for (int round = 0; round < kWarmUp + kRounds; ++round) {
    if (round == kWarmUp) before = test::holdings();
    ASSERT_TRUE(Init(64, 64));
    EXPECT_FALSE(Encode(frame, true).empty());
    encoder_->Shutdown();
    ASSERT_EQ(board_.live, 0) << round;
  }
  EXPECT_LE(test::holdings().handles, before.handles + lost + kSlack);
  EXPECT_EQ(test::holdings().gdi, before.gdi);
}

}  // namespace
}  // namespace vlk::agent
