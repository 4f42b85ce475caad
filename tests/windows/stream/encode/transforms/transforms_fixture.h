// Fixture for tests of the H.264 encoder on the double's transforms: each test runs with the synchronous and
// with the asynchronous one.
#pragma once

#include <windows.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/threads/com_apartment.h"
#include "stream/encode/h264_encoder.h"
#include "tests/doubles/boards.h"
#include "tests/windows/stream/encode/transforms/h264_decoder.h"
#include "tests/windows/stream/encode/transforms/h264_double.h"

namespace vlk::agent {

using test::the_double;
using vantelink_doubles::Transform;
using Bytes = std::vector<std::uint8_t>;
using Types = std::vector<int>;

constexpr std::int32_t kWidth = 320, kHeight = 240;

extern const Types kKeyFrame, kOtherFrame;  // types of the NAL units of a frame

// The scripted picture with this number.
CapturedFrame Picture(std::uint32_t number, std::int32_t width = kWidth, std::int32_t height = kHeight);

class H264TransformsTest : public testing::TestWithParam<Transform> {
 protected:
  void SetUp() override;
  void TearDown() override;

  static bool async() { return GetParam() == Transform::Async; }
  bool Init(std::int32_t width = kWidth, std::int32_t height = kHeight) {
    return encoder_->Init(width, height, 30, 0);
  }
  // Encodes the frame, which must succeed.
  Bytes Encode(const CapturedFrame& frame, bool force = false);
  // Encodes the frame, which must never return: the call waits for an event, and the transform has nothing to
  // do before the next call. The wait is then ended, so the session cannot be used further.
  void ExpectWaitsForever(const CapturedFrame& frame, bool force = false);
  // Encodes the picture with this number. The output must decode to the same picture.
  void ExpectShown(test::H264Decoder& decoder, std::uint32_t number, bool force, std::int32_t width = kWidth,
                   std::int32_t height = kHeight) {
    ExpectShown(decoder, number, force ? kKeyFrame : kOtherFrame, force, width, height);
  }
  // Does the same, and expects NAL units of these types.
  void ExpectShown(test::H264Decoder& decoder, std::uint32_t number, const Types& types, bool force,
                   std::int32_t width = kWidth, std::int32_t height = kHeight);

  const ComApartment apartment_;
  vantelink_doubles::CodecBoard& board_ = the_double().board();
  std::optional<H264Encoder> encoder_;
};

}  // namespace vlk::agent
