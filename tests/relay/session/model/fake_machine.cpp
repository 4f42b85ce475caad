// The agent's rules about the messages of the relay.
#include "relay/session/model/fake_machine.h"

#include <nlohmann/json.hpp>

namespace vlk::relay::model {
namespace {

std::uint32_t transfer_in(const std::string& payload) {
  return nlohmann::json::parse(payload).value("transfer_id", 0u);
}

}  // namespace

void FakeMachine::disconnect() {
  withdrawn.clear();
  active.clear();
  streaming = 0;
  pressed.clear();
}

std::string FakeMachine::receive(int code, std::uint32_t session, const std::string& payload) {
  switch (code) {
    case 65:
      if (box) return "a second box is shown";
      box = session;
      break;
    case 70:
      if (box == session) {
        box.reset();
        withdrawn.push_back(session);
      }
      [[fallthrough]];
    case 81:
      active.erase(session);
      streaming = 0;
      break;
    case 80:
      active.insert(session);
      streaming = session;
      shown = {};
      [[fallthrough]];
    case 85:
    case 88:
    case 89:
      if (streaming != 0) choose(code, payload);
      break;
    case 86:
      inject(session, payload);
      break;
    case 99:
      uploads.insert(transfer_in(payload));
      break;
    case 101:
      uploads.erase(transfer_in(payload));
      break;
    default:
      break;
  }
  return {};
}

void FakeMachine::choose(int code, const std::string& payload) {
  const auto fields = nlohmann::json::parse(payload);
  if (code == 80) {
    shown.max_fps = fields.value("max_fps", 15);
    shown.bitrate = fields.value("bitrate", 6'000'000);
  }
  if (code == 80 || code == 85) shown.monitor = fields.value("monitor_id", 0);
  if (code == 88) shown.jpeg = fields.value("codec", "h264") == "mjpeg";
  if (code == 89) shown.pointer = fields.value("show", 1) != 0;
}

// Batches of buttons only, which is what the model sends.
void FakeMachine::inject(std::uint32_t session, const std::string& payload) {
  std::set<char>& down = pressed[session];
  for (std::size_t at = 1; at + 2 < payload.size(); at += 3) {
    if (payload[at + 2] != 0) {
      down.insert(payload[at + 1]);
    } else {
      down.erase(payload[at + 1]);
    }
  }
  if (down.empty()) pressed.erase(session);
}

}  // namespace vlk::relay::model
