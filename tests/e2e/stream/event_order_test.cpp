// Tests of encoders whose events come in an order that the agent does not expect. Where this ends the stream,
// the test's name begins with "Known": the agent waits for events in a fixed order and without a time limit.
#include "e2e/support/stream_fixture.h"

namespace {

using namespace vantelink_test;
using vlk::Msg;

constexpr auto kFailure = static_cast<std::int32_t>(0x80004005);  // E_FAIL

class EventOrder : public StreamTest {
 protected:
  void SetUp() override {
    StreamTest::SetUp();
    register_encoders("async");
  }

  // Expects that the stream shows these pictures and then no more: the agent waits for an event that the
  // encoder will not send. A stop of the stream then blocks the connection too.
  void expect_end_after(int frames) {
    constexpr Milliseconds kLongEnough{1500};
    start_stream();
    for (int i = 0; i < frames; ++i)
      check_pictures(next_frame());
    if (frames == 0) {
      EXPECT_EQ(text_of(peer_->read_until(Msg::StreamConfig)), config_text("h264", 640, 360));
    }
    ASSERT_TRUE(eventually([&] { return (*codec)->stalled != 0; }));
    EXPECT_EQ((*codec)->outputs, frames);
    EXPECT_EQ((*codec)->misuses, 0);
    EXPECT_TRUE(answers()) << "the connection must work until the stream is stopped";
    send(Msg::StreamStop);
    EXPECT_FALSE(answers(kLongEnough));
    EXPECT_EQ((*codec)->stalled, 1);
    EXPECT_TRUE(running());
    kill_agent();
    EXPECT_TRUE(peer_->wait_closed());
  }
};

TEST_F(EventOrder, KnownEncoderThatAsksAgainAtOnceShowsOneFrame) {
  (*codec)->asks_at_once = 1;
  expect_end_after(1);
}

TEST_F(EventOrder, KnownEncoderThatNeedsTwoFramesBeforeItsFirstOutputShowsNothing) {
  (*codec)->first_requests = 2;
  (*codec)->lagging_frames = 1;
  expect_end_after(0);
}

TEST_F(EventOrder, KnownEncoderThatBuffersFramesShowsNothing) {
  (*codec)->buffered_frames = 1;
  expect_end_after(0);
}

TEST_F(EventOrder, KnownEncoderThatReportsAnErrorFreezesThePicture) {
  (*codec)->failing_input = 5;
  expect_end_after(4);
}

TEST_F(EventOrder, KnownStreamChangeOfAnAsynchronousEncoderShowsNothing) {
  (*codec)->stream_change = 1;
  expect_end_after(0);
  EXPECT_TRUE(logged("encoder: ProcessOutput failed hr=0xc00d6d61\n"));
}

TEST_F(EventOrder, KnownInputThatAnAsynchronousEncoderRefusesFreezesThePicture) {
  (*codec)->process_input_result = kFailure;
  expect_end_after(0);
  EXPECT_TRUE(logged("encoder: ProcessInput(async) failed hr=0x00000000\n"));
}

TEST_F(EventOrder, KnownStreamChangeOfASynchronousEncoderShowsNothingUntilTheCodecChanges) {
  register_encoders("sync");
  (*codec)->stream_change = 1;
  start_stream();
  EXPECT_EQ(text_of(peer_->read_until(Msg::StreamConfig)), config_text("h264", 640, 360));
  ASSERT_TRUE(becomes_logged("encoder: ProcessInput(sync) failed hr=0xc00d36b5\n"));
  EXPECT_TRUE(logged("encoder: ProcessOutput failed hr=0xc00d6d61\n"));
  EXPECT_EQ((*codec)->outputs, 0);
  send(Msg::CodecSelect, R"({"codec":"mjpeg"})");
  // The first frame of the stream is a JPEG picture.
  check_pictures(next_announced(config_text("mjpeg", 640, 360)));
  send(Msg::StreamStop);
  EXPECT_TRUE(answers());
}

TEST_F(EventOrder, EncoderThatAsksForTwoFramesAndOutputsEachShowsEveryFrame) {
  (*codec)->first_requests = 2;
  start_stream();
  for (int i = 0; i < 10; ++i)
    check_pictures(next_frame());
  EXPECT_EQ((*codec)->misuses, 0);
  send(Msg::StreamStop);
  EXPECT_TRUE(answers());
}

}  // namespace
