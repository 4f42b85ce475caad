// Streams of the H.264 encoder that Wine 10 has, so of an encoder that was not written for these tests. All
// desks of this program have Wine 10. Wine's encoder has no ICodecAPI that works, so key frames cannot be
// forced. It expects rows that are padded to a multiple of 4 bytes, so the widths here are such multiples.
#include <cstdlib>

#include "e2e/support/stream_fixture.h"

namespace {

using namespace vantelink_test;
using vlk::Msg;

class WineEncoder : public StreamTest {
 protected:
  static void SetUpTestSuite() {
    ::setenv("VANTELINK_WINE", "10", 1);
    StreamTest::SetUpTestSuite();
    ASSERT_EQ(desk->exec({"regsvr32", "/s", "mfh264enc.dll"}), 0);
  }
};

TEST_F(WineEncoder, EveryFrameIsDecodedAndShowsTheDesktop) {
  start_stream();
  std::uint32_t last = 0;
  for (int i = 0; i < 240; ++i) {
    const StreamedFrame frame = next_frame();
    if (i == 0) {
      EXPECT_EQ(frame.configs, std::vector{config_text("h264", 640, 360)});
      EXPECT_TRUE(frame.key());
    }
    const std::uint32_t number = check_pictures(frame).at(0);
    EXPECT_GT(number, last);
    last = number;
  }
  EXPECT_TRUE(logged("encoder: H.264 software encoder ready hr=0x00000000\n"));
}

TEST_F(WineEncoder, NewPictureSizeIsAnnouncedAndEncodedDuringTheStream) {
  start_stream();
  check_pictures(next_frame());
  for (const auto& [width, height] : {std::pair(800, 448), {1280, 720}, {640, 360}}) {
    (*desktop)->width = width;
    (*desktop)->height = height;
    const StreamedFrame frame = next_announced(config_text("h264", width, height));
    EXPECT_TRUE(frame.key());
    check_pictures(frame);
    for (int i = 0; i < 20; ++i)
      check_pictures(next_frame());
  }
}

TEST_F(WineEncoder, RepeatedStartsKeepTheUseOfMemoryLevel) {
  constexpr int kStarts = 20;
  constexpr long kSlack = 8 * 1024;  // kilobytes; the heaps and GStreamer's pools grow to their final size
  const auto starts = [&] {
    for (int i = 0; i < kStarts; ++i) {
      start_stream(R"({"max_fps":1000})");
      decoder_.reset();
      for (int frames = 0; frames < 3; ++frames)
        check_pictures(next_frame());
      send(Msg::StreamStop);
      ASSERT_TRUE(answers());
    }
    std::printf("after %d starts: %ld KiB\n", kStarts, memory_kilobytes(pid_, {"Private_Dirty:"}));
  };
  starts();
  const long before = memory_kilobytes(pid_, {"Private_Dirty:"});
  starts();
  EXPECT_LE(memory_kilobytes(pid_, {"Private_Dirty:"}), before + kSlack);
}

}  // namespace
