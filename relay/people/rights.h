// The rights of people in groups of machines, and which right each message of a session needs.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "wire/messages.h"

namespace vlk::relay {

// A set of rights. The database stores the numbers, so they never change.
using Rights = std::uint32_t;

enum Right : Rights {
  kSee = 1,      // the list, sessions, pictures; needed for each other right
  kControl = 2,  // mouse and keyboard
  kClipboard = 4,
  kFilesUp = 8,     // to the machine
  kFilesDown = 16,  // from the machine
  kRestart = 32,    // restart and Ctrl+Alt+Del
  kForget = 64,     // remove the machine from the list
};
inline constexpr Rights kNoRights = 0;
inline constexpr Rights kAllRights = 127;

struct RightName {
  Right right;
  std::string_view name;
};

// The names of the rights in JSON.
inline constexpr RightName kRightNames[] = {
    {kSee, "see"},          {kControl, "control"},      {kClipboard, "clipboard"},
    {kFilesUp, "files-up"}, {kFilesDown, "files-down"}, {kRestart, "restart"},
    {kForget, "forget"},
};

// The names of the rights in `rights`, in the order of kRightNames.
[[nodiscard]] std::vector<std::string> right_names(Rights rights);

// The right with this name; nothing if there is none.
[[nodiscard]] std::optional<Right> right_of_name(std::string_view name);

// Without kSee no other right has an effect.
[[nodiscard]] constexpr Rights effective(Rights rights) {
  return (rights & kSee) ? rights : kNoRights;
}

// What a message needs in one direction: one of `any_of`. A message without a direction is never passed on.
struct Need {
  bool passes = false;
  Rights any_of = kNoRights;

  [[nodiscard]] constexpr bool met_by(Rights rights) const { return passes && (rights & any_of) != 0; }
};

struct MessageNeeds {
  Msg code{};
  Need to_machine{};
  Need to_browser{};
};

inline constexpr Need kNever{};
[[nodiscard]] constexpr Need need(Rights any_of) {
  return {true, any_of};
}

// The decision about each message code of wire/messages.def. The messages between relay and agent alone pass
// in neither direction. An end of a transfer belongs to an upload or to a download, so either right is
// enough; the class Transfers checks which of the two it is.
inline constexpr MessageNeeds kMessageNeeds[] = {
    {Msg::Hello, kNever, kNever},
    {Msg::Error, kNever, kNever},
    {Msg::Heartbeat, kNever, kNever},
    {Msg::Enroll, kNever, kNever},
    {Msg::EnrollResult, kNever, kNever},
    {Msg::Login, kNever, kNever},
    {Msg::LoginResult, kNever, kNever},
    {Msg::NameUpdate, kNever, kNever},
    {Msg::SessionRequest, kNever, kNever},
    {Msg::SessionAccept, kNever, kNever},
    {Msg::SessionReject, kNever, kNever},
    {Msg::SessionEnd, kNever, kNever},
    {Msg::StreamStart, need(kSee), kNever},
    {Msg::StreamStop, need(kSee), kNever},
    {Msg::StreamConfig, kNever, need(kSee)},
    {Msg::StreamFrame, kNever, need(kSee)},
    {Msg::KeyframeRequest, need(kSee), kNever},
    {Msg::MonitorSelect, need(kSee), kNever},
    {Msg::InputEvent, need(kControl), kNever},
    {Msg::ClipboardData, need(kClipboard), need(kClipboard)},
    {Msg::CodecSelect, need(kSee), kNever},
    {Msg::CursorVisibility, need(kSee), kNever},
    {Msg::ThumbnailRequest, need(kSee), kNever},
    {Msg::Thumbnail, kNever, need(kSee)},
    {Msg::DirListRequest, need(kFilesUp | kFilesDown), kNever},
    {Msg::DirListResult, kNever, need(kFilesUp | kFilesDown)},
    {Msg::DownloadRequest, need(kFilesDown), kNever},
    {Msg::UploadBegin, need(kFilesUp), kNever},
    {Msg::FileChunk, need(kFilesUp), need(kFilesDown)},
    {Msg::FileTransferEnd, need(kFilesUp | kFilesDown), need(kFilesUp | kFilesDown)},
    {Msg::Reboot, need(kRestart), kNever},
    {Msg::SecureAttention, need(kRestart), kNever},
};

[[nodiscard]] constexpr const MessageNeeds* find_needs(Msg code) {
  for (const MessageNeeds& needs : kMessageNeeds) {
    if (needs.code == code) return &needs;
  }
  return nullptr;
}

// True if the table decides about each message, in the order of messages.def, and lets a message pass in
// exactly the directions that it has between machine and browser.
[[nodiscard]] constexpr bool each_message_is_decided() {
  if (std::size(kMessageNeeds) != std::size(kMessageRules)) return false;
  for (std::size_t i = 0; i < std::size(kMessageRules); ++i) {
    const MessageRule& rule = kMessageRules[i];
    const MessageNeeds& needs = kMessageNeeds[i];
    const bool session = rule.scope == Scope::Session;
    if (needs.code != rule.code || needs.to_machine.passes != (session && rule.to_agent()) ||
        needs.to_browser.passes != (session && rule.from_agent()))
      return false;
  }
  return true;
}
static_assert(each_message_is_decided(), "a message of wire/messages.def has no decision about its rights");

// True if `rights` allow this message in this direction. `payload` is the message without its header. Files
// in a clipboard also need the right to move files in that direction.
[[nodiscard]] bool allows_to_machine(Rights rights, Msg code, std::span<const std::uint8_t> payload);
[[nodiscard]] bool allows_to_browser(Rights rights, Msg code, std::span<const std::uint8_t> payload);

}  // namespace vlk::relay
