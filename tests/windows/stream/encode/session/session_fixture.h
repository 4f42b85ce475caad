// What the tests of the H.264 session share. Included by one file of a program, for it takes the system's
// place.
#pragma once

#include "tests/windows/stream/encode/session/fake_mft.h"
// Ends a block, so that the order stays.
#include <optional>

#include <gtest/gtest.h>

#include "stream/encode/colour.h"
#include "stream/encode/h264_encoder.h"

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

inline CapturedFrame MakeFrame(std::uint32_t width, std::uint32_t height, std::uint32_t padding = 0) {
  CapturedFrame frame;
  frame.width = width;
  frame.height = height;
  frame.stride = static_cast<std::int32_t>(width * 4 + padding);
  frame.pixels.resize(static_cast<std::size_t>(frame.stride) * height);
  for (std::size_t i = 0; i < frame.pixels.size(); ++i)
    frame.pixels[i] = static_cast<std::uint8_t>(i * 37 + 11);
  return frame;
}

inline std::string Text(const Bytes& bytes) {
  return std::string(bytes.begin(), bytes.end());
}

class H264Fixture : public testing::Test {
 protected:
  void SetUp() override {
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    test::remove_debug_log();
    machine = Machine();
    encoder_.emplace();
  }
  void TearDown() override {
    encoder_.reset();
    EXPECT_EQ(machine.live, 0) << "objects left";
    machine = Machine();
    test::remove_debug_log();
    CoUninitialize();
  }

  bool Init(std::int32_t fps = 15, std::int32_t bitrate = 4000000) {
    return encoder_->Init(kWidth, kHeight, fps, bitrate);
  }
  // The log of what the function does, and no more.
  template <typename Act>
  std::string LogOf(Act act) {
    test::remove_debug_log();
    act();
    return test::debug_log();
  }
  template <typename Act>
  Strings CallsOf(Act act) {
    machine.calls.clear();
    act();
    return machine.calls;
  }
  std::string Encode(bool force_keyframe = false) {
    Bytes out = {'>'};
    EXPECT_TRUE(encoder_->Encode(frame_, out, force_keyframe));
    EXPECT_EQ(out.at(0), '>') << "what was there stays";
    return Text(Bytes(out.begin() + 1, out.end()));
  }
  bool EncodeFails() {
    Bytes out;
    const bool result = encoder_->Encode(frame_, out, true);
    EXPECT_TRUE(out.empty());
    return !result;
  }
  static void AnswerEachInput(const std::string& bytes) {
    machine.on_input = [bytes](Machine& m) {
      m.outputs.push_back(plain(bytes));
      m.events.push_back(METransformHaveOutput);
      m.events.push_back(METransformNeedInput);
    };
  }
  void OpenAsync() {
    machine.hardware = true;
    ASSERT_TRUE(Init());
    machine.events.push_back(METransformNeedInput);
    AnswerEachInput("x");
  }

  const CapturedFrame frame_ = MakeFrame(kWidth, kHeight, 8);
  std::optional<H264Encoder> encoder_;
};

}  // namespace vlk::agent
