// The contents of the status report for each moment.
#include "system/service_status.h"

namespace vlk::agent {
namespace {

constexpr std::uint32_t kStopped = 1, kStartPending = 2, kStopPending = 3, kRunning = 4;
constexpr std::uint32_t kAcceptNothing = 0, kAcceptStop = 1;
constexpr std::uint32_t kControlStop = 1, kControlShutdown = 5;
constexpr std::uint32_t kPendingHint = 3000;  // milliseconds

}  // namespace

ServiceReport make_report(ServiceMoment moment, std::uint32_t& check_point) {
  switch (moment) {
    case ServiceMoment::Registered:
      return {kStartPending, kAcceptNothing, check_point++, kPendingHint};
    case ServiceMoment::EventCreated:
      return {kRunning, kAcceptStop, 0, 0};
    case ServiceMoment::ControlReceived:
      return {kStopPending, kAcceptStop, check_point++, kPendingHint};
    case ServiceMoment::LoopEnded:
      break;
  }
  return {kStopped, kAcceptStop, 0, 0};
}

bool ends_service(std::uint32_t control) {
  return control == kControlStop || control == kControlShutdown;
}

}  // namespace vlk::agent
