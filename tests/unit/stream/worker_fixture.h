// Fixtures that run a stream's worker with a clock that the test controls.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "fakes/fakes.h"
#include "stream/stream_worker.h"

namespace vlk::agent {

inline constexpr std::int64_t kMillisecond = 1000000;  // nanoseconds
inline constexpr std::uint32_t kSession = 0xFFFFFFFE;

// Fills a frame of this size. Returns true, which a scripted capture can return as its result.
inline bool Fill(CapturedFrame& frame, std::uint32_t width, std::uint32_t height) {
  frame.width = width;
  frame.height = height;
  frame.stride = static_cast<std::int32_t>(width * 4);
  frame.pixels.assign(std::size_t{width} * height * 4, 1);
  return true;
}

class WorkerFixture : public testing::Test {
 protected:
  void SetUp() override { vantelink_fakes::reset(); }

  void Run(int iterations) {
    if (!worker_) worker_.emplace(kSession, send_, clock_, settings_);
    for (int i = 0; i < iterations; ++i)
      worker_->RunIteration();
  }

  std::int64_t time_ = 90000 * kMillisecond;
  std::vector<std::int64_t> pauses_;  // milliseconds
  StreamSettings settings_;
  Clock clock_{[this] { return time_; },
               [this](std::int64_t deadline) {
                 pauses_.push_back((deadline - time_) / kMillisecond);
                 time_ = deadline;
               }};
  SendCallable send_;  // set by the test
  std::optional<StreamWorker> worker_;
};

// A sent message.
struct Sent {
  Msg type;
  unsigned session;
  std::string bytes;
  unsigned char flags;
};

// Records the messages that the worker sends.
class RecordingFixture : public WorkerFixture {
 protected:
  RecordingFixture() {
    send_ = [this](Msg type, unsigned session, const unsigned char* data, std::size_t length,
                   unsigned char flags) {
      sent_.push_back({type, session, {reinterpret_cast<const char*>(data), length}, flags});
      if (type == Msg::StreamFrame) time_ += send_time_;
      return send_result_;
    };
  }

  // Scripts a duplication that returns a frame of this size at each call while `changing_` is true.
  void with_duplication(std::uint32_t width, std::uint32_t height) {
    vantelink_fakes::Script& script = vantelink_fakes::script();
    script.open = [](std::int32_t) { return true; };
    script.left = 10;
    script.top = 20;
    script.width = static_cast<std::int32_t>(width);
    script.height = static_cast<std::int32_t>(height);
    script.acquire = [this, width, height](CapturedFrame& frame) {
      return changing_ && Fill(frame, width, height);
    };
  }

  static void with_encoder() {
    vantelink_fakes::script().init = [] { return true; };
  }

  std::vector<std::string> configs() const {
    std::vector<std::string> texts;
    for (const Sent& one : sent_) {
      if (one.type == Msg::StreamConfig) texts.push_back(one.bytes);
    }
    return texts;
  }

  std::vector<Sent> frames() const {
    std::vector<Sent> result;
    for (const Sent& one : sent_) {
      if (one.type == Msg::StreamFrame) result.push_back(one);
    }
    return result;
  }

  // The time stamp of a frame.
  static std::uint64_t stamp(const Sent& frame) {
    std::uint64_t value = 0;
    for (std::size_t i = 8; i-- > 0;)
      value = value << 8 | static_cast<unsigned char>(frame.bytes[i]);
    return value;
  }

  std::int64_t send_time_ = 0;  // duration of sending a frame, in nanoseconds
  bool changing_ = true;
  bool send_result_ = true;
  std::vector<Sent> sent_;
};

// Writes the sent messages into the journal of the fakes.
class JournalFixture : public WorkerFixture {
 protected:
  JournalFixture() {
    send_ = [this](Msg type, unsigned session, const unsigned char* data, std::size_t length, unsigned char) {
      EXPECT_EQ(session, kSession);
      const std::string bytes(reinterpret_cast<const char*>(data), length);
      if (type == Msg::StreamFrame) last_frame_ = bytes;
      vantelink_fakes::note(type == Msg::StreamFrame ? "send frame" : "send " + bytes);
      return true;
    };
  }

  void SetUp() override {
    WorkerFixture::SetUp();
    vantelink_fakes::Script& script = vantelink_fakes::script();
    script.open = [](std::int32_t) { return true; };
    script.left = 10;
    script.top = 20;
    script.width = 64;
    script.height = 48;
    script.init = [] { return true; };
    script.acquire = [this](CapturedFrame& frame) {
      if (in_acquire_) in_acquire_();
      return Fill(frame, 64, 48);
    };
  }

  // Runs iterations and returns the journal's lines from them.
  std::vector<std::string> JournalOf(int iterations) {
    const std::size_t before = vantelink_fakes::journal().size();
    Run(iterations);
    const std::vector<std::string> lines = vantelink_fakes::journal();
    return {lines.begin() + static_cast<std::ptrdiff_t>(before), lines.end()};
  }

  std::function<void()> in_acquire_;  // called during each capture
  std::string last_frame_;
};

}  // namespace vlk::agent
