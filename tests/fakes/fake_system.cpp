// Fakes of input, clipboard, settings, trust roots and the machine's identifier.
#include <mutex>

#include "clipboard/watch.h"
#include "config/machine_guid.h"
#include "fakes/fakes.h"
#include "input/injector.h"
#include "net/trust_roots.h"

namespace vantelink_fakes {
namespace {

std::mutex config_lock;
vlk::agent::AgentConfig stored;

}  // namespace

vlk::agent::AgentConfig saved_config() {
  const std::lock_guard<std::mutex> guard(config_lock);
  return stored;
}

}  // namespace vantelink_fakes

namespace vlk::agent {

using vantelink_fakes::note;
using vantelink_fakes::script;

void InjectInputBatch(const unsigned char*, std::size_t length) {
  note("InjectInputBatch " + std::to_string(length));
}

void SendSecureAttention() {
  note("SendSecureAttention");
}

void SetInputSessionActive(bool active) {
  note(active ? "SetInputSessionActive true" : "SetInputSessionActive false");
}

void SetClipboardSessionActive(bool active) {
  note(active ? "SetClipboardSessionActive true" : "SetClipboardSessionActive false");
}

void SetActiveMonitorRect(std::int32_t left, std::int32_t top, std::int32_t width, std::int32_t height) {
  note("SetActiveMonitorRect " + std::to_string(left) + ' ' + std::to_string(top) + ' ' +
       std::to_string(width) + ' ' + std::to_string(height));
}

AgentConfig load_config() {
  return vantelink_fakes::saved_config();
}

void save_config(const AgentConfig& config) {
  {
    const std::lock_guard<std::mutex> guard(vantelink_fakes::config_lock);
    vantelink_fakes::stored = config;
  }
  note("save_config " + config.agent_id + '/' + config.agent_secret);
}

void for_each_system_root(const std::function<void(const unsigned char* der, std::size_t size)>& visit) {
  for (const std::vector<unsigned char>& root : script().roots)
    visit(root.data(), root.size());
}

std::string read_machine_guid() {
  return script().machine_guid;
}

}  // namespace vlk::agent
