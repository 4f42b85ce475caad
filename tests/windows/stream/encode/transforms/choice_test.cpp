// The choice between several registered encoders, and encoders that delay their output.
#include <atomic>
#include <thread>

#include "tests/windows/stream/encode/transforms/transforms_fixture.h"
#include "tests/windows/support/debug_log_file.h"

namespace vlk::agent {
namespace {

// Each test registers the transforms it needs, so one value of the parameter is enough.
class BothTransformsTest : public H264TransformsTest {};
INSTANTIATE_TEST_SUITE_P(Preferred, BothTransformsTest, testing::Values(Transform::Async),
                         [](const auto&) { return "HardwareAndSoftware"; });

TEST_P(BothTransformsTest, HardwareEncoderIsPreferredAndTheSoftwareEncoderIsUsedIfHardwareFails) {
  ASSERT_TRUE(the_double().Register(L"sync async"));
  ASSERT_TRUE(Init());
  EXPECT_TRUE(encoder_->hardware);
  encoder_.emplace();
  test::remove_debug_log();
  board_.activate_result[static_cast<int>(Transform::Async)] = E_FAIL;
  ASSERT_TRUE(Init());
  EXPECT_FALSE(encoder_->hardware);
  // 0xc00d36b2 is the system's code for an encoder that cannot be created.
  EXPECT_EQ(test::debug_log(),
            "encoder: ActivateObject failed hr=0xc00d36b2\n"
            "encoder: H.264 software encoder ready hr=0x00000000\n");
  test::H264Decoder decoder;
  ExpectShown(decoder, 1, true);
}

TEST_P(BothTransformsTest, OpeningFailsWithoutAnyEncoder) {
  ASSERT_TRUE(the_double().Register(L""));
  EXPECT_FALSE(Init());
  EXPECT_EQ(test::debug_log(), "encoder: no H.264 encoder MFT found hr=0x00000000\n");
}

TEST_P(BothTransformsTest, DelayedFramesAreReturnedTogetherLater) {
  ASSERT_TRUE(the_double().Register(L"sync"));
  board_.buffered_frames = 2;
  ASSERT_TRUE(Init());
  EXPECT_TRUE(Encode(Picture(1), true).empty());
  EXPECT_TRUE(Encode(Picture(2)).empty());
  EXPECT_EQ(test::nal_types(Encode(Picture(3))),
            (Types{test::kSequenceSet, test::kPictureSet, test::kKeySlice, test::kSlice, test::kSlice}));
  EXPECT_EQ(test::nal_types(Encode(Picture(4))), kOtherFrame);
}

TEST_P(BothTransformsTest, CallerWaitsWhileTheEncoderReportsNoOutput) {
  ASSERT_TRUE(Init());
  board_.silent = 1;
  std::atomic<bool> returned{false};
  Bytes out;
  std::thread caller([&] {
    encoder_->Encode(Picture(1), out, true);
    returned = true;
  });
  // The frame has reached the encoder, so the caller waits for its output.
  const ULONGLONG deadline = GetTickCount64() + 30000;
  while (board_.inputs == 0 && GetTickCount64() < deadline)
    Sleep(1);
  EXPECT_EQ(board_.inputs, 1);
  Sleep(50);  // a caller that does not wait would return in this time
  EXPECT_FALSE(returned) << "Encode must wait for the encoder's output";
  board_.silent = 0;
  caller.join();
  EXPECT_EQ(test::nal_types(out), kKeyFrame);
}

}  // namespace
}  // namespace vlk::agent
