// Ten minutes of a stream over lines of many kinds, simulated in some milliseconds each. Prints a line for
// each run.
#include <array>
#include <cstdio>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "relay/stream/line_model.h"

namespace vlk::relay {
namespace {

// Calls `check` with the result of one run.
template <class Check>
void run_line(const std::string& name, const ModelSettings& settings, Check check) {
  const ModelResult result = run_model(settings);
  const std::string line = name + ": " + result.summary();
  SCOPED_TRACE(line);
  std::puts(line.c_str());
  check(result);
}

std::string megabits(double speed) {
  std::array<char, 20> text{};
  std::snprintf(text.data(), text.size(), "%4.1f Mbit/s", speed);
  return text.data();
}

std::vector<LineChange> constant(double speed) {
  return {{0, speed * 1e6}};
}

// A speed in Mbit/s, and the least bit rate in Mbit/s that the stream must come to.
struct ConstantLine {
  double speed;
  double least;
};
constexpr ConstantLine kConstantLines[] = {{0.5, 0.15}, {1, 0.34},  {2, 0.75},
                                           {5, 1.65},   {10, 3.75}, {50, 12.5}};

void check_constant_line(const ModelResult& result, double least) {
  EXPECT_LT(result.age(0.5), 50);
  EXPECT_LT(result.age(0.99), 150);
  EXPECT_LE(result.steps.size(), 3u);
  EXPECT_EQ(result.steps_between(40, 600), 0) << "the rates settle";
  EXPECT_LT(result.longest_gap(1, 600), 1);
  EXPECT_GE(result.last.bitrate, least * 1e6);
}

TEST(LinesTest, AgeStaysLowOnAnyLineOfTheMachine) {
  for (const ConstantLine& line : kConstantLines) {
    const std::string name = "machine's line " + megabits(line.speed);
    run_line(name, {.machine = {.speed = constant(line.speed)}},
             [&](const ModelResult& result) { check_constant_line(result, line.least); });
  }
}

TEST(LinesTest, AgeStaysLowOnAnyLineOfTheViewer) {
  for (const ConstantLine& line : kConstantLines) {
    const std::string name = "viewer's line " + megabits(line.speed);
    run_line(name, {.viewer = {.speed = constant(line.speed)}},
             [&](const ModelResult& result) { check_constant_line(result, line.least); });
  }
}

TEST(LinesTest, AgeStaysLowOnALongLine) {
  for (const double speed : {0.5, 2.0, 10.0})
    run_line("round trip 600 ms, " + megabits(speed),
             {.machine = {.speed = constant(speed), .round_trip = 0.6}}, [](const ModelResult& result) {
               EXPECT_LT(result.age(0.5), 50);
               EXPECT_LT(result.age(0.99), 150);
               EXPECT_LE(result.steps.size(), 3u);
             });
}

TEST(LinesTest, AgeStaysLowWithSmallAndLargeKeyFrames) {
  for (const double key_seconds : {0.1, 0.4})
    for (const ConstantLine& line : kConstantLines)
      run_line("key frames of " + std::to_string(key_seconds).substr(0, 3) + " s, " + megabits(line.speed),
               {.machine = {.speed = constant(line.speed)}, .key_seconds = key_seconds},
               [](const ModelResult& result) {
                 EXPECT_LT(result.age(0.99), 150);
                 EXPECT_LE(result.steps.size(), 4u);
               });
}

TEST(LinesTest, RatesFollowALineThatChanges) {
  const std::vector<LineChange> speed{{0, 2e6}, {200, 0.5e6}, {400, 10e6}};
  const auto check = [](const ModelResult& result) {
    EXPECT_LT(result.age(0.99), 150);
    EXPECT_LT(result.age(0.99, 0, 200), 150);
    EXPECT_LT(result.age(0.99, 210, 400), 150) << "10 s after the line has become slow";
    EXPECT_LT(result.age(0.99, 400), 150);
    EXPECT_LE(result.steps.size(), 8u);
    EXPECT_GE(result.last.bitrate, 2.5e6);
  };
  run_line("machine's line 2, 0.5, 10 Mbit/s", {.machine = {.speed = speed}}, check);
  run_line("viewer's line 2, 0.5, 10 Mbit/s", {.viewer = {.speed = speed}}, check);
}

TEST(LinesTest, InterruptionChangesNoRates) {
  const std::vector<LineChange> speed{{0, 2e6}, {200, 0}, {220, 2e6}};
  const auto check = [](const ModelResult& result) {
    EXPECT_EQ(result.steps_between(190, 600), 0);
    EXPECT_LT(result.age(0.99, 222), 150);
    EXPECT_LT(result.longest_gap(1, 600), 21);
  };
  run_line("machine's line gone for 20 s", {.machine = {.speed = speed}}, check);
  run_line("viewer's line gone for 20 s", {.viewer = {.speed = speed}}, check);
}

void check_lossy_line(const ModelResult& result, double round_trip) {
  EXPECT_LT(result.age(0.5), 60);
  EXPECT_LT(result.age(0.99), 150 + 1250 * round_trip);
  EXPECT_LE(result.steps.size(), 12u);
  EXPECT_GE(result.last.bitrate, 150'000);
}

TEST(LinesTest, LossesDelayPicturesForOneRepetitionOnly) {
  for (const double speed : {0.5, 2.0, 10.0})
    for (const double round_trip : {0.05, 0.6})
      for (const std::uint64_t seed : {1u, 2u, 3u})
        run_line(
            "1 % lost, " + megabits(speed) + ", round trip " + (round_trip < 0.1 ? "50" : "600") +
                " ms, run " + std::to_string(seed),
            {.machine = {.speed = constant(speed), .round_trip = round_trip, .loss = 0.01}, .seed = seed},
            [&](const ModelResult& result) { check_lossy_line(result, round_trip); });
}

TEST(LinesTest, KeyFramesThatNoRateMakesSmallerCostFewSteps) {
  run_line("key frames of at least 60 KB, 2 Mbit/s",
           {.machine = {.speed = constant(2)}, .least_key_bytes = 60'000}, [](const ModelResult& result) {
             EXPECT_LE(result.steps.size(), 2u);
             EXPECT_GE(result.last.bitrate, 200'000);
           });
}

TEST(LinesTest, LineSlowerThanTheLowestRatesIsNotGivenUp) {
  run_line("machine's line  0.1 Mbit/s", {.machine = {.speed = constant(0.1)}},
           [](const ModelResult& result) {
             EXPECT_LT(result.age(0.5), 150);
             EXPECT_LE(result.steps.size(), 4u);
             EXPECT_LT(result.longest_gap(20, 600), 2);
           });
}

TEST(LinesTest, RatesRiseOnlyWhenTheDesktopMoves) {
  run_line("still for 300 s, 10 Mbit/s", {.machine = {.speed = constant(10)}, .busy = {{0, 0.01}, {300, 1}}},
           [](const ModelResult& result) {
             EXPECT_EQ(result.steps_between(0, 300), 0);
             EXPECT_GE(result.last.bitrate, 2.5e6);
             EXPECT_LT(result.age(0.99), 150);
           });
}

}  // namespace
}  // namespace vlk::relay
