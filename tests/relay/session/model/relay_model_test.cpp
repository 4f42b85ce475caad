// Random steps in the relay's sessions and in a model of them. After a failure, the shortest sequence of
// steps that fails is printed.
#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "relay/session/model/world.h"

namespace vlk::relay::model {
namespace {

constexpr std::size_t kStepsOfWorld = 2000;
constexpr std::chrono::seconds kDefaultTime{5};
constexpr std::chrono::seconds kTimeToShorten{60};

std::uint64_t from_environment(const char* name, std::uint64_t otherwise) {
  const char* text = std::getenv(name);
  return text ? std::strtoull(text, nullptr, 10) : otherwise;
}

struct Outcome {
  std::string fault;
  std::size_t steps = 0;  // the number of the step that failed, from 1
  std::vector<std::string> done;
};

Outcome play(std::uint64_t seed, const std::vector<Step>& steps) {
  World world(seed);
  Outcome outcome;
  for (const Step& step : steps) {
    ++outcome.steps;
    outcome.fault = world.run(step);
    outcome.done.push_back(world.done());
    if (!outcome.fault.empty()) break;
  }
  return outcome;
}

using Moment = std::chrono::steady_clock::time_point;

// The steps without those that can be left out, `size` at a time, while the same fault remains.
std::vector<Step> without_needless(std::uint64_t seed, std::vector<Step> steps, const std::string& kind,
                                   std::size_t size, Moment deadline) {
  for (std::size_t at = 0; at < steps.size() && std::chrono::steady_clock::now() < deadline;) {
    std::vector<Step> fewer = steps;
    const auto from = fewer.begin() + static_cast<std::ptrdiff_t>(at);
    fewer.erase(from, from + static_cast<std::ptrdiff_t>(std::min(size, steps.size() - at)));
    const Outcome outcome = play(seed, fewer);
    if (!outcome.fault.starts_with(kind)) {
      at += size;
      continue;
    }
    fewer.resize(outcome.steps);
    steps = std::move(fewer);
  }
  return steps;
}

std::vector<Step> shortest(std::uint64_t seed, std::vector<Step> steps, const std::string& fault) {
  const std::string kind = fault.substr(0, fault.find('('));
  const Moment deadline = std::chrono::steady_clock::now() + kTimeToShorten;
  for (std::size_t size = std::max<std::size_t>(steps.size() / 2, 1); size > 1; size /= 2)
    steps = without_needless(seed, std::move(steps), kind, size, deadline);
  for (std::size_t before = 0; before != steps.size();) {
    before = steps.size();
    steps = without_needless(seed, std::move(steps), kind, 1, deadline);
  }
  return steps;
}

void report(std::uint64_t seed, std::vector<Step> steps, const Outcome& outcome) {
  std::cout << "seed " << seed << ", step " << outcome.steps << ": " << outcome.fault << std::endl;
  steps.resize(outcome.steps);
  const Outcome brief = play(seed, shortest(seed, steps, outcome.fault));
  std::string text;
  for (std::size_t i = 0; i < brief.done.size(); ++i)
    text += "  " + std::to_string(i + 1) + ". " + brief.done[i] + "\n";
  ADD_FAILURE() << "seed " << seed << ", step " << outcome.steps << ": " << outcome.fault
                << "\nThe shortest sequence:\n"
                << text << brief.fault;
}

TEST(RelayModelTest, SessionsAgreeWithTheModelAfterRandomSteps) {
  const auto began = std::chrono::steady_clock::now();
  const auto elapsed = [&] { return std::chrono::steady_clock::now() - began; };
  const std::uint64_t wanted = from_environment("VANTELINK_MODEL_STEPS", 0);
  std::uint64_t seed = from_environment("VANTELINK_MODEL_SEED", 1);
  std::uint64_t count = 0;
  std::cout << "the first seed is " << seed << std::endl;
  while (wanted == 0 ? elapsed() < kDefaultTime : count < wanted) {
    const std::size_t length =
        wanted == 0 ? kStepsOfWorld : std::min<std::size_t>(wanted - count, kStepsOfWorld);
    const std::vector<Step> steps = random_steps(seed, length);
    const Outcome outcome = play(seed, steps);
    count += outcome.steps;
    if (!outcome.fault.empty()) return report(seed, steps, outcome);
    ++seed;
  }
  std::cout << count << " steps in "
            << std::chrono::duration_cast<std::chrono::milliseconds>(elapsed()).count() << " ms" << std::endl;
}

}  // namespace
}  // namespace vlk::relay::model
