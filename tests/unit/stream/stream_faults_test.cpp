// The stream with each of its operations failing once.
#include <algorithm>
#include <string>

#include "support/fail_nth.h"
#include "unit/stream/worker_fixture.h"

namespace vlk::agent {
namespace {

using vantelink_fakes::count;
using vantelink_fakes::journal;
using vantelink_fakes::note;
using vantelink_fakes::script;
using vantelink_test::FailNth;
using Lines = std::vector<std::string>;

class StreamFaultsTest : public JournalFixture {
 protected:
  // Starts again with a new worker. `fail` counts the worker's calls and decides which call fails.
  void Restart(FailNth& fail) {
    worker_.reset();
    SetUp();
    settings_.monitor_id = 0;
    settings_.codec = StreamCodec::H264;
    width_ = 64;
    script().open = [&](std::int32_t) { return !fail.fails(); };
    script().acquire = [&](CapturedFrame& frame) { return !fail.fails() && Fill(frame, width_, 48); };
    script().capture_gdi = [&](CapturedFrame& frame) { return !fail.fails() && Fill(frame, 8, 4); };
    script().init = [&] {
      if (fail.fails()) return false;
      note("opened");
      return true;
    };
    script().encode = [&](std::vector<std::uint8_t>& out, bool) {
      out.push_back('x');
      return !fail.fails();
    };
    script().jpeg = [&] { return std::vector<std::uint8_t>(fail.fails() ? 0 : 1); };
  }

  // Runs two iterations after each kind of change. Returns the journal of three more iterations.
  Lines RunThroughChanges() {
    Run(2);
    settings_.monitor_id = 1;
    Run(2);
    settings_.codec = StreamCodec::Mjpeg;
    Run(2);
    width_ = 80;
    Run(2);
    settings_.codec = StreamCodec::H264;
    settings_.keyframe_requested = true;
    Run(2);
    time_ += 3000 * kMillisecond;
    return JournalOf(3);
  }

  std::uint32_t width_ = 64;  // width of the captured frames
};

// Checks in the journal that the encoder is used only between opening and closing, and that every frame
// follows a configuration that names the right codec.
void ExpectConsistent(const Lines& lines) {
  bool open = false, announced = false;
  for (const std::string& line : lines) {
    if (line.starts_with("Init ")) {
      EXPECT_FALSE(open) << "the encoder was opened twice";
    } else if (line == "opened") {
      open = true;
    } else if (line == "Shutdown") {
      EXPECT_TRUE(open) << "an encoder that is not open was closed";
      open = false;
    } else if (line.starts_with("Encode") && !line.starts_with("EncodeJpeg")) {
      EXPECT_TRUE(open) << "a frame was encoded without an open encoder";
      EXPECT_EQ(line.find("another size"), std::string::npos);
    } else if (line.starts_with("send {")) {
      EXPECT_EQ(line.find("h264") != std::string::npos, open);
      announced = true;
    } else if (line == "send frame") {
      EXPECT_TRUE(announced) << "a frame was sent before the configuration";
    }
  }
}

TEST_F(StreamFaultsTest, StreamStaysConsistentAndRunningWhicheverCallFails) {
  const SendCallable sender = send_;
  const int runs = vantelink_test::fail_each_call([&](FailNth& fail) {
    Restart(fail);
    send_ = [&](Msg type, unsigned session, const unsigned char* data, std::size_t length,
                unsigned char flags) { return sender(type, session, data, length, flags) && !fail.fails(); };
    const Lines last = RunThroughChanges();
    ExpectConsistent(journal());
    EXPECT_GE(std::count(last.begin(), last.end(), "send frame"), 2);
    worker_.reset();
  });
  EXPECT_GT(runs, 30);
  EXPECT_EQ(count("~H264Encoder"), 1u) << "the journal is the last run's";
}

}  // namespace
}  // namespace vlk::agent
