// The service's status reports to the service manager, and the controls that it receives.
#pragma once

#include <cstdint>

namespace vlk::agent {

enum class ServiceMoment {
  Registered,       // the control handler is in place
  EventCreated,     // the supervising loop can begin
  ControlReceived,  // a control that ends the service
  LoopEnded,
};

// The values of a status report that change. The numbers are those of the service manager.
struct ServiceReport {
  std::uint32_t state = 0;
  std::uint32_t accepted = 0;  // controls
  std::uint32_t check_point = 0;
  std::uint32_t wait_hint = 0;  // milliseconds
};

// The report for that moment. `check_point` is the next number to use, and is increased if it was used.
[[nodiscard]] ServiceReport make_report(ServiceMoment moment, std::uint32_t& check_point);

// Whether a control ends the service. That includes a system shutdown, although the system never sends that
// control, because no report announces that it is accepted. Both are deliberate.
[[nodiscard]] bool ends_service(std::uint32_t control);

}  // namespace vlk::agent
