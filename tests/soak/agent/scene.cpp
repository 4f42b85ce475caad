// Pictures without pixels: what the relay passes on is bytes, so the text in them is enough to recognise
// each.
#include "soak/agent/scene.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "fakes/fakes.h"

namespace vantelink_soak {
namespace {

using Bytes = std::vector<std::uint8_t>;

struct Size {
  std::int32_t width = 0, height = 0;
};

constexpr std::array<Size, 2> kMonitors = {{{640, 360}, {480, 270}}};

// Parameter sets in the main profile, of pictures of 640 by 360 and 480 by 270. The relay reads and completes
// them.
constexpr auto kLargeSps =
    std::to_array<std::uint8_t>({0, 0, 0, 1, 0x67, 0x4D, 0x40, 0x16, 0xD9, 0x00, 0xA0, 0x2F, 0xF9, 0x50});
constexpr auto kSmallSps =
    std::to_array<std::uint8_t>({0, 0, 0, 1, 0x67, 0x4D, 0x40, 0x15, 0xD9, 0x01, 0xE0, 0x8F, 0xE9});
constexpr auto kPps = std::to_array<std::uint8_t>({0, 0, 0, 1, 0x68, 0xEB, 0xC0, 0xEC, 0xB2});
// The beginnings of an I slice of a key frame and of a P slice.
constexpr auto kKeySlice = std::to_array<std::uint8_t>({0, 0, 1, 0x65, 0x88, 0x84, 0x3A});
constexpr auto kSlice = std::to_array<std::uint8_t>({0, 0, 1, 0x41, 0x9A, 0x3B, 0x1A});

constexpr std::uint32_t kUsualLength = 3000;   // letters; the relay sends these pictures in one piece
constexpr std::uint32_t kPartsLength = 40000;  // in several parts
constexpr std::uint32_t kLongLength = 300000;  // in several fragments of the agent's line
constexpr std::uint32_t kPartsEvery = 20, kLongEvery = 300;
constexpr std::uint32_t kUnchangedEvery = 5;  // of so many attempts, one finds the screen unchanged

struct Scene {
  std::string name, run;
  std::atomic<std::int32_t> monitor{0};
  std::atomic<std::uint32_t> pictures{0};
  std::atomic<std::uint32_t> attempts{0};
};

Scene scene;

std::uint32_t length_of(std::uint32_t counter) {
  if (counter % kLongEvery == 0) return kLongLength;
  if (counter % kPartsEvery == 0) return kPartsLength;
  return counter * 7919 % kUsualLength;
}

void append_picture(Bytes& out) {
  const std::uint32_t counter = ++scene.pictures;
  const std::uint32_t length = length_of(counter);
  const std::string line = "SOAK " + scene.name + ' ' + scene.run + ' ' + std::to_string(counter) + ' ' +
                           std::to_string(scene.monitor) + ' ' + std::to_string(length) + '\n';
  out.insert(out.end(), line.begin(), line.end());
  for (std::uint32_t i = 0; i < length; ++i)
    out.push_back(static_cast<std::uint8_t>('a' + (counter + i) % 26));
}

void append(Bytes& out, std::span<const std::uint8_t> bytes) {
  out.insert(out.end(), bytes.begin(), bytes.end());
}

bool encode(Bytes& out, bool key) {
  if (key) {
    append(out, scene.monitor == 0 ? std::span<const std::uint8_t>(kLargeSps) : kSmallSps);
    append(out, kPps);
    append(out, kKeySlice);
  } else {
    append(out, kSlice);
  }
  append_picture(out);
  return true;
}

bool acquire(vlk::agent::CapturedFrame& frame) {
  if (++scene.attempts % kUnchangedEvery == 0) return false;
  const Size size = kMonitors[static_cast<std::size_t>(scene.monitor)];
  frame.width = static_cast<std::uint32_t>(size.width);
  frame.height = static_cast<std::uint32_t>(size.height);
  frame.stride = size.width * 4;
  frame.pixels.resize(1);  // the fakes of the encoders do not read pixels
  return true;
}

}  // namespace

void set_scene(const std::string& name, const std::string& run) {
  scene.name = name;
  scene.run = run;
  vantelink_fakes::Script& script = vantelink_fakes::script();
  script.machine_guid = name;
  script.monitors.clear();
  std::int32_t left = 0;
  for (std::size_t i = 0; i < kMonitors.size(); ++i) {
    const auto id = static_cast<std::int32_t>(i);
    script.monitors.push_back({id, left, 0, kMonitors[i].width, kMonitors[i].height, "Display"});
    script.thumbnails.push_back({id, 2, 1, Bytes(8)});
    left += kMonitors[i].width;
  }
  script.open = [](std::int32_t monitor) {
    const bool exists = monitor >= 0 && static_cast<std::size_t>(monitor) < kMonitors.size();
    if (exists) scene.monitor = monitor;
    return exists;
  };
  script.acquire = acquire;
  script.capture_gdi = acquire;
  script.init = [] { return true; };
  script.encode = encode;
  script.jpeg = [] {
    Bytes out;
    append_picture(out);
    return out;
  };
}

}  // namespace vantelink_soak
