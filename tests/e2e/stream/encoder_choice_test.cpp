// Tests of which encoder the agent chooses, and of encoders that delay frames or never answer.
#include <algorithm>

#include "e2e/support/stream_fixture.h"

namespace {

using namespace vantelink_test;
using vlk::Msg;

constexpr auto kFailure = static_cast<std::int32_t>(0x80004005);  // E_FAIL

class EncoderChoice : public StreamTest {
 protected:
  // Stops a stream while its asynchronous encoder withholds the result of a frame.
  void stop_while_silent() {
    start_stream();
    next_frame();
    (*codec)->silent = 1;
    ASSERT_TRUE(eventually([&] { return (*codec)->withheld != 0; }));
    send(Msg::StreamStop);
  }
};

TEST_F(EncoderChoice, HardwareEncoderIsPreferredAndASoftwareEncoderReplacesItWhenItFailsToStart) {
  register_encoders("sync async");
  start_stream();
  check_pictures(next_frame());
  EXPECT_TRUE(logged("encoder: H.264 hardware encoder ready"));
  kill_agent();
  peer_.reset();

  (*codec)->activate_result[static_cast<int>(vantelink_doubles::Transform::Async)] = kFailure;
  start_stream();
  const StreamedFrame frame = next_frame();
  EXPECT_EQ(frame.configs, std::vector{config_text("h264", 640, 360)});
  check_pictures(frame);
  const std::string log = desk->debug_log();
  const std::size_t failed = log.rfind("encoder: ActivateObject failed hr=0x");
  ASSERT_NE(failed, std::string::npos);
  EXPECT_NE(log.find("encoder: H.264 software encoder ready", failed), std::string::npos);
}

TEST_F(EncoderChoice, FramesThatTheEncoderDelaysAtTheStartAreSentInOneMessage) {
  register_encoders("sync");
  (*codec)->buffered_frames = 3;
  start_stream();
  const StreamedFrame first = next_frame();
  ASSERT_EQ(first.units.size(), 4u);
  EXPECT_TRUE(first.key());
  const auto shown = check_pictures(first);
  EXPECT_TRUE(std::is_sorted(shown.begin(), shown.end()));
  for (int i = 0; i < 3; ++i) {
    const StreamedFrame frame = next_frame();
    EXPECT_EQ(frame.units.size(), 1u);
    check_pictures(frame);
  }
}

TEST_F(EncoderChoice, StoppingTheStreamWaitsForAnEncoderThatDoesNotAnswer) {
  constexpr Milliseconds kLongEnough{1500};
  register_encoders("async");
  stop_while_silent();
  EXPECT_FALSE(answers(kLongEnough)) << "the connection thread did not wait for the stream thread";
  (*codec)->silent = 0;
  EXPECT_TRUE(answers());
  EXPECT_EQ((*codec)->live, 0);

  // An encoder that never answers blocks the agent permanently.
  stop_while_silent();
  EXPECT_FALSE(answers(kLongEnough));
  EXPECT_TRUE(running());
  kill_agent();
  EXPECT_TRUE(peer_->wait_closed());
}

}  // namespace
