// The short status text in the tooltip of the notification area.
#include "shell/tray.h"

#include <gtest/gtest.h>

#include "client/agent_client.h"

namespace vlk::agent {
namespace {

std::wstring tray_text(Status status, std::int32_t rep_count) {
  return tray_status_text(static_cast<std::int32_t>(status), rep_count);
}

TEST(TrayText, EachStatusHasItsOwnText) {
  for (const std::int32_t count : {INT32_MIN, 0, 3}) {
    EXPECT_TRUE(tray_text(Status::Offline, count) == L"Offline");
    EXPECT_TRUE(tray_text(Status::Connecting, count) == L"Connecting\u2026");
    EXPECT_TRUE(tray_text(Status::Online, count) == L"Online");
  }
}

TEST(TrayText, TextOfTheInSessionStatusCountsAtLeastOneRepresentative) {
  EXPECT_TRUE(tray_text(Status::InSession, 3) == L"Reps connected: 3");
  EXPECT_TRUE(tray_text(Status::InSession, 1) == L"Reps connected: 1");
  EXPECT_TRUE(tray_text(Status::InSession, 0) == L"Reps connected: 1");
  EXPECT_TRUE(tray_text(Status::InSession, -1) == L"Reps connected: 1");
  EXPECT_TRUE(tray_text(Status::InSession, INT32_MIN) == L"Reps connected: 1");
  EXPECT_TRUE(tray_text(Status::InSession, INT32_MAX) == L"Reps connected: 2147483647");
}

TEST(TrayText, UnknownStatusIsShownAsOffline) {
  for (const std::int32_t status : {-1, 4, 9999, INT32_MIN, INT32_MAX}) {
    EXPECT_TRUE(tray_status_text(status, 2) == L"Offline") << status;
  }
}

}  // namespace
}  // namespace vlk::agent
