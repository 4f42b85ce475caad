// How often each step is taken.
#include "relay/session/model/steps.h"

#include <iterator>
#include <random>

namespace vlk::relay::model {
namespace {

struct Weight {
  Do what;
  const char* name;
  double weight;
};

// In the order of the enumeration. Messages, answers and requests for sessions are frequent; what ends many
// sessions at once is rare.
constexpr Weight kWeights[] = {
    {Do::Connect, "connect", 60},
    {Do::Disconnect, "disconnect", 1.2},
    {Do::Replace, "replace", 0.6},
    {Do::Answer, "answer", 120},
    {Do::ForgedAnswer, "forged answer", 6},
    {Do::Browse, "browse", 70},
    {Do::Drop, "drop", 12},
    {Do::Open, "open", 110},
    {Do::Resume, "resume", 40},
    {Do::Close, "close", 6},
    {Do::Choices, "choices", 5},
    {Do::Steer, "steer", 40},
    {Do::HandOver, "hand over", 20},
    {Do::RefuseSteering, "refuse steering", 10},
    {Do::TakeOver, "take over", 8},
    {Do::Cut, "cut", 0.8},
    {Do::FromBrowser, "message of a browser", 260},
    {Do::FromMachine, "message of a machine", 130},
    {Do::Continue, "continue a transfer", 12},
    {Do::Confirm, "confirm a transfer", 6},
    {Do::Transfer, "number of a transfer", 25},
    {Do::Rights, "rights", 6},
    {Do::Role, "role", 2},
    {Do::FourEyes, "four eyes", 5},
    {Do::Disable, "disable", 0.6},
    {Do::EndLogin, "end of a log-in", 1},
    {Do::EndForAdministrator, "end by an administrator", 1.2},
    {Do::Quarantine, "quarantine", 1.2},
    {Do::Block, "block", 0.6},
    {Do::Move, "move to a group", 2},
    {Do::Tick, "tick", 8},
    {Do::Restart, "restart", 0.4},
};

}  // namespace

std::vector<Step> random_steps(std::uint64_t seed, std::size_t count) {
  std::mt19937_64 random(seed);
  std::vector<double> weights;
  for (const Weight& entry : kWeights)
    weights.push_back(entry.weight);
  std::discrete_distribution<std::size_t> choose(weights.begin(), weights.end());
  const auto number = [&] { return static_cast<std::uint32_t>(random()); };
  std::vector<Step> steps;
  for (std::size_t i = 0; i < count; ++i) {
    const Do what = kWeights[choose(random)].what;
    const std::uint32_t a = number();
    const std::uint32_t b = number();
    steps.push_back({what, a, b, number()});
  }
  return steps;
}

std::string name_of(Do what) {
  return kWeights[static_cast<std::size_t>(what)].name;
}

}  // namespace vlk::relay::model
