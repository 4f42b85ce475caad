// Draws the test pictures, encodes them and compares what is decoded.
#include "tests/windows/stream/encode/transforms/transforms_fixture.h"

#include <atomic>
#include <cstring>
#include <thread>

#include "stream/encode/colour.h"
#include "tests/doubles/scripted_picture.h"
#include "tests/windows/support/debug_log_file.h"

namespace vlk::agent {
namespace {

constexpr double kSmallestPsnr = 30;    // decibels
constexpr ULONGLONG kPatience = 30000;  // milliseconds

Bytes LumaOf(const CapturedFrame& frame) {
  const auto width = static_cast<std::int32_t>(frame.width), height = static_cast<std::int32_t>(frame.height);
  Bytes luma(std::size_t{frame.width} * frame.height), chroma(ChromaCapacity(width, height));
  ConvertBgraToNv12Plainly(frame.pixels.data(), width, height, frame.stride, luma.data(), chroma.data());
  return luma;
}

}  // namespace

const Types kKeyFrame = {test::kSequenceSet, test::kPictureSet, test::kKeySlice};
const Types kOtherFrame = {test::kSlice};

CapturedFrame Picture(std::uint32_t number, std::int32_t width, std::int32_t height) {
  CapturedFrame frame;
  frame.width = static_cast<std::uint32_t>(width);
  frame.height = static_cast<std::uint32_t>(height);
  frame.stride = width * 4;
  frame.pixels.resize(static_cast<std::size_t>(frame.stride) * frame.height);
  vantelink_doubles::paint_picture(frame.pixels.data(), frame.width, frame.height,
                                   static_cast<std::size_t>(frame.stride), number, 0);
  return frame;
}

void H264TransformsTest::SetUp() {
  ASSERT_TRUE(the_double().shared());
  std::memset(static_cast<void*>(&board_), 0, sizeof(board_));
  test::remove_debug_log();
  ASSERT_TRUE(the_double().Register(async() ? L"async" : L"sync"));
  encoder_.emplace();
}

void H264TransformsTest::TearDown() {
  board_.silent = 0;
  encoder_.reset();
  EXPECT_EQ(board_.live, 0) << "transforms are not released";
  EXPECT_EQ(board_.misuses, 0) << "calls were made that no event allowed";
}

Bytes H264TransformsTest::Encode(const CapturedFrame& frame, bool force) {
  Bytes out;
  EXPECT_TRUE(encoder_->Encode(frame, out, force));
  return out;
}

void H264TransformsTest::ExpectWaitsForever(const CapturedFrame& frame, bool force) {
  std::atomic<bool> returned{false};
  bool result = true;
  Bytes out;
  std::thread caller([&] {
    result = encoder_->Encode(frame, out, force);
    returned = true;
  });
  const ULONGLONG deadline = GetTickCount64() + kPatience;
  while (board_.stalled == 0 && !returned && GetTickCount64() < deadline)
    Sleep(1);
  EXPECT_EQ(board_.stalled, 1);
  EXPECT_FALSE(returned);
  the_double().ShutDownEvents();
  caller.join();
  EXPECT_FALSE(result);
  EXPECT_TRUE(out.empty());
}

void H264TransformsTest::ExpectShown(test::H264Decoder& decoder, std::uint32_t number, const Types& types,
                                     bool force, std::int32_t width, std::int32_t height) {
  const CapturedFrame frame = Picture(number, width, height);
  const Bytes bytes = Encode(frame, force);
  EXPECT_EQ(test::nal_types(bytes), types) << number;
  const test::DecodedLuma shown = decoder.decode(bytes);
  ASSERT_EQ(shown.width, width) << number;
  ASSERT_EQ(shown.height, height) << number;
  EXPECT_EQ(vantelink_doubles::read_number(shown.rows.data(), static_cast<std::size_t>(width)), number);
  EXPECT_GT(test::psnr(LumaOf(frame), shown.rows), kSmallestPsnr) << number;
}

}  // namespace vlk::agent
