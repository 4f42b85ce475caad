// A change of the screen's resolution while the stream runs. The desk has Wine 10, whose virtual desktop
// changes its size, and Wine's own encoder. The agent copies the screen by GDI, so no part of Windows is
// replaced by a double.
#include <cstdlib>

#include "e2e/support/stream_fixture.h"
#include "support/bytes/file_bytes.h"

namespace {

using namespace vantelink_test;

constexpr char kProbe[] = VANTELINK_SOURCE_DIR "/build/windows/tests/probe.exe";

class LiveSize : public StreamTest, public testing::WithParamInterface<const char*> {
 protected:
  static constexpr double kMostError = 3;  // levels

  static void SetUpTestSuite() {
    ::setenv("VANTELINK_WINE", "10", 1);
    StreamTest::SetUpTestSuite();
  }

  void SetUp() override {
    StreamTest::SetUp();
    agent_ = kAgent;
    environment_.clear();
    std::vector<std::string> registration = {"regsvr32", "/s", "mfh264enc.dll"};
    if (GetParam() == std::string("mjpeg")) registration.insert(registration.begin() + 1, "/u");
    ASSERT_EQ(desk->exec(registration), 0);
  }

  void TearDown() override {
    resize(1280, 720);
    StreamTest::TearDown();
  }

  static void resize(int width, int height) {
    ASSERT_EQ(desk->exec({kProbe, "display", std::to_string(width), std::to_string(height)}), 0);
  }

  // Reads frames until one shows what is on the screen.
  void expect_screen(StreamedFrame frame) {
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    for (;;) {
      if (!decoder_)
        decoder_ = std::make_unique<VideoDecoder>(frame.units.empty() ? VideoCodec::Jpeg : VideoCodec::H264);
      const Picture picture = decoder_->decode(frame.data);
      const std::string file = desk->folder() + "/screen.png";
      desk->screenshot(file);
      const double error = mean_error(picture, decode_png(file_bytes(file)));
      if (error < kMostError) return;
      ASSERT_LT(std::chrono::steady_clock::now(), deadline) << "the mean error is " << error;
      frame = next_frame();
    }
  }
};

INSTANTIATE_TEST_SUITE_P(Codecs, LiveSize, testing::Values("h264", "mjpeg"),
                         [](const auto& test) { return std::string(test.param); });

TEST_P(LiveSize, StreamFollowsTheResolutionOfTheScreen) {
  start_stream();
  StreamedFrame frame = next_frame();
  EXPECT_EQ(frame.configs, std::vector{config_text(GetParam(), 1280, 720)});
  expect_screen(frame);
  for (const auto& [width, height] : {std::pair(800, 600), {640, 480}, {1280, 720}}) {
    resize(width, height);
    frame = next_announced(config_text(GetParam(), width, height));
    EXPECT_EQ(frame.key(), GetParam() == std::string("h264"));
    expect_screen(frame);
  }
  EXPECT_TRUE(running());
}

}  // namespace
