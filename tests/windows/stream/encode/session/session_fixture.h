// Fixture for tests of the H.264 encoder on a scripted Media Foundation.
#pragma once

#include <windows.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "stream/encode/h264_encoder.h"
#include "tests/windows/stream/encode/session/media_foundation_seam.h"

namespace vlk::agent {

using test::mf::hex;
using test::mf::key;
using test::mf::Machine;
using test::mf::machine;
using test::mf::plain;
using Strings = std::vector<std::string>;
using Bytes = std::vector<std::uint8_t>;

constexpr std::int32_t kWidth = 20, kHeight = 6;
constexpr std::size_t kNv12Size = kWidth * kHeight * 3 / 2;

// A frame whose rows are `padding` bytes longer than their pixels.
CapturedFrame MakeFrame(std::uint32_t width, std::uint32_t height, std::uint32_t padding = 0);

class H264Fixture : public testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  bool Init(std::int32_t fps = 15, std::int32_t bitrate = 4000000);
  // The log lines that the function causes.
  static std::string LogOf(const std::function<void()>& act);
  // The calls that the function causes.
  static Strings CallsOf(const std::function<void()>& act);
  // Encodes the frame, which must succeed, and returns what is appended to the stream.
  std::string Encode(bool force_keyframe = false);
  // Encodes the frame. Returns whether that failed and appended nothing.
  bool EncodeFails();
  // Lets the encoder answer each input with one sample of these bytes.
  static void AnswerEachInput(const std::string& bytes);
  // Opens an asynchronous encoder that answers each input with "x".
  void OpenAsync();

  const CapturedFrame frame_ = MakeFrame(kWidth, kHeight, 8);
  std::optional<H264Encoder> encoder_;
};

}  // namespace vlk::agent
