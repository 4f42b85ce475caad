// Names of rights, and the check of a message.
#include "relay/people/rights.h"

namespace vlk::relay {
namespace {

constexpr std::uint8_t kClipboardFiles = 3;  // the first byte of a clipboard with files

bool clipboard_has_files(Msg code, std::span<const std::uint8_t> payload) {
  return code == Msg::ClipboardData && !payload.empty() && payload.front() == kClipboardFiles;
}

}  // namespace

std::vector<std::string> right_names(Rights rights) {
  std::vector<std::string> names;
  for (const RightName& entry : kRightNames) {
    if (rights & entry.right) names.emplace_back(entry.name);
  }
  return names;
}

std::optional<Right> right_of_name(std::string_view name) {
  for (const RightName& entry : kRightNames) {
    if (entry.name == name) return entry.right;
  }
  return std::nullopt;
}

bool allows_to_machine(Rights rights, Msg code, std::span<const std::uint8_t> payload) {
  const MessageNeeds* needs = find_needs(code);
  if (!needs || !needs->to_machine.met_by(effective(rights))) return false;
  return !clipboard_has_files(code, payload) || (rights & kFilesUp) != 0;
}

bool allows_to_browser(Rights rights, Msg code, std::span<const std::uint8_t> payload) {
  const MessageNeeds* needs = find_needs(code);
  if (!needs || !needs->to_browser.met_by(effective(rights))) return false;
  return !clipboard_has_files(code, payload) || (rights & kFilesDown) != 0;
}

}  // namespace vlk::relay
