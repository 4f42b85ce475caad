// The stream from a duplicated desktop on a machine without an H.264 encoder: which picture is sent when, and
// how the agent continues when duplication fails or returns invalid data.
#include "e2e/support/stream_fixture.h"

namespace {

using namespace vantelink_test;
using vantelink_doubles::DesktopAbsurdity;
using vlk::Msg;

constexpr auto kAccessLost = static_cast<std::int32_t>(0x887A0026);   // DXGI_ERROR_ACCESS_LOST
constexpr auto kUnsupported = static_cast<std::int32_t>(0x887A0004);  // DXGI_ERROR_UNSUPPORTED
constexpr std::int64_t kSecond = 1000000;                             // microseconds

class DuplicationStream : public StreamTest {
 protected:
  void SetUp() override {
    StreamTest::SetUp();
    register_encoders("");
  }

  // Skips the frames that were captured before this call: the frames that the agent sends before it
  // answers a heartbeat, and the frame that it captures at that time.
  void skip_earlier_frames() {
    ASSERT_TRUE(answers());
    next_frame();
    next_frame();
  }
};

TEST_F(DuplicationStream, ShowsTheDesktopsPicturesInOrderAlthoughTheirRowsArePadded) {
  (*desktop)->pitch = 640 * 4 + 52;
  start_stream();
  std::uint32_t last = 0;
  for (int i = 0; i < 10; ++i) {
    const StreamedFrame frame = next_frame();
    EXPECT_EQ(frame.configs,
              i == 0 ? std::vector{config_text("mjpeg", 640, 360)} : std::vector<std::string>());
    const auto shown = check_pictures(frame);
    EXPECT_GT(shown.at(0), last);
    last = shown.at(0);
  }
  const std::string log = desk->debug_log();
  EXPECT_NE(log.find("capture: DXGI duplication started hr=0x00000000\n"), std::string::npos);
  EXPECT_NE(log.find("encoder: no H.264 encoder MFT found hr=0x00000000\n"), std::string::npos);
  EXPECT_EQ((*desktop)->misuses, 0);
}

TEST_F(DuplicationStream, ShowsTheSelectedMonitorOnTheSecondAdapter) {
  set_outputs({{0, 0, 640, 360}, {640, 0, 800, 600}});
  start_stream();
  check_pictures(next_frame());
  EXPECT_EQ((*desktop)->device_adapter, 0);
  send(Msg::MonitorSelect, R"({"monitor_id":1})");
  const StreamedFrame second = next_announced(config_text("mjpeg", 800, 600, 1));
  check_pictures(second, 1);
  EXPECT_EQ((*desktop)->device_adapter, 1);
  // Selecting the same monitor again changes nothing.
  send(Msg::MonitorSelect, R"({"monitor_id":1})");
  ASSERT_TRUE(answers());
  for (int i = 0; i < 5; ++i)
    EXPECT_TRUE(next_frame().configs.empty());
  send(Msg::MonitorSelect, R"({"monitor_id":0})");
  const StreamedFrame first = next_announced(config_text("mjpeg", 640, 360));
  check_pictures(first);
}

TEST_F(DuplicationStream, OutputThatIsNotAttachedIsNotCountedAsAMonitor) {
  set_outputs({{0, 0, 1024, 768}, {0, 0, 640, 360}});
  (*desktop)->outputs[0].unattached = 1;
  start_stream();
  const StreamedFrame frame = next_frame();
  EXPECT_EQ(frame.configs, std::vector{config_text("mjpeg", 640, 360)});
  check_pictures(frame, 1);
}

TEST_F(DuplicationStream, NewDesktopSizeIsAnnouncedDuringTheStream) {
  start_stream();
  check_pictures(next_frame());
  (*desktop)->width = 480;
  (*desktop)->height = 270;
  const StreamedFrame smaller = next_announced(config_text("mjpeg", 480, 270));
  check_pictures(smaller);
  EXPECT_EQ((*desktop)->duplications, 1);
}

TEST_F(DuplicationStream, KnownTurnedMonitorStreamsLyingOnItsSideAndUprightWhileItIsUnchanged) {
  set_outputs({{0, 0, 360, 640}});
  (*desktop)->outputs[0].rotation = 2;  // by 90 degrees
  start_stream();
  const StreamedFrame lying = next_announced(config_text("mjpeg", 640, 360));
  check_pictures(lying);
  (*desktop)->still = 1;
  next_announced(config_text("mjpeg", 360, 640));
}

TEST_F(DuplicationStream, UnchangedScreenIsSentOnceASecond) {
  (*desktop)->still = 1;
  start_stream();
  // The first frame is sent at once, although nothing has changed.
  std::int64_t last = next_frame().time;
  EXPECT_LT(last, kSecond);
  for (int i = 0; i < 3; ++i) {
    const std::int64_t time = next_frame().time;
    EXPECT_GE(time - last, kSecond - 1);
    EXPECT_LT(time - last, 3 * kSecond);
    last = time;
  }
  EXPECT_EQ((*desktop)->frames, 0);
  (*desktop)->still = 0;
  ASSERT_TRUE(eventually([&] { return (*desktop)->frames > 0; }));
  skip_earlier_frames();
  check_pictures(next_frame());
}

TEST_F(DuplicationStream, KnownLostDuplicationStaysAtOneFrameASecondUntilAnotherMonitorIsSelected) {
  start_stream();
  check_pictures(next_frame());
  const int factories = (*desktop)->factories;
  (*desktop)->acquire_result = kAccessLost;
  ASSERT_TRUE(eventually([&] { return (*desktop)->losses > 0; }));
  (*desktop)->acquire_result = 0;
  const int frames = (*desktop)->frames;
  // Skips the frames that were captured before the loss.
  StreamedFrame frame = next_frame();
  std::int64_t last = frame.time;
  for (int i = 0; i < frames && frame.time - last < kSecond - 1; ++i) {
    last = frame.time;
    frame = next_frame();
  }
  for (int i = 0; i < 3; ++i) {
    last = frame.time;
    frame = next_frame();
    EXPECT_GE(frame.time - last, kSecond - 1);
    EXPECT_LT(frame.time - last, 3 * kSecond);
    EXPECT_TRUE(frame.configs.empty());
  }
  EXPECT_EQ((*desktop)->frames, frames);
  EXPECT_EQ((*desktop)->losses, 1);
  EXPECT_EQ((*desktop)->factories, factories);
  EXPECT_EQ((*desktop)->duplications, 1);
  // Selecting another monitor opens a new duplication.
  set_outputs({{0, 0, 640, 360}, {640, 0, 640, 360}});
  send(Msg::MonitorSelect, R"({"monitor_id":1})");
  check_pictures(next_announced(config_text("mjpeg", 640, 360, 1)), 1);
}

TEST_F(DuplicationStream, WithoutAGraphicsDeviceTheScreenIsCopiedAndDuplicationIsTriedAgainAtEveryFrame) {
  (*desktop)->device_result = kUnsupported;
  start_stream();
  const StreamedFrame first = next_frame();
  EXPECT_EQ(first.configs, std::vector{config_text("mjpeg", 640, 360)});
  const int before = (*desktop)->factories;
  for (int i = 0; i < 5; ++i)
    EXPECT_TRUE(next_frame().configs.empty());
  EXPECT_GE((*desktop)->factories, before + 4);
  EXPECT_TRUE(logged("capture: D3D11CreateDevice failed hr=0x887a0004\n"));
  (*desktop)->device_result = 0;
  ASSERT_TRUE(eventually([&] { return (*desktop)->frames > 0; }));
  skip_earlier_frames();
  check_pictures(next_frame());
}

TEST_F(DuplicationStream, StreamShowsTheCopiedScreenWhicheverStepOfOpeningDuplicationFails) {
  using Board = vantelink_doubles::DesktopBoard;
  for (const auto cell : {&Board::factory_result, &Board::output1_result, &Board::duplicate_result}) {
    (desktop->operator->()->*cell) = kUnsupported;
    start_stream();
    next_frame();
    next_frame();
    EXPECT_EQ((*desktop)->frames, 0);
    send(Msg::StreamStop);
    ASSERT_TRUE(answers());
    (desktop->operator->()->*cell) = 0;
  }
  // After a failure once duplication has started, the agent sends one frame a second, as for an unchanged
  // screen.
  for (const auto cell : {&Board::texture_result, &Board::staging_result, &Board::map_result}) {
    (desktop->operator->()->*cell) = kUnsupported;
    start_stream();
    const std::int64_t first = next_frame().time;
    EXPECT_GE(next_frame().time - first, kSecond - 1);
    (desktop->operator->()->*cell) = 0;
    skip_earlier_frames();
    check_pictures(next_frame());
    send(Msg::StreamStop);
    ASSERT_TRUE(answers());
  }
  EXPECT_EQ((*desktop)->misuses, 0);
}

TEST_F(DuplicationStream, InvalidSurfacesDoNotCrashTheAgent) {
  start_stream();
  check_pictures(next_frame());
  for (const auto absurdity :
       {DesktopAbsurdity::ZeroWidth, DesktopAbsurdity::ZeroHeight, DesktopAbsurdity::ShortPitch,
        DesktopAbsurdity::NullMemory, DesktopAbsurdity::NullResource}) {
    SCOPED_TRACE(static_cast<int>(absurdity));
    (*desktop)->absurdity = static_cast<std::int32_t>(absurdity);
    // Another width makes the agent create another staging texture, which gets the short pitch.
    (*desktop)->width = absurdity == DesktopAbsurdity::ShortPitch ? 1280 : 640;
    const int frames = (*desktop)->frames;
    ASSERT_TRUE(eventually(
        [&] { return (*desktop)->frames >= frames + 5 || absurdity == DesktopAbsurdity::NullResource; }));
    // The agent asks Direct3D for a staging texture of any size, also of none, which Direct3D refuses.
    const bool no_area =
        absurdity == DesktopAbsurdity::ZeroWidth || absurdity == DesktopAbsurdity::ZeroHeight;
    EXPECT_EQ((*desktop)->misuses > 0, no_area);
    (*desktop)->absurdity = 0;
    (*desktop)->width = 0;
    skip_earlier_frames();
    check_pictures(next_frame());
    (*desktop)->misuses = 0;
  }
  send(Msg::StreamStop);
  ASSERT_TRUE(answers());
  EXPECT_EQ((*desktop)->live, 0);
  EXPECT_TRUE(running());
}

}  // namespace
