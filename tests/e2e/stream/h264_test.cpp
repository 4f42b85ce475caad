// Tests of the H.264 stream from end to end, once with a synchronous encoder and once with an asynchronous
// encoder: which frames are sent when, and that an independent decoder decodes the scripted desktop.
#include <algorithm>
#include <array>

#include "e2e/support/stream_fixture.h"

namespace {

using namespace vantelink_test;
using vlk::Msg;

constexpr std::int64_t kKeyInterval = 2000000;                    // microseconds
constexpr auto kFailure = static_cast<std::int32_t>(0x80004005);  // E_FAIL
constexpr char kSync[] = "sync", kAsync[] = "async";

class H264Stream : public StreamTest, public testing::WithParamInterface<const char*> {
 protected:
  void SetUp() override {
    StreamTest::SetUp();
    register_encoders(GetParam());
  }

  // Starts the stream and returns its first frame.
  StreamedFrame first_frame() {
    start_stream();
    StreamedFrame frame = next_frame();
    EXPECT_EQ(frame.configs, std::vector{config_text("h264", 640, 360)});
    EXPECT_TRUE(frame.key());
    return frame;
  }

  // Reads up to the next key frame, which comes after two seconds at the latest.
  StreamedFrame next_key() {
    StreamedFrame frame;
    do {
      frame = next_frame();
    } while (!frame.key());
    return frame;
  }
};

INSTANTIATE_TEST_SUITE_P(Encoders, H264Stream, testing::Values(kSync, kAsync),
                         [](const auto& test) { return std::string(test.param); });

TEST_P(H264Stream, ShowsTheDesktopsPicturesInOrderWithAKeyFrameEveryTwoSeconds) {
  std::int64_t last_key = 0;
  std::uint32_t last = 0;
  int keys = 0;
  StreamedFrame frame = first_frame();
  for (int i = 0; keys < 4; ++i) {
    ASSERT_EQ(frame.units.size(), 1u);
    const std::uint32_t number = check_pictures(frame).at(0);
    EXPECT_GT(number, last);
    last = number;
    // Key frames are the first frame, and each first frame that is two seconds or more after the last key
    // frame.
    EXPECT_EQ(frame.key(), i == 0 || frame.time - last_key >= kKeyInterval) << frame.time - last_key;
    if (frame.key()) {
      last_key = frame.time;
      ++keys;
    }
    frame = next_frame();
    EXPECT_TRUE(frame.configs.empty());
  }
  EXPECT_EQ((*codec)->sessions, 1);
  EXPECT_EQ((*codec)->fps, 30);
  EXPECT_EQ((*codec)->type_bitrate, 6000000);
  EXPECT_EQ((*codec)->bitrate, 6000000);
  EXPECT_EQ((*codec)->profile, 77);
  EXPECT_EQ((*codec)->duration, 333333);
  EXPECT_EQ((*codec)->messages, 0x123);
  const std::string kind = GetParam() == kAsync ? "hardware" : "software";
  EXPECT_TRUE(logged("encoder: H.264 " + kind + " encoder ready hr=0x00000000\n"));
}

TEST_P(H264Stream, KeyframeRequestGivesOneKeyFrame) {
  const std::int64_t first = first_frame().time;
  // The first frame is a key frame in any case, so the request is sent after the second frame.
  const std::int64_t asked_after = next_frame().time;
  ASSERT_LT(asked_after - first, kKeyInterval);
  send(Msg::KeyframeRequest);
  const StreamedFrame answer = next_key();
  EXPECT_LT(answer.time - first, kKeyInterval);
  EXPECT_EQ((*codec)->forced, 2);
  const StreamedFrame due = next_key();
  EXPECT_GE(due.time - answer.time, kKeyInterval);
}

TEST_P(H264Stream, SwitchToJpegAndBackWithAKeyframeRequestGivesTwoKeyFrames) {
  first_frame();
  send(Msg::CodecSelect, R"({"codec":"mjpeg"})");
  const StreamedFrame jpeg = next_announced(config_text("mjpeg", 640, 360));
  check_pictures(jpeg);
  // The agent keeps this request until the stream is H.264 again. It then causes a key frame after the first
  // key frame of the new encoder.
  send(Msg::KeyframeRequest);
  for (int i = 0; i < 3; ++i)
    check_pictures(next_frame());
  EXPECT_EQ((*codec)->live, 0);
  send(Msg::CodecSelect, R"({"codec":"anything else"})");
  const StreamedFrame back = next_announced(config_text("h264", 640, 360));
  EXPECT_TRUE(back.key());
  check_pictures(back);
  const StreamedFrame second = next_frame();
  EXPECT_TRUE(second.key());
  check_pictures(second);
  const StreamedFrame third = next_frame();
  EXPECT_FALSE(third.key());
  check_pictures(third);
  EXPECT_EQ((*codec)->sessions, 2);
}

TEST_P(H264Stream, SwitchToAnotherMonitorOpensANewEncoder) {
  set_outputs({{0, 0, 640, 360}, {640, 0, 640, 360}, {0, 360, 800, 336}});
  first_frame();
  for (const auto& [monitor, width, height] : {std::array{1, 640, 360}, {2, 800, 336}, {0, 640, 360}}) {
    const int sessions = (*codec)->sessions;
    send(Msg::MonitorSelect, R"({"monitor_id":)" + std::to_string(monitor) + "}");
    const StreamedFrame frame = next_announced(config_text("h264", width, height, monitor));
    EXPECT_TRUE(frame.key());
    for (const StreamedFrame& shown : {frame, next_frame(), next_frame()})
      check_pictures(shown, static_cast<std::uint32_t>(monitor));
    EXPECT_EQ((*codec)->sessions, sessions + 1);
    EXPECT_EQ((*codec)->live, 1);
  }
}

TEST_P(H264Stream, NewPictureSizeOpensANewEncoder) {
  first_frame();
  (*desktop)->width = 800;
  (*desktop)->height = 450;
  const StreamedFrame frame = next_announced(config_text("h264", 800, 450));
  EXPECT_TRUE(frame.key());
  check_pictures(frame);
  check_pictures(next_frame());
  EXPECT_EQ((*codec)->sessions, 2);
  EXPECT_EQ((*codec)->live, 1);
  EXPECT_EQ((*codec)->width, 800);
  EXPECT_EQ((*codec)->height, 450);
}

TEST_P(H264Stream, TimeStampsOfANewStreamStartAtZeroAgain) {
  first_frame();
  std::int64_t time = 0;
  for (int i = 0; i < 20; ++i)
    time = next_frame().time;
  start_stream();
  // Skips the last frames of the old stream, which were sent before it was replaced.
  StreamedFrame frame = next_frame();
  while (frame.configs.empty()) {
    last_time_.reset();
    frame = next_frame();
  }
  EXPECT_LT(frame.time, time);
  EXPECT_TRUE(frame.key());
  check_pictures(frame);
}

TEST_P(H264Stream, EncoderThatRefusesItsMediaTypesIsReplacedByJpegUntilSizeOrCodecChanges) {
  constexpr auto kInvalidType = static_cast<std::int32_t>(0xC00D36B4);
  (*codec)->input_type_result = kInvalidType;
  start_stream();
  const StreamedFrame frame = next_frame();
  EXPECT_EQ(frame.configs, std::vector{config_text("mjpeg", 640, 360)});
  check_pictures(frame);
  EXPECT_TRUE(logged("encoder: SetInputType failed hr=0xc00d36b4\n"));
  (*codec)->input_type_result = 0;
  // The selected codec is still H.264, so selecting it again changes nothing.
  send(Msg::CodecSelect, R"({"codec":"h264"})");
  for (int i = 0; i < 10; ++i)
    EXPECT_TRUE(next_frame().configs.empty());
  EXPECT_EQ((*codec)->activations, 1);

  (*desktop)->width = 480;
  (*desktop)->height = 272;
  const StreamedFrame smaller = next_announced(config_text("h264", 480, 272));
  EXPECT_TRUE(smaller.key());
  check_pictures(smaller);

  (*codec)->output_type_result = kInvalidType;
  (*desktop)->width = (*desktop)->height = 0;
  next_announced(config_text("mjpeg", 640, 360));
  EXPECT_TRUE(logged("encoder: SetOutputType failed hr=0xc00d36b4\n"));
  (*codec)->output_type_result = 0;
  send(Msg::CodecSelect, R"({"codec":"mjpeg"})");
  next_announced(config_text("mjpeg", 640, 360));
  send(Msg::CodecSelect, R"({"codec":"h264"})");
  const StreamedFrame back = next_announced(config_text("h264", 640, 360));
  EXPECT_TRUE(back.key());
}

TEST_P(H264Stream, FramesWithEncoderErrorsAreSkippedAndTheStreamContinues) {
  using Board = vantelink_doubles::CodecBoard;
  const bool async = GetParam() == kAsync;
  first_frame();
  for (const auto cell : {&Board::process_output_result, &Board::process_input_result}) {
    // A refused input stops the stream of an asynchronous encoder; event_order_test.cpp tests that.
    if (async && cell == &Board::process_input_result) continue;
    (codec->operator->()->*cell) = kFailure;
    const int frames = (*desktop)->frames;
    ASSERT_TRUE(eventually([&] { return (*desktop)->frames > frames + 5; }));
    (codec->operator->()->*cell) = 0;
    // Frames are missing, so the test continues with a new decoder and a key frame.
    send(Msg::KeyframeRequest);
    decoder_.reset();
    const StreamedFrame key = next_key();
    EXPECT_TRUE(key.configs.empty());
    check_pictures(key);
    check_pictures(next_frame());
  }
  EXPECT_EQ((*codec)->sessions, 1);
  EXPECT_TRUE(logged("encoder: ProcessOutput failed hr=0x80004005\n"));
  EXPECT_TRUE(async || logged("encoder: ProcessInput(sync) failed hr=0x80004005\n"));
}

TEST_P(H264Stream, EveryKindOfOutputSampleAllocationWorks) {
  for (const std::int32_t flags : {0x100, 0x200, 0}) {
    SCOPED_TRACE(flags);
    (*codec)->sample_flags = flags;
    (*codec)->no_buffer_size = flags == 0;
    first_frame();
    for (int i = 0; i < 5; ++i)
      next_frame();
    send(Msg::KeyframeRequest);
    check_pictures(next_key());
    check_pictures(next_frame());
    send(Msg::StreamStop);
    ASSERT_TRUE(answers());
    EXPECT_EQ((*codec)->live, 0);
    EXPECT_EQ((*codec)->messages, 0x12345);
  }
}

TEST_P(H264Stream, EmptySamplesAndHugeHeadersDoNotCrashTheAgent) {
  using Board = vantelink_doubles::CodecBoard;
  (*codec)->sample_flags = 0x100;
  first_frame();
  for (const auto cell : {&Board::null_sample, &Board::empty_sample}) {
    (codec->operator->()->*cell) = 1;
    const int frames = (*desktop)->frames;
    ASSERT_TRUE(eventually([&] { return (*desktop)->frames > frames + 5; }));
    (codec->operator->()->*cell) = 0;
    send(Msg::KeyframeRequest);
    decoder_.reset();
    check_pictures(next_key());
  }
  // A header of four mebibytes is sent before each key frame, like any other header.
  constexpr std::int32_t kHuge = 4 << 20;
  (*codec)->header_bytes = kHuge;
  (*desktop)->width = 480;
  const StreamedFrame huge = next_announced();
  EXPECT_GT(huge.data.size(), std::size_t{kHuge});
  EXPECT_TRUE(huge.key());
  check_pictures(huge);
  EXPECT_LT(next_frame().data.size(), std::size_t{kHuge});
  send(Msg::StreamStop);
  EXPECT_TRUE(answers());
  EXPECT_TRUE(running());
}

TEST_P(H264Stream, EncoderThatSendsItsHeaderOnlyInsideTheStreamWorks) {
  (*codec)->no_header = 1;
  check_pictures(first_frame());
  check_pictures(next_frame());
}

TEST_P(H264Stream, WithoutACodecApiOnlyTheFirstFrameIsAKeyFrame) {
  (*codec)->no_codec_api = 1;
  check_pictures(first_frame());
  send(Msg::KeyframeRequest);
  StreamedFrame frame;
  do {
    frame = next_frame();
    EXPECT_FALSE(frame.key());
    check_pictures(frame);
  } while (frame.time < kKeyInterval * 5 / 4);
  EXPECT_EQ((*codec)->forced, 0);
}

}  // namespace
