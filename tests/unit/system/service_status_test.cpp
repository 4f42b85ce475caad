// The status that the service reports at each moment of its run.
#include "system/service_status.h"

#include <gtest/gtest.h>

namespace vlk::agent {
namespace {

void expect_report(const ServiceReport& got, std::uint32_t state, std::uint32_t accepted,
                   std::uint32_t check_point, std::uint32_t wait_hint) {
  EXPECT_EQ(got.state, state);
  EXPECT_EQ(got.accepted, accepted);
  EXPECT_EQ(got.check_point, check_point);
  EXPECT_EQ(got.wait_hint, wait_hint);
}

TEST(ServiceStatus, CheckPointsIncreaseWhileTheServiceRuns) {
  std::uint32_t check_point = 1;
  expect_report(make_report(ServiceMoment::Registered, check_point), 2, 0, 1, 3000);
  expect_report(make_report(ServiceMoment::EventCreated, check_point), 4, 1, 0, 0);
  expect_report(make_report(ServiceMoment::ControlReceived, check_point), 3, 1, 2, 3000);
  expect_report(make_report(ServiceMoment::LoopEnded, check_point), 1, 1, 0, 0);
  EXPECT_EQ(check_point, 3u);
}

TEST(ServiceStatus, RepeatedStopRequestIsReportedWithAHigherCheckPoint) {
  std::uint32_t check_point = 2;
  (void)make_report(ServiceMoment::ControlReceived, check_point);
  EXPECT_EQ(make_report(ServiceMoment::ControlReceived, check_point).check_point, 3u);
}

TEST(ServiceStatus, OnlyTheStopAndShutdownControlsEndTheService) {
  for (std::uint32_t control = 0; control < 256; ++control) {
    EXPECT_EQ(ends_service(control), control == 1 || control == 5) << control;
  }
}

}  // namespace
}  // namespace vlk::agent
