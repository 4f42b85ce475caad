// Payloads and needed rights.
#include "relay/session/model/wire.h"

#include <map>

namespace vlk::relay::model {
namespace {

constexpr Rights kFiles = kFilesUp | kFilesDown;
constexpr std::uint32_t kFilesKind = 3;

// One of these rights is needed.
const std::map<int, Rights> kToMachine = {
    {80, kSee},      {81, kSee},    {84, kSee},      {85, kSee},     {86, kControl},   {87, kClipboard},
    {88, kSee},      {89, kSee},    {90, kSee},      {96, kFiles},   {98, kFilesDown}, {99, kFilesUp},
    {100, kFilesUp}, {101, kFiles}, {112, kRestart}, {114, kRestart}};
const std::map<int, Rights> kToBrowser = {{82, kSee},   {83, kSee},        {87, kClipboard}, {91, kSee},
                                          {97, kFiles}, {100, kFilesDown}, {101, kFiles}};

std::uint32_t clip_kind(const Message& message) {
  return 1 + message.value % 3;
}

bool allowed(const std::map<int, Rights>& needs, const Message& message, Rights rights, Rights files) {
  const auto need = needs.find(message.code);
  if (need == needs.end() || !(rights & need->second)) return false;
  return message.code != 87 || clip_kind(message) != kFilesKind || (rights & files);
}

std::string big_endian(std::uint32_t number) {
  std::string bytes;
  for (const int shift : {24, 16, 8, 0})
    bytes += static_cast<char>(number >> shift & 0xff);
  return bytes;
}

}  // namespace

Shown shown_by_start(const Message& message) {
  return {static_cast<int>(message.value % 3), 10 + static_cast<int>(message.value / 3 % 2) * 10,
          1000 + static_cast<int>(message.value / 6 % 3)};
}

std::string payload_of(const Message& message, bool from_machine) {
  const std::uint32_t value = message.value;
  const std::string transfer = "{\"transfer_id\":" + std::to_string(message.transfer);
  switch (message.code) {
    case 80: {
      const Shown shown = shown_by_start(message);
      return "{\"monitor_id\":" + std::to_string(shown.monitor) +
             ",\"max_fps\":" + std::to_string(shown.max_fps) +
             ",\"bitrate\":" + std::to_string(shown.bitrate) + "}";
    }
    case 83:
      return "12345678jpeg" + std::to_string(value);
    case 85:
      return "{\"monitor_id\":" + std::to_string(value % 3) + "}";
    case 86:
      return std::string("\1\2") + static_cast<char>(1 + value % 3) + static_cast<char>(value / 3 % 2);
    case 87:
      return static_cast<char>(clip_kind(message)) + std::string(4, '\0');
    case 88:
      return value % 2 ? R"({"codec":"mjpeg"})" : R"({"codec":"h264"})";
    case 89:
      return value % 2 ? R"({"show":1})" : R"({"show":0})";
    case 98:
      return transfer + R"(,"path":"C:\\f"})";
    case 99:
      return transfer + R"(,"path":"C:\\f","size":4})";
    case 100:
      return big_endian(message.transfer) + big_endian(0) + "data";
    case 101:
      return transfer + (from_machine ? ",\"ok\":true}" : "}");
    default:
      return "{}";
  }
}

bool is_picture(int code) {
  return code == 82 || code == 83;
}

bool is_transfer_code(int code) {
  return code >= 98 && code <= 101;
}

bool allowed_to_machine(const Message& message, Rights rights) {
  return allowed(kToMachine, message, rights, kFilesUp);
}

bool allowed_to_browser(const Message& message, Rights rights) {
  return allowed(kToBrowser, message, rights, kFilesDown);
}

bool exists_to_machine(int code) {
  return kToMachine.contains(code);
}

}  // namespace vlk::relay::model
