// The encoder of the stream: when it is opened, when it makes key frames, and what its failures lead to.
#include <string>

#include "unit/stream/worker_fixture.h"

namespace vlk::agent {
namespace {

using vantelink_fakes::count;
using vantelink_fakes::script;
using Lines = std::vector<std::string>;
using StreamEncodingTest = RecordingFixture;

TEST_F(StreamEncodingTest, SettingsArePassedToTheEncoderUnchecked) {
  with_duplication(640, 480);
  with_encoder();
  settings_.max_fps = 0;
  settings_.bitrate = -1;
  Run(1);
  EXPECT_EQ(count("Init 640 480 0 -1"), 1u);
}

TEST_F(StreamEncodingTest, JpegIsUsedUntilTheSizeChangesIfTheEncoderCannotBeOpened) {
  script().open = [](std::int32_t) { return true; };
  std::uint32_t width = 640;
  script().acquire = [&](CapturedFrame& frame) { return Fill(frame, width, 480); };
  Run(3);
  EXPECT_EQ(count("Init 640 480 15 6000000"), 1u);
  EXPECT_EQ(configs(), (Lines{R"({"codec":"mjpeg","w":640,"h":480,"monitor_id":0})"}));
  EXPECT_EQ(count("EncodeJpeg 640 480 2560 70"), 3u);
  EXPECT_EQ(count("Shutdown"), 0u) << "a session that could not be opened is not closed";
  with_encoder();
  width = 800;
  Run(1);
  EXPECT_EQ(configs().back(), R"({"codec":"h264","w":800,"h":480,"monitor_id":0})");
  EXPECT_EQ(count("Encode key"), 1u);
}

TEST_F(StreamEncodingTest, SizeChangeReopensTheEncoderAndForcesAKeyFrame) {
  script().open = [](std::int32_t) { return true; };
  with_encoder();
  std::uint32_t height = 480;
  script().acquire = [&](CapturedFrame& frame) { return Fill(frame, 640, height); };
  Run(2);
  height = 400;
  Run(1);
  EXPECT_EQ(count("Shutdown"), 1u);
  EXPECT_EQ(count("Init 640 400 15 6000000"), 1u);
  EXPECT_EQ(count("Encode key"), 2u);
  EXPECT_EQ(configs().size(), 2u);
}

TEST_F(StreamEncodingTest, KeyFrameIsForcedOnceForARequestAndEveryTwoSeconds) {
  with_duplication(640, 480);
  with_encoder();
  settings_.max_fps = 10;
  Run(1);
  EXPECT_EQ(count("Encode key"), 1u);
  Run(5);
  EXPECT_EQ(count("Encode key"), 1u);
  settings_.keyframe_requested = true;
  Run(2);
  EXPECT_EQ(count("Encode key"), 2u);
  EXPECT_FALSE(settings_.keyframe_requested);
  Run(18);
  EXPECT_EQ(count("Encode key"), 2u);
  Run(1);
  EXPECT_EQ(count("Encode key"), 3u) << "two seconds after the last key frame";
}

TEST_F(StreamEncodingTest, KeyFrameRequestDuringAForcedFrameForcesTheNextFrameToo) {
  with_duplication(640, 480);
  with_encoder();
  settings_.keyframe_requested = true;
  Run(3);
  EXPECT_EQ(count("Encode key"), 2u);
  EXPECT_EQ(count("Encode"), 1u);
}

TEST_F(StreamEncodingTest, KeyFrameIsStillDueAfterAForcedFrameWithoutOutput) {
  with_duplication(640, 480);
  with_encoder();
  settings_.max_fps = 10;
  int calls = 0;
  script().encode = [&](std::vector<std::uint8_t>& out, bool) {
    if (++calls > 1) out.push_back('x');
    return true;
  };
  Run(3);
  EXPECT_EQ(count("Encode key"), 2u) << "the key frame is still due, because there was no output";
  EXPECT_EQ(count("Encode"), 1u);
  EXPECT_EQ(frames().size(), 2u);
}

TEST_F(StreamEncodingTest, FrameWhoseEncodingFailsIsNotSentAndTheNextFrameIsEncoded) {
  with_duplication(640, 480);
  with_encoder();
  int calls = 0;
  script().encode = [&](std::vector<std::uint8_t>& out, bool) {
    out.push_back('x');
    return ++calls > 2;
  };
  Run(3);
  EXPECT_EQ(frames().size(), 1u);
  EXPECT_EQ(count("Init 640 480 15 6000000"), 1u);
  EXPECT_EQ(count("EncodeJpeg 640 480 2560 70"), 0u);
}

TEST_F(StreamEncodingTest, FrameIsNotSentIfJpegEncodingFails) {
  script().jpeg = [] { return std::vector<std::uint8_t>(); };
  Run(2);
  EXPECT_TRUE(frames().empty());
  EXPECT_EQ(configs().size(), 1u);
}

TEST_F(StreamEncodingTest, SwitchToJpegClosesTheEncoderAndKeepsAKeyFrameRequest) {
  with_duplication(640, 480);
  with_encoder();
  Run(1);
  settings_.codec = StreamCodec::Mjpeg;
  settings_.keyframe_requested = true;
  Run(3);
  EXPECT_EQ(count("Shutdown"), 1u);
  EXPECT_EQ(configs().back(), R"({"codec":"mjpeg","w":640,"h":480,"monitor_id":0})");
  EXPECT_TRUE(settings_.keyframe_requested);
  settings_.codec = StreamCodec::H264;
  settings_.keyframe_requested = true;
  Run(3);
  EXPECT_EQ(count("Encode key"), 3u) << "the first two frames after the switch back to H.264";
  EXPECT_EQ(count("Encode"), 1u);
}

}  // namespace
}  // namespace vlk::agent
