// The service's status reports to the service manager, and the controls that the service receives.
#pragma once

#include <cstdint>

namespace vlk::agent {

enum class ServiceMoment {
  Registered,       // the control handler is in place
  EventCreated,     // the supervising loop can begin
  ControlReceived,  // a control that ends the service
  LoopEnded,
};

// The values of a status report that differ between reports. Windows defines the numbers.
struct ServiceReport {
  std::uint32_t state = 0;
  std::uint32_t accepted = 0;  // the controls that the service accepts
  std::uint32_t check_point = 0;
  std::uint32_t wait_hint = 0;  // milliseconds
};

// The report for a moment. `check_point` is the next number to use, and is increased if the report uses it.
[[nodiscard]] ServiceReport make_report(ServiceMoment moment, std::uint32_t& check_point);

// Whether a control ends the service. The control for a system shutdown ends it too, although Windows never
// sends that control, because no report says that the service accepts it. Both facts are deliberate.
[[nodiscard]] bool ends_service(std::uint32_t control);

}  // namespace vlk::agent
