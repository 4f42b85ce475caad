// The messages of a session as the model writes them, and the rights that they need.
#pragma once

#include <cstdint>
#include <string>

#include "relay/people/rights.h"

namespace vlk::relay::model {

// What a stream shows.
struct Shown {
  int monitor = 0;
  int max_fps = 15;
  int bitrate = 6'000'000;
  bool jpeg = false;
  bool pointer = true;

  bool operator==(const Shown&) const = default;
};

// A message whose content is drawn from `value`; `transfer` is the number of the file transfer.
struct Message {
  int code = 0;
  std::uint32_t session = 0;
  std::uint32_t value = 0;
  std::uint32_t transfer = 0;
};

[[nodiscard]] std::string payload_of(const Message& message, bool from_machine);
[[nodiscard]] Shown shown_by_start(const Message& message);
[[nodiscard]] bool is_picture(int code);
[[nodiscard]] bool is_transfer_code(int code);

// Whether these rights allow the message in this direction, as the documents list them.
[[nodiscard]] bool allowed_to_machine(const Message& message, Rights rights);
[[nodiscard]] bool allowed_to_browser(const Message& message, Rights rights);
// Whether a message of this code exists in this direction within a session.
[[nodiscard]] bool exists_to_machine(int code);

}  // namespace vlk::relay::model
