// Random steps: what people, browsers, machines, administrators and the clock do.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace vlk::relay::model {

enum class Do : std::uint8_t {
  Connect,
  Disconnect,
  Replace,
  Answer,
  ForgedAnswer,
  Browse,
  Drop,
  Open,
  Resume,
  Close,
  Choices,
  Steer,
  HandOver,
  RefuseSteering,
  TakeOver,
  Cut,
  FromBrowser,
  FromMachine,
  Continue,
  Confirm,
  Transfer,
  Rights,
  Role,
  FourEyes,
  Disable,
  EndLogin,
  EndForAdministrator,
  Quarantine,
  Block,
  Move,
  Tick,
  Restart,
};

// A step without any number of a session, so that a sequence keeps its meaning when steps are left out. Each
// number selects one of what there is at that moment.
struct Step {
  Do what{};
  std::uint32_t a = 0;
  std::uint32_t b = 0;
  std::uint32_t c = 0;
};

[[nodiscard]] std::vector<Step> random_steps(std::uint64_t seed, std::size_t count);
[[nodiscard]] std::string name_of(Do what);

}  // namespace vlk::relay::model
