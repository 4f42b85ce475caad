// Tests of encoders with other byte streams, settings and limits than the plain ones.
#include <algorithm>
#include <array>

#include "e2e/support/stream_fixture.h"

namespace {

using namespace vantelink_test;
using vantelink_doubles::LateHeader;
using vlk::Msg;

class EncoderModes : public StreamTest, public testing::WithParamInterface<const char*> {
 protected:
  void SetUp() override {
    StreamTest::SetUp();
    register_encoders(GetParam());
  }

  // Reads up to the first key frame after a request for one, checks all pictures and returns that frame.
  StreamedFrame requested_key() {
    send(Msg::KeyframeRequest);
    StreamedFrame frame;
    do {
      frame = next_frame();
      check_pictures(frame);
    } while (!frame.key());
    return frame;
  }

  // Starts the stream and checks its first pictures and the next key frame.
  void expect_pictures() {
    start_stream();
    const StreamedFrame first = next_frame();
    EXPECT_EQ(first.configs, std::vector{config_text("h264", 640, 360)});
    EXPECT_TRUE(first.key());
    check_pictures(first);
    check_pictures(next_frame());
    requested_key();
    check_pictures(next_frame());
    EXPECT_EQ((*codec)->misuses, 0);
  }
};

INSTANTIATE_TEST_SUITE_P(Encoders, EncoderModes, testing::Values("sync", "async"),
                         [](const auto& test) { return std::string(test.param); });

TEST_P(EncoderModes, PicturesOfSeveralSlicesAreSentInOneMessage) {
  (*codec)->slices = 4;
  expect_pictures();
  const StreamedFrame frame = next_frame();
  ASSERT_EQ(frame.units.size(), 1u);
  EXPECT_EQ(frame.units[0].slices, 4);
}

TEST_P(EncoderModes, KnownDelimiterOfAKeyFrameFollowsTheParameterSetsAndThePictureIsShown) {
  (*codec)->delimiters = 1;
  expect_pictures();
  constexpr std::array<std::uint8_t, 6> kDelimiter = {0, 0, 0, 1, 9, 0x30};
  const Bytes key = requested_key().data;
  const auto at = std::search(key.begin(), key.end(), kDelimiter.begin(), kDelimiter.end());
  EXPECT_NE(at, key.end());
  EXPECT_NE(at, key.begin());
}

TEST_P(EncoderModes, HeaderThatIsKnownAfterTheFirstOutputIsTakenFromTheStream) {
  (*codec)->late_header = static_cast<int>(LateHeader::InStream);
  expect_pictures();
  (*desktop)->width = 480;
  check_pictures(next_announced(config_text("h264", 480, 360)));
}

TEST_P(EncoderModes, RefusedPropertiesAndDirect3DChangeNothingInThePictures) {
  (*codec)->fixed_properties = 1;
  (*codec)->d3d_aware = 1;
  expect_pictures();
  EXPECT_EQ((*codec)->refused_properties, 4);
  EXPECT_EQ((*codec)->messages, 0x123) << "the agent sends no Direct3D device manager";
}

class CardWithoutAFreeSession : public StreamTest {
 protected:
  void SetUp() override {
    StreamTest::SetUp();
    register_encoders("sync async");
    (*codec)->session_limit = (*codec)->sessions_elsewhere = 2;
  }
};

TEST_F(CardWithoutAFreeSession, KnownThirdEncoderThatIsRefusedItsTypesMakesTheStreamJpeg) {
  start_stream();
  const StreamedFrame frame = next_frame();
  EXPECT_EQ(frame.configs, std::vector{config_text("mjpeg", 640, 360)});
  check_pictures(frame);
  EXPECT_TRUE(logged("encoder: SetOutputType failed hr=0x800705aa\n"));
  // A session becomes free, but the hardware encoder is tried again only when the picture changes.
  (*codec)->sessions_elsewhere = 1;
  for (int i = 0; i < 5; ++i)
    EXPECT_TRUE(next_frame().configs.empty());
  (*desktop)->width = 480;
  check_pictures(next_announced(config_text("h264", 480, 360)));
  EXPECT_EQ((*codec)->open_sessions, 1);
}

TEST_F(CardWithoutAFreeSession, ThirdEncoderThatCannotBeCreatedIsReplacedByASoftwareEncoder) {
  (*codec)->limits_creation = 1;
  start_stream();
  const StreamedFrame frame = next_frame();
  EXPECT_EQ(frame.configs, std::vector{config_text("h264", 640, 360)});
  check_pictures(frame);
  EXPECT_TRUE(logged("encoder: H.264 software encoder ready"));
}

TEST_F(CardWithoutAFreeSession, KnownEncoderIsReleasedWithoutItsShutdownAtTheEndOfTheStream) {
  (*codec)->session_limit = (*codec)->sessions_elsewhere = 0;
  start_stream();
  next_frame();
  EXPECT_EQ((*codec)->open_sessions, 1);
  send(Msg::StreamStop);
  ASSERT_TRUE(answers());
  EXPECT_EQ((*codec)->open_sessions, 0);
  EXPECT_EQ((*codec)->shutdowns, 0);
}

}  // namespace
