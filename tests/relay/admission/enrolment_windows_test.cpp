// Which new machines are approved at once.
#include "relay/admission/enrolment_windows.h"

#include <gtest/gtest.h>

namespace vlk::relay {
namespace {

EnrolmentWindow window(std::int64_t id, std::int64_t until, std::optional<std::int64_t> machines = {}) {
  EnrolmentWindow result;
  result.id = id;
  result.until = until;
  result.machines_left = machines;
  return result;
}

TEST(EnrolmentWindows, NoMachineIsAdmittedWithoutAWindow) {
  EXPECT_FALSE(EnrolmentWindows().admit(0));
}

TEST(EnrolmentWindows, WindowAdmitsMachinesUntilItsEnd) {
  EnrolmentWindows windows;
  windows.add(window(1, 100));
  EXPECT_TRUE(windows.admit(99));
  EXPECT_FALSE(windows.admit(100));
}

TEST(EnrolmentWindows, WindowAdmitsNoMoreMachinesThanItsNumber) {
  EnrolmentWindows windows;
  windows.add(window(1, 100, 2));
  EXPECT_EQ(windows.admit(0)->machines_left, 1);
  EXPECT_EQ(windows.admit(0)->machines_left, 0);
  EXPECT_FALSE(windows.admit(0));
  windows.give_back(1);
  EXPECT_TRUE(windows.admit(0)) << "a machine that was not stored is not counted";
}

TEST(EnrolmentWindows, WindowThatClosesFirstIsUsedFirst) {
  EnrolmentWindows windows;
  windows.add(window(1, 200));
  windows.add(window(2, 100, 1));
  EXPECT_EQ(windows.admit(0)->id, 2);
  EXPECT_EQ(windows.admit(0)->id, 1);
}

TEST(EnrolmentWindows, ClosedWindowsAreTakenOutOnce) {
  EnrolmentWindows windows;
  windows.add(window(1, 100));
  windows.add(window(2, 50));
  windows.add(window(3, 100, 1));
  EXPECT_TRUE(windows.admit(0));
  const auto closed = windows.take_closed(50);
  ASSERT_EQ(closed.size(), 1U);
  EXPECT_EQ(closed[0].id, 2);
  EXPECT_TRUE(windows.take_closed(50).empty());
  EXPECT_EQ(windows.all().size(), 2U);
}

TEST(EnrolmentWindows, RemovedWindowAdmitsNobody) {
  EnrolmentWindows windows;
  windows.load({window(1, 100)});
  EXPECT_FALSE(windows.remove(2));
  EXPECT_TRUE(windows.remove(1));
  EXPECT_FALSE(windows.admit(0));
}

}  // namespace
}  // namespace vlk::relay
