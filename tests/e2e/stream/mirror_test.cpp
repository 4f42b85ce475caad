// The stream from the mirrored desktop: the double duplicates the screen of the desk, which the program
// desktop_mirror copies.
#include "e2e/support/mirror.h"

#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <optional>

#include "e2e/support/stream_fixture.h"
#include "support/bytes/file_bytes.h"
#include "tests/doubles/mirror_memory.h"

namespace {

using namespace vantelink_test;
using vlk::Msg;

constexpr std::int64_t kSecond = 1000000;  // microseconds

class MirrorStream : public StreamTest {
 protected:
  static constexpr double kMostError = 3;         // levels
  static constexpr double kLeastSimilarity = 30;  // decibels

  void SetUp() override {
    StreamTest::SetUp();
    register_encoders("sync");
    file_ = desk->folder() + "/mirror";
    environment_.push_back(std::string(vantelink_doubles::kDesktopMirrorVariable) + "=" + wine_path(file_));
  }

  void TearDown() override {
    if (program_ != 0) ::kill(program_, SIGKILL);
    StreamTest::TearDown();
  }

  // Opens a window of another Windows program.
  void open_window() {
    program_ = desk->spawn({"winemine"});
    desk->host("xdotool search --sync --onlyvisible --name WineMine");
  }

  void start_mirror() {
    mirror_ = std::make_unique<DisplayProgram>(*desk, "desktop_mirror",
                                               "'" + file_ + "' " + std::to_string(::getpid()));
  }
  // Covers the screen with this scripted picture. The previous painter ends when its picture is covered.
  void paint(int number, int rate = 0) {
    painter_ = std::make_unique<DisplayProgram>(*desk, "desktop_painter",
                                                std::to_string(number) + ' ' + std::to_string(rate));
  }

  // Reads the next frame and returns its last picture.
  Picture next_picture() {
    const StreamedFrame frame = next_frame();
    if (!decoder_) decoder_ = std::make_unique<VideoDecoder>(VideoCodec::H264);
    Picture picture;
    for (const AccessUnit& unit : frame.units)
      picture = decoder_->decode(unit.bytes);
    return picture;
  }

  // The number of the scripted picture that this picture shows; empty if it shows another desktop. The agent
  // copies an unchanged screen by GDI, and such a copy lacks the window of desktop_painter, which is not one
  // of Wine's.
  static std::optional<std::uint32_t> shown_number(const Picture& picture) {
    const std::uint32_t number = number_of(picture);
    return similarity(picture, number, 0) > kLeastSimilarity ? std::optional(number) : std::nullopt;
  }

  // Reads frames until one shows this scripted picture.
  void expect_picture(std::uint32_t number) {
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (shown_number(next_picture()) != number)
      ASSERT_TRUE(std::chrono::steady_clock::now() < deadline) << "picture " << number << " is not shown";
  }

  // Reads frames until one equals the screen, except for the losses of the encoding.
  void expect_screen() {
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    const std::string file = desk->folder() + "/screen.png";
    for (;;) {
      const Picture picture = next_picture();
      desk->screenshot(file);
      const double error = mean_error(picture, decode_png(file_bytes(file)));
      if (error < kMostError) return;
      ASSERT_TRUE(std::chrono::steady_clock::now() < deadline) << "the mean error is " << error;
    }
  }

  // Reads frames for this time, and prints how many there were and what share of a processor each process
  // used.
  void measure(const char* what, int seconds) {
    const int display = std::atoi(file_bytes(desk->folder() + "/xvfb.pid").c_str());
    const std::pair<const char*, int> processes[] = {
        {"agent", pid_}, {"desktop_mirror", mirror_->pid()}, {"X server", display}};
    ASSERT_TRUE(answers());
    double before[3] = {};
    for (int i = 0; i < 3; ++i)
      before[i] = processor_seconds(processes[i].second);
    const auto begin = std::chrono::steady_clock::now();
    const auto passed = [&] {
      return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    };
    int frames = 0;
    for (; passed() < seconds; ++frames)
      next_frame();
    const double time = passed();
    std::printf("%s, %s: %.1f frames a second", config_.c_str(), what, frames / time);
    for (int i = 0; i < 3; ++i) {
      std::printf("; %s %.3f of a processor", processes[i].first,
                  (processor_seconds(processes[i].second) - before[i]) / time);
    }
    std::printf("\n");
  }

  int program_ = 0;  // the process of the other Windows program
  std::string file_;
  std::unique_ptr<DisplayProgram> mirror_, painter_;
};

TEST_F(MirrorStream, ShowsTheScreenAndEachChangeOfIt) {
  start_mirror();
  paint(100);
  start_stream();
  // The first frame is the whole screen, although nothing has changed since the start.
  EXPECT_EQ(shown_number(next_picture()), 100u);
  EXPECT_EQ(config_, config_text("h264", 1280, 720));
  EXPECT_EQ((*desktop)->frames, 1);
  for (const int number : {7000, 301, 60000}) {
    const int frames = (*desktop)->frames;
    paint(number);
    expect_picture(static_cast<std::uint32_t>(number));
    EXPECT_GT((*desktop)->frames, frames);
  }
  EXPECT_EQ((*desktop)->duplications, 1);
}

TEST_F(MirrorStream, ShowsTheWindowsOfPrograms) {
  start_mirror();
  start_stream();
  expect_screen();
  const int frames = (*desktop)->frames;
  open_window();
  ASSERT_TRUE(eventually([&] { return (*desktop)->frames > frames; }));
  expect_screen();
  desk->host("xdotool search --name WineMine windowmove 700 300");
  expect_screen();
}

TEST_F(MirrorStream, StillScreenIsSentOnceASecond) {
  start_mirror();
  paint(100);
  start_stream();
  std::int64_t last = next_frame().time;
  EXPECT_LT(last, kSecond);
  const int time_outs = (*desktop)->time_outs;
  for (int i = 0; i < 3; ++i) {
    const std::int64_t time = next_frame().time;
    EXPECT_GE(time - last, kSecond - 1);
    last = time;
  }
  EXPECT_EQ((*desktop)->frames, 1);
  EXPECT_GT((*desktop)->time_outs, time_outs + 3);
}

TEST_F(MirrorStream, ChangeOfAStillScreenEndsTheWaitForIt) {
  start_mirror();
  start_stream();
  next_frame();
  paint(1, 4);
  ASSERT_TRUE(eventually([&] { return (*desktop)->wakes >= 5; }));
}

TEST_F(MirrorStream, PicturesOfABusyScreenComeInOrder) {
  start_mirror();
  paint(1, 60);
  start_stream();
  constexpr int kFrames = 40;
  std::uint32_t last = 0;
  int shown = 0;
  for (int i = 0; i < kFrames; ++i) {
    const auto number = shown_number(next_picture());
    if (!number) continue;  // the painter got no processor for a second
    EXPECT_GT(*number, last);
    last = *number;
    ++shown;
  }
  EXPECT_GT(shown, kFrames * 3 / 4);
}

TEST_F(MirrorStream, StreamContinuesByGdiWhenTheDuplicationEnds) {
  start_mirror();
  start_stream();
  expect_screen();
  mirror_->kill();
  ASSERT_TRUE(eventually([&] { return (*desktop)->losses == 1; }));
  expect_screen();
  open_window();
  expect_screen();
  const int frames = (*desktop)->frames;
  // A new stream starts without a duplication, and duplicates the desktop as soon as that is possible.
  send(Msg::StreamStop);
  ASSERT_TRUE(answers());
  start_stream();
  expect_screen();
  EXPECT_EQ((*desktop)->duplications, 1);
  EXPECT_EQ((*desktop)->frames, frames);
  start_mirror();
  ASSERT_TRUE(eventually([&] { return (*desktop)->frames > frames; }));
  EXPECT_EQ((*desktop)->duplications, 2);
  expect_screen();
}

// Prints figures. VANTELINK_MIRROR_SECONDS is the length of each measurement and VANTELINK_SCREEN the size of
// the screen.
TEST_F(MirrorStream, Rate) {
  const char* const length = std::getenv("VANTELINK_MIRROR_SECONDS");
  if (length == nullptr) GTEST_SKIP() << "measures only if VANTELINK_MIRROR_SECONDS is set";
  start_mirror();
  start_stream(R"({"max_fps":60})");
  next_picture();
  measure("still", std::atoi(length));
  paint(1, 60);
  measure("busy", std::atoi(length));
}

TEST_F(MirrorStream, MirrorEndsWithItsOwner) {
  DisplayProgram owner(*desk, "desktop_painter", "1");
  DisplayProgram mirror(*desk, "desktop_mirror", "'" + file_ + "' " + std::to_string(owner.pid()));
  owner.kill();
  EXPECT_TRUE(eventually([&] { return !is_running(mirror.pid()); }));
}

}  // namespace
