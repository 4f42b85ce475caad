// Native fakes of the Windows modules. One journal records the calls of all modules in order; the script sets
// their results. A test calls reset() first and sets the script before any thread starts.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "config/config.h"
#include "stream/capture/capture.h"
#include "stream/capture/monitors.h"
#include "system/session_launcher.h"

// The fakes' definition of StopEvent. Tests create objects of it.
struct vlk::agent::StopEvent {
  std::string name;
};

namespace vantelink_fakes {

// The results of the fakes. The comment on a callable says what the fake returns if the callable is not set.
struct Script {
  std::function<bool(std::int32_t)> open;                   // false: no duplication
  std::function<bool(vlk::agent::CapturedFrame&)> acquire;  // true with an empty frame
  // `capture_gdi`: true with a frame of `gdi_width` by `gdi_height`
  std::function<bool(vlk::agent::CapturedFrame&)> capture_gdi;
  std::uint32_t gdi_width = 8, gdi_height = 4;
  std::int32_t left = 0, top = 0, width = 0, height = 0;  // the capturer's rectangle after a successful open
  std::function<bool()> init;                             // false: no encoder
  std::function<bool(std::vector<std::uint8_t>&, bool)> encode;  // true, appends "h264"
  std::function<std::vector<std::uint8_t>()> jpeg;               // "jpeg"
  std::vector<vlk::agent::MonitorInfo> monitors = {{0, 0, 0, 1280, 720, "Display 1"}};
  std::vector<vlk::agent::MonitorThumbnail> thumbnails;
  std::vector<std::vector<unsigned char>> roots;  // DER
  std::string machine_guid = "guid";
  bool simulate_reboot = true;
  std::function<std::uint32_t()> console_session;  // 1
  std::function<std::string()> launch;             // "child"; an empty name means that nothing was started
  std::function<vlk::agent::WaitResult()> wait;    // Stop
};

void reset();          // allowed only while no other thread uses the fakes
void clear_journal();  // allowed at any time
Script& script();

// Records one line for a call, for instance "Open 1" or "Encode key". The line of an encoded frame ends with
// "of another size" if the frame's size is not that of the encoder's last Init.
void note(const std::string& line);
// From now on, calls `watcher` with each line on the thread of the call, before the line is recorded. Allowed
// at any time.
void watch(std::function<void(const std::string&)> watcher);
std::vector<std::string> journal();
std::size_t count(std::string_view line);
// Waits until a line was recorded `times` times in total. Returns false if that takes longer than `patience`.
[[nodiscard]] bool wait_for(std::string_view line, std::size_t times = 1,
                            std::chrono::milliseconds patience = std::chrono::milliseconds(30000));

// The settings that were saved last.
vlk::agent::AgentConfig saved_config();

}  // namespace vantelink_fakes
