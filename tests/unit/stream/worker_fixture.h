// A stream's worker on a clock of the test's own.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include <gtest/gtest.h>

#include "fakes/fakes.h"
#include "stream/stream_worker.h"

namespace vlk::agent {

inline constexpr std::int64_t kMillisecond = 1000000;  // nanoseconds
inline constexpr std::uint32_t kSession = 0xFFFFFFFE;

// Makes a frame of that size; true, as scripted captures answer.
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
  SendCallable send_;  // the test's
  std::optional<StreamWorker> worker_;
};

}  // namespace vlk::agent
