// What the service tells the service manager at each moment of its life, and what it is told.
#pragma once

#include <cstdint>

namespace vlk::agent {

enum class ServiceMoment {
  Registered,       // the control handler is in place
  EventCreated,     // the supervising loop may begin
  ControlReceived,  // a control that ends the service
  LoopEnded,
};

// The values of a status report that change; the numbers are the service manager's.
struct ServiceReport {
  std::uint32_t state = 0;
  std::uint32_t accepted = 0;  // controls
  std::uint32_t check_point = 0;
  std::uint32_t wait_hint = 0;  // milliseconds
};

// The report for that moment. `check_point` is the next one to use, and counts up where one was used.
ServiceReport make_report(ServiceMoment moment, std::uint32_t& check_point);

// Whether a control ends the service. That includes a system shutdown, although no report announces that it
// is accepted, so that the system never sends it: both are fixed behaviour.
bool ends_service(std::uint32_t control);

}  // namespace vlk::agent
