// The text of the tooltip.
#include "shell/tray.h"

#include <algorithm>

#include "client/agent_client.h"

namespace vlk::agent {

std::wstring tray_status_text(std::int32_t status, std::int32_t rep_count) {
  switch (static_cast<Status>(status)) {
    case Status::Connecting:
      return L"Connecting…";
    case Status::Online:
      return L"Online";
    case Status::InSession:
      return L"Reps connected: " + std::to_wstring(std::max(rep_count, 1));
    default:
      return L"Offline";
  }
}

}  // namespace vlk::agent
