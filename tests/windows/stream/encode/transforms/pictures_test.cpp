// The H.264 session on transforms around a real encoder, found and activated by the system itself: what comes
// out decodes to what went in. One transform answers within the calls, the other works on its own thread.
#include <gtest/gtest.h>

#include <windows.h>
// Ends a block, so that the order stays.
#include <atomic>
#include <cstring>
#include <optional>
#include <string>
#include <thread>

#include "platform/threads/com_apartment.h"
#include "stream/encode/colour.h"
#include "stream/encode/h264_encoder.h"
#include "tests/doubles/boards.h"
#include "tests/doubles/scripted_picture.h"
#include "tests/windows/stream/encode/transforms/h264_decoder.h"
#include "tests/windows/stream/encode/transforms/h264_double.h"
#include "tests/windows/support/holdings.h"
#include "tests/windows/support/seam.h"

#include <mfapi.h>
#include <mfidl.h>

namespace vlk::agent {
namespace {

using test::the_double;
using vantelink_doubles::CodecBoard;
using vantelink_doubles::Transform;
using Bytes = std::vector<std::uint8_t>;
using Types = std::vector<int>;

constexpr std::int32_t kWidth = 320, kHeight = 240;
constexpr double kLikeEnough = 30;  // decibels

const Types kKeyFrame = {test::kSequenceSet, test::kPictureSet, test::kKeySlice};
const Types kOtherFrame = {test::kSlice};

CapturedFrame Picture(std::uint32_t number, std::int32_t width = kWidth, std::int32_t height = kHeight) {
  CapturedFrame frame;
  frame.width = static_cast<std::uint32_t>(width);
  frame.height = static_cast<std::uint32_t>(height);
  frame.stride = width * 4;
  frame.pixels.resize(static_cast<std::size_t>(frame.stride) * frame.height);
  vantelink_doubles::paint_picture(frame.pixels.data(), frame.width, frame.height,
                                   static_cast<std::size_t>(frame.stride), number, 0);
  return frame;
}

Bytes LumaOf(const CapturedFrame& frame) {
  const auto width = static_cast<std::int32_t>(frame.width), height = static_cast<std::int32_t>(frame.height);
  Bytes luma(std::size_t{frame.width} * frame.height), chroma(ChromaRoom(width, height));
  ConvertBgraToNv12Plainly(frame.pixels.data(), width, height, frame.stride, luma.data(), chroma.data());
  return luma;
}

class H264TransformsTest : public testing::TestWithParam<Transform> {
 protected:
  void SetUp() override {
    ASSERT_TRUE(the_double().shared());
    std::memset(static_cast<void*>(&board_), 0, sizeof(board_));
    test::remove_debug_log();
    ASSERT_TRUE(the_double().Register(async() ? L"async" : L"sync"));
    encoder_.emplace();
  }
  void TearDown() override {
    board_.silent = 0;
    encoder_.reset();
    EXPECT_EQ(board_.live, 0) << "transforms left";
  }
  static bool async() { return GetParam() == Transform::Async; }
  static std::string ReadyLine() {
    return async() ? "encoder: H.264 hardware encoder ready hr=0x00000000\n"
                   : "encoder: H.264 software encoder ready hr=0x00000000\n";
  }
  bool Init(std::int32_t width = kWidth, std::int32_t height = kHeight) {
    return encoder_->Init(width, height, 30, 0);
  }
  Bytes Encode(const CapturedFrame& frame, bool force = false) {
    Bytes out;
    EXPECT_TRUE(encoder_->Encode(frame, out, force));
    return out;
  }
  // Encodes and decodes; the picture must be the one that went in.
  void ExpectShown(test::H264Decoder& decoder, std::uint32_t number, bool force, std::int32_t width = kWidth,
                   std::int32_t height = kHeight) {
    const CapturedFrame frame = Picture(number, width, height);
    const Bytes bytes = Encode(frame, force);
    EXPECT_EQ(test::nal_types(bytes), force ? kKeyFrame : kOtherFrame) << number;
    const test::DecodedLuma shown = decoder.decode(bytes);
    ASSERT_EQ(shown.width, width) << number;
    ASSERT_EQ(shown.height, height) << number;
    EXPECT_EQ(vantelink_doubles::read_number(shown.rows.data(), static_cast<std::size_t>(width)), number);
    EXPECT_GT(test::likeness(LumaOf(frame), shown.rows), kLikeEnough) << number;
  }

  const ComApartment apartment_;
  CodecBoard& board_ = the_double().board();
  std::optional<H264Encoder> encoder_;
};

INSTANTIATE_TEST_SUITE_P(Both, H264TransformsTest, testing::Values(Transform::Sync, Transform::Async),
                         [](const auto& kind) { return kind.param == Transform::Sync ? "Sync" : "Async"; });

TEST_P(H264TransformsTest, EveryFrameDecodesToItsPictureAndKeyFramesComeWhereAskedFor) {
  ASSERT_TRUE(Init());
  EXPECT_EQ(test::debug_log(), ReadyLine());
  EXPECT_EQ(encoder_->hardware, async());
  test::H264Decoder decoder;
  for (std::uint32_t number = 0; number < 60; ++number)
    ExpectShown(decoder, number, number == 0 || number == 7 || number == 8 || number == 40);
  EXPECT_EQ(board_.forced, 4);
  EXPECT_EQ(board_.inputs, 60);
  EXPECT_EQ(board_.outputs, 60);
}

TEST_P(H264TransformsTest, SessionsOfOtherSizesFollowOneAnotherAndTimeGoesOn) {
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

TEST_P(H264TransformsTest, FirstFrameIsAKeyFrameWithoutBeingAskedFor) {
  ASSERT_TRUE(Init());
  EXPECT_EQ(test::nal_types(Encode(Picture(1))), kKeyFrame);
}

TEST_P(H264TransformsTest, SettingsArrive) {
  ASSERT_TRUE(encoder_->Init(kWidth, kHeight, 15, 1234567));
  EXPECT_EQ(board_.width, kWidth);
  EXPECT_EQ(board_.height, kHeight);
  EXPECT_EQ(board_.fps, 15);
  EXPECT_EQ(board_.type_bitrate, 1234567);
  EXPECT_EQ(board_.bitrate, 1234567);
  EXPECT_EQ(board_.rate_control, 0);
  EXPECT_EQ(board_.low_latency, -1) << "the true of its type";
  EXPECT_EQ(board_.speed, 33);
  EXPECT_EQ(board_.profile, 77);
  EXPECT_EQ(board_.interlace, 2);
}

TEST_P(H264TransformsTest, OddSizeIsRefusedByTheEncoderAndTheNextSizeIsNot) {
  EXPECT_FALSE(Init(kWidth + 1, kHeight));
  EXPECT_EQ(test::debug_log(), "encoder: SetOutputType failed hr=0xc00d36b4\n");
  EXPECT_EQ(board_.live, 1) << "left half open, by design";
  ASSERT_TRUE(Init());
  EXPECT_EQ(board_.live, 1);
  test::H264Decoder decoder;
  ExpectShown(decoder, 3, true);
}

TEST_P(H264TransformsTest, WithoutASequenceHeaderTheSetsAreTheStreamsOwn) {
  board_.no_header = 1;
  ASSERT_TRUE(Init());
  test::H264Decoder decoder;
  ExpectShown(decoder, 1, true);
  ExpectShown(decoder, 2, false);
}

TEST_P(H264TransformsTest, HugeSequenceHeaderIsCarriedAndDecodes) {
  board_.header_bytes = 1 << 20;
  ASSERT_TRUE(Init());
  const Bytes bytes = Encode(Picture(9), true);
  EXPECT_GT(bytes.size(), std::size_t{1} << 20);
  EXPECT_EQ(test::nal_types(bytes).size(), 4u) << "two sets, the filler and the picture";
}

TEST_P(H264TransformsTest, EncodersOwnSamplesServeAsWellAsTheCallers) {
  for (const std::int32_t flags : {0x100, 0x200, 0x300}) {
    board_.sample_flags = flags;
    ASSERT_TRUE(Init());
    test::H264Decoder decoder;
    ExpectShown(decoder, 1, true);
    ExpectShown(decoder, 2, false);
    encoder_->Shutdown();
  }
}

TEST_P(H264TransformsTest, BufferSizeThatIsNotNamedIsThePicturesArea) {
  board_.no_buffer_size = 1;
  ASSERT_TRUE(Init());
  test::H264Decoder decoder;
  ExpectShown(decoder, 1, true);
}

TEST_P(H264TransformsTest, MissingOrEmptySamplesGiveNoPictureAndNoCrash) {
  board_.sample_flags = 0x100;
  ASSERT_TRUE(Init());
  board_.null_sample = 1;
  EXPECT_TRUE(Encode(Picture(0), true).empty());
  board_.null_sample = 0;
  board_.empty_sample = 1;
  EXPECT_TRUE(Encode(Picture(1)).empty());
  board_.empty_sample = 0;
  test::H264Decoder decoder;
  ExpectShown(decoder, 2, true);
}

TEST_P(H264TransformsTest, WithoutTuningThereAreTheEncodersOwnKeyFramesAlone) {
  board_.no_codec_api = 1;
  ASSERT_TRUE(Init());
  EXPECT_EQ(test::nal_types(Encode(Picture(1), true)), kKeyFrame);
  for (std::uint32_t number = 2; number < 10; ++number)
    EXPECT_EQ(test::nal_types(Encode(Picture(number), true)), kOtherFrame);
  EXPECT_EQ(board_.forced, 0);
}

TEST_P(H264TransformsTest, RefusalsAreLoggedAndTheSessionGoesOn) {
  ASSERT_TRUE(Init());
  test::H264Decoder decoder;
  ExpectShown(decoder, 1, true);
  test::remove_debug_log();
  board_.process_output_result = E_FAIL;
  EXPECT_TRUE(Encode(Picture(2)).empty());
  board_.process_output_result = 0;
  ExpectShown(decoder, 3, true);
  board_.process_input_result = E_FAIL;
  Bytes out;
  EXPECT_FALSE(encoder_->Encode(Picture(4), out, false));
  EXPECT_TRUE(out.empty());
  EXPECT_EQ(test::debug_log(), std::string("encoder: ProcessOutput failed hr=0x80004005\n") +
                                   (async() ? "encoder: ProcessInput(async) failed hr=0x00000000\n"
                                            : "encoder: ProcessInput(sync) failed hr=0x80004005\n"));
  if (async()) return;  // its request for input is used up, so the next call would wait for another
  board_.process_input_result = 0;
  ExpectShown(decoder, 5, true);
}

// What a session asks of the system to find its encoder.
void Search(bool async) {
  for (const UINT32 flags : {0x44u, 0x41u}) {
    IMFActivate** found = nullptr;
    UINT32 count = 0;
    MFTEnumEx(MFT_CATEGORY_VIDEO_ENCODER, flags, nullptr, nullptr, &found, &count);
    for (UINT32 i = 0; i < count; ++i)
      found[i]->Release();
    CoTaskMemFree(found);
    if (async) return;  // found at once
  }
}

TEST_P(H264TransformsTest, SessionsLeaveNothingBehind) {
  constexpr int kWarmUp = 20, kRounds = 200;
  constexpr DWORD kSlack = 5;  // handles that come and go with threads
  // Wine 8's search itself loses a registry key for each encoder that it looks at.
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

class BothTransformsTest : public H264TransformsTest {};
INSTANTIATE_TEST_SUITE_P(Preferred, BothTransformsTest, testing::Values(Transform::Async),
                         [](const auto&) { return "HardwareAndSoftware"; });

TEST_P(BothTransformsTest, HardwareIsPreferredAndSoftwareServesWhenItFails) {
  ASSERT_TRUE(the_double().Register(L"sync async"));
  ASSERT_TRUE(Init());
  EXPECT_TRUE(encoder_->hardware);
  encoder_.emplace();
  test::remove_debug_log();
  board_.activate_result[static_cast<int>(Transform::Async)] = E_FAIL;
  ASSERT_TRUE(Init());
  EXPECT_FALSE(encoder_->hardware);
  // The system's own code for an encoder that could not be made.
  EXPECT_EQ(test::debug_log(),
            "encoder: ActivateObject failed hr=0xc00d36b2\n"
            "encoder: H.264 software encoder ready hr=0x00000000\n");
  test::H264Decoder decoder;
  ExpectShown(decoder, 1, true);
}

TEST_P(BothTransformsTest, WithoutAnyEncoderNoSessionOpens) {
  ASSERT_TRUE(the_double().Register(L""));
  EXPECT_FALSE(Init());
  EXPECT_EQ(test::debug_log(), "encoder: no H.264 encoder MFT found hr=0x00000000\n");
}

TEST_P(BothTransformsTest, FramesThatAreHeldBackComeTogetherLater) {
  ASSERT_TRUE(the_double().Register(L"sync"));
  board_.buffered_frames = 2;
  ASSERT_TRUE(Init());
  EXPECT_TRUE(Encode(Picture(1), true).empty());
  EXPECT_TRUE(Encode(Picture(2)).empty());
  EXPECT_EQ(test::nal_types(Encode(Picture(3))),
            (Types{test::kSequenceSet, test::kPictureSet, test::kKeySlice, test::kSlice, test::kSlice}));
  EXPECT_EQ(test::nal_types(Encode(Picture(4))), kOtherFrame);
}

TEST_P(BothTransformsTest, SilentEncoderHoldsItsCallerUntilItSpeaks) {
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
  Sleep(50);
  EXPECT_FALSE(returned) << "nothing may come out of a silent encoder";
  board_.silent = 0;
  caller.join();
  EXPECT_EQ(test::nal_types(out), kKeyFrame);
}

}  // namespace
}  // namespace vlk::agent
