// The H.264 stream end to end, with an encoder that answers within the calls and with one that works by
// events: what is sent when, and that an independent decoder shows the scripted desktop.
#include <algorithm>
#include <array>

#include "e2e/support/stream_fixture.h"

namespace {

using namespace vantelink_test;
using vlk::Msg;

constexpr std::int64_t kKeyInterval = 2000000;  // microseconds
constexpr auto kFailure = static_cast<std::int32_t>(0x80004005);
constexpr char kSync[] = "sync", kAsync[] = "async";

class H264Stream : public StreamTest, public testing::WithParamInterface<const char*> {
 protected:
  void SetUp() override {
    StreamTest::SetUp();
    register_encoders(GetParam());
  }

  // Starts the stream and reads its first frame.
  StreamedFrame first_frame() {
    start_stream();
    StreamedFrame frame = next_frame();
    EXPECT_EQ(frame.configs, std::vector{config_text("h264", 640, 360)});
    EXPECT_TRUE(frame.key());
    return frame;
  }

  // Reads on to the next key frame, at the latest the one that is due.
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

TEST_P(H264Stream, ShowsTheDesktopInOrderWithAKeyFrameAtLeastEveryTwoSeconds) {
  std::int64_t last_key = 0;
  std::uint32_t last = 0;
  int keys = 0;
  StreamedFrame frame = first_frame();
  for (int i = 0; keys < 4; ++i) {
    ASSERT_EQ(frame.units.size(), 1u);
    const std::uint32_t number = numbers(frame).at(0);
    EXPECT_GT(number, last);
    last = number;
    // Neither more nor fewer: a key frame is due when its time has come, and the first is.
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
  EXPECT_NE(desk->debug_log().find("encoder: H.264 " + kind + " encoder ready hr=0x00000000\n"),
            std::string::npos);
}

TEST_P(H264Stream, RequestGivesOneKeyFrame) {
  const std::int64_t first = first_frame().time;
  // While it is far from due; the request is meant for the time after the first frame.
  const std::int64_t asked_after = next_frame().time;
  ASSERT_LT(asked_after - first, kKeyInterval);
  say(Msg::KeyframeRequest);
  const StreamedFrame answer = next_key();
  EXPECT_LT(answer.time - first, kKeyInterval);
  EXPECT_EQ((*codec)->forced, 2);
  const StreamedFrame due = next_key();
  EXPECT_GE(due.time - answer.time, kKeyInterval);
}

TEST_P(H264Stream, CodecThereAndBackGivesTwoKeyFrames) {
  first_frame();
  say(Msg::CodecSelect, R"({"codec":"mjpeg"})");
  const StreamedFrame jpeg = next_announced();
  EXPECT_EQ(jpeg.configs, std::vector{config_text("mjpeg", 640, 360)});
  numbers(jpeg);
  // A request during JPEG is kept for later; it and the change back are one.
  say(Msg::KeyframeRequest);
  for (int i = 0; i < 3; ++i)
    numbers(next_frame());
  EXPECT_EQ((*codec)->live, 0);
  say(Msg::CodecSelect, R"({"codec":"anything else"})");
  const StreamedFrame back = next_announced();
  EXPECT_EQ(back.configs, std::vector{config_text("h264", 640, 360)});
  EXPECT_TRUE(back.key());
  numbers(back);
  const StreamedFrame second = next_frame();
  EXPECT_TRUE(second.key());
  numbers(second);
  const StreamedFrame third = next_frame();
  EXPECT_FALSE(third.key());
  numbers(third);
  EXPECT_EQ((*codec)->sessions, 2);
}

TEST_P(H264Stream, EachMonitorHasASessionOfItsOwn) {
  set_outputs({{0, 0, 640, 360}, {640, 0, 640, 360}, {0, 360, 800, 336}});
  first_frame();
  for (const auto& [monitor, width, height] : {std::array{1, 640, 360}, {2, 800, 336}, {0, 640, 360}}) {
    const int sessions = (*codec)->sessions;
    say(Msg::MonitorSelect, R"({"monitor_id":)" + std::to_string(monitor) + "}");
    const StreamedFrame frame = next_announced();
    EXPECT_EQ(frame.configs, std::vector{config_text("h264", width, height, monitor)});
    EXPECT_TRUE(frame.key());
    for (const StreamedFrame& shown : {frame, next_frame(), next_frame()})
      numbers(shown, static_cast<std::uint32_t>(monitor));
    EXPECT_EQ((*codec)->sessions, sessions + 1);
    EXPECT_EQ((*codec)->live, 1);
  }
}

TEST_P(H264Stream, NewSizeIsANewSession) {
  first_frame();
  (*desktop)->width = 800;
  (*desktop)->height = 450;
  const StreamedFrame frame = next_announced();
  EXPECT_EQ(frame.configs, std::vector{config_text("h264", 800, 450)});
  EXPECT_TRUE(frame.key());
  numbers(frame);
  numbers(next_frame());
  EXPECT_EQ((*codec)->sessions, 2);
  EXPECT_EQ((*codec)->live, 1);
  EXPECT_EQ((*codec)->width, 800);
  EXPECT_EQ((*codec)->height, 450);
}

TEST_P(H264Stream, NewStreamBeginsItsTimesAnew) {
  first_frame();
  std::int64_t time = 0;
  for (int i = 0; i < 20; ++i)
    time = next_frame().time;
  start_stream();
  // What the old stream sent until it was replaced comes first.
  StreamedFrame frame = next_frame();
  while (frame.configs.empty()) {
    last_time_.reset();
    frame = next_frame();
  }
  EXPECT_LT(frame.time, time);
  EXPECT_TRUE(frame.key());
  numbers(frame);
}

TEST_P(H264Stream, RefusalMeansJpegUntilSizeOrCodecChanges) {
  constexpr auto kInvalidType = static_cast<std::int32_t>(0xC00D36B4);
  (*codec)->input_type_result = kInvalidType;
  start_stream();
  const StreamedFrame frame = next_frame();
  EXPECT_EQ(frame.configs, std::vector{config_text("mjpeg", 640, 360)});
  numbers(frame);
  EXPECT_NE(desk->debug_log().find("encoder: SetInputType failed hr=0xc00d36b4\n"), std::string::npos);
  (*codec)->input_type_result = 0;
  // The requested codec is still H.264, so a wish for it changes nothing.
  say(Msg::CodecSelect, R"({"codec":"h264"})");
  for (int i = 0; i < 10; ++i)
    EXPECT_TRUE(next_frame().configs.empty());
  EXPECT_EQ((*codec)->activations, 1);

  (*desktop)->width = 480;
  (*desktop)->height = 272;
  const StreamedFrame smaller = next_announced();
  EXPECT_EQ(smaller.configs, std::vector{config_text("h264", 480, 272)});
  EXPECT_TRUE(smaller.key());
  numbers(smaller);

  (*codec)->output_type_result = kInvalidType;
  (*desktop)->width = (*desktop)->height = 0;
  EXPECT_EQ(next_announced().configs, std::vector{config_text("mjpeg", 640, 360)});
  EXPECT_NE(desk->debug_log().find("encoder: SetOutputType failed hr=0xc00d36b4\n"), std::string::npos);
  (*codec)->output_type_result = 0;
  say(Msg::CodecSelect, R"({"codec":"mjpeg"})");
  EXPECT_EQ(next_announced().configs, std::vector{config_text("mjpeg", 640, 360)});
  say(Msg::CodecSelect, R"({"codec":"h264"})");
  const StreamedFrame back = next_announced();
  EXPECT_EQ(back.configs, std::vector{config_text("h264", 640, 360)});
  EXPECT_TRUE(back.key());
}

TEST_P(H264Stream, FailuresInsideASessionCostTheirFramesAlone) {
  using Board = vantelink_doubles::CodecBoard;
  first_frame();
  for (const auto cell : {&Board::process_input_result, &Board::process_output_result}) {
    (codec->operator->()->*cell) = kFailure;
    const int frames = (*desktop)->frames;
    ASSERT_TRUE(eventually([&] { return (*desktop)->frames > frames + 5; }));
    (codec->operator->()->*cell) = 0;
    // The decoder missed frames, so it starts anew.
    say(Msg::KeyframeRequest);
    decoder_.reset();
    const StreamedFrame key = next_key();
    EXPECT_TRUE(key.configs.empty());
    numbers(key);
    numbers(next_frame());
  }
  EXPECT_EQ((*codec)->sessions, 1);
  const std::string log = desk->debug_log();
  EXPECT_NE(log.find(GetParam() == kAsync ? "encoder: ProcessInput(async) failed hr=0x00000000\n"
                                          : "encoder: ProcessInput(sync) failed hr=0x80004005\n"),
            std::string::npos);
  EXPECT_NE(log.find("encoder: ProcessOutput failed hr=0x80004005\n"), std::string::npos);
}

TEST_P(H264Stream, EveryWayOfHandingOutSamplesWorks) {
  for (const std::int32_t flags : {0x100, 0x200, 0}) {
    SCOPED_TRACE(flags);
    (*codec)->sample_flags = flags;
    (*codec)->no_buffer_size = flags == 0;
    first_frame();
    for (int i = 0; i < 5; ++i)
      next_frame();
    say(Msg::KeyframeRequest);
    numbers(next_key());
    numbers(next_frame());
    say(Msg::StreamStop);
    ASSERT_TRUE(answers());
    EXPECT_EQ((*codec)->live, 0);
    EXPECT_EQ((*codec)->messages, 0x12345);
  }
}

TEST_P(H264Stream, AbsurdSamplesAndHeadersNeverEndTheAgent) {
  using Board = vantelink_doubles::CodecBoard;
  (*codec)->sample_flags = 0x100;
  first_frame();
  for (const auto cell : {&Board::null_sample, &Board::empty_sample}) {
    (codec->operator->()->*cell) = 1;
    const int frames = (*desktop)->frames;
    ASSERT_TRUE(eventually([&] { return (*desktop)->frames > frames + 5; }));
    (codec->operator->()->*cell) = 0;
    say(Msg::KeyframeRequest);
    decoder_.reset();
    numbers(next_key());
  }
  // Megabytes of header go in front of each key frame, as any other header does.
  constexpr std::int32_t kHuge = 4 << 20;
  (*codec)->header_bytes = kHuge;
  (*desktop)->width = 480;
  const StreamedFrame huge = next_announced();
  EXPECT_GT(huge.data.size(), std::size_t{kHuge});
  EXPECT_TRUE(huge.key());
  numbers(huge);
  EXPECT_LT(next_frame().data.size(), std::size_t{kHuge});
  say(Msg::StreamStop);
  EXPECT_TRUE(answers());
  EXPECT_TRUE(running());
}

TEST_P(H264Stream, HeaderInsideTheStreamServesToo) {
  (*codec)->no_header = 1;
  numbers(first_frame());
  numbers(next_frame());
}

TEST_P(H264Stream, WithoutACodecApiThereIsTheEncodersOwnFirstKeyFrameAlone) {
  (*codec)->no_codec_api = 1;
  numbers(first_frame());
  say(Msg::KeyframeRequest);
  StreamedFrame frame;
  do {
    frame = next_frame();
    EXPECT_FALSE(frame.key());
    numbers(frame);
  } while (frame.time < kKeyInterval * 5 / 4);
  EXPECT_EQ((*codec)->forced, 0);
}

class EncoderChoice : public StreamTest {};

TEST_F(EncoderChoice, HardwareComesFirstAndSoftwareServesWhereItFailsToStart) {
  register_encoders("sync async");
  start_stream();
  numbers(next_frame());
  EXPECT_NE(desk->debug_log().find("encoder: H.264 hardware encoder ready"), std::string::npos);
  end_agent();
  peer_.reset();

  (*codec)->activate_result[static_cast<int>(vantelink_doubles::Transform::Async)] = kFailure;
  start_stream();
  const StreamedFrame frame = next_frame();
  EXPECT_EQ(frame.configs, std::vector{config_text("h264", 640, 360)});
  numbers(frame);
  const std::string log = desk->debug_log();
  const std::size_t failed = log.rfind("encoder: ActivateObject failed hr=0x");
  ASSERT_NE(failed, std::string::npos);
  EXPECT_NE(log.find("encoder: H.264 software encoder ready", failed), std::string::npos);
}

TEST_F(EncoderChoice, FramesKeptAtTheStartComeTogetherInOneMessage) {
  register_encoders(kSync);
  (*codec)->buffered_frames = 3;
  start_stream();
  const StreamedFrame first = next_frame();
  ASSERT_EQ(first.units.size(), 4u);
  EXPECT_TRUE(first.key());
  const auto shown = numbers(first);
  EXPECT_TRUE(std::is_sorted(shown.begin(), shown.end()));
  for (int i = 0; i < 3; ++i) {
    const StreamedFrame frame = next_frame();
    EXPECT_EQ(frame.units.size(), 1u);
    numbers(frame);
  }
}

TEST_F(EncoderChoice, StopWaitsForASilentEncoder) {
  constexpr Milliseconds kLongEnough{1500};
  register_encoders(kAsync);
  start_stream();
  next_frame();
  (*codec)->silent = 1;
  ASSERT_TRUE(eventually([&] { return (*codec)->withheld != 0; }));
  say(Msg::StreamStop);
  EXPECT_FALSE(answers(kLongEnough)) << "the connection's thread does not wait for the stream's";
  (*codec)->silent = 0;
  EXPECT_TRUE(answers());
  EXPECT_EQ((*codec)->live, 0);

  // And when it stays silent, only an end from outside helps.
  start_stream();
  next_frame();
  (*codec)->silent = 1;
  ASSERT_TRUE(eventually([&] { return (*codec)->withheld != 0; }));
  say(Msg::StreamStop);
  EXPECT_FALSE(answers(kLongEnough));
  EXPECT_TRUE(running());
  end_agent();
  EXPECT_TRUE(peer_->wait_closed());
}

}  // namespace
