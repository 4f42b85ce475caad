// Opens encoder sessions on the scripted Media Foundation and compares the recorded calls.
#include "tests/windows/stream/encode/session/session_fixture.h"

#include "tests/windows/support/debug_log_file.h"

namespace vlk::agent {

CapturedFrame MakeFrame(std::uint32_t width, std::uint32_t height, std::uint32_t padding) {
  CapturedFrame frame;
  frame.width = width;
  frame.height = height;
  frame.stride = static_cast<std::int32_t>(width * 4 + padding);
  frame.pixels.resize(static_cast<std::size_t>(frame.stride) * height);
  for (std::size_t i = 0; i < frame.pixels.size(); ++i)
    frame.pixels[i] = static_cast<std::uint8_t>(i * 37 + 11);
  return frame;
}

void H264Fixture::SetUp() {
  CoInitializeEx(nullptr, COINIT_MULTITHREADED);
  test::remove_debug_log();
  machine = Machine();
  encoder_.emplace();
}

void H264Fixture::TearDown() {
  encoder_.reset();
  EXPECT_EQ(machine.live, 0) << "objects are not released";
  machine = Machine();
  test::remove_debug_log();
  CoUninitialize();
}

bool H264Fixture::Init(std::int32_t fps, std::int32_t bitrate) {
  return encoder_->Init(kWidth, kHeight, fps, bitrate);
}

std::string H264Fixture::LogOf(const std::function<void()>& act) {
  test::remove_debug_log();
  act();
  return test::debug_log();
}

Strings H264Fixture::CallsOf(const std::function<void()>& act) {
  machine.calls.clear();
  act();
  return machine.calls;
}

std::string H264Fixture::Encode(bool force_keyframe) {
  Bytes out = {'>'};
  EXPECT_TRUE(encoder_->Encode(frame_, out, force_keyframe));
  EXPECT_EQ(out.at(0), '>') << "bytes before the frame must stay";
  return {out.begin() + 1, out.end()};
}

bool H264Fixture::EncodeFails() {
  Bytes out;
  const bool result = encoder_->Encode(frame_, out, true);
  EXPECT_TRUE(out.empty());
  return !result;
}

void H264Fixture::AnswerEachInput(const std::string& bytes) {
  machine.on_input = [bytes](Machine& m) {
    m.outputs.push_back(plain(bytes));
    m.events.push_back(METransformHaveOutput);
    m.events.push_back(METransformNeedInput);
  };
}

void H264Fixture::OpenAsync() {
  machine.hardware = true;
  ASSERT_TRUE(Init());
  machine.events.push_back(METransformNeedInput);
  AnswerEachInput("x");
}

}  // namespace vlk::agent
