// What the relay asks a machine's stream for, and the presets that a person chooses from.
#pragma once

#include <algorithm>
#include <cstdint>
#include <string_view>

namespace vlk::relay {

// The two fields of StreamStart that decide how much a stream sends.
struct StreamRates {
  std::int32_t fps = 0;      // pictures a second
  std::int32_t bitrate = 0;  // bits a second of H.264

  bool operator==(const StreamRates&) const = default;
};

// The agent does not limit the fields: it reads a value below 1 as its default, and above 1000 pictures a
// second its worker never pauses. So the relay keeps within these limits. With fewer than two pictures a
// second, nothing distinguishes a changing screen from a still one, which the agent refreshes once a second.
inline constexpr StreamRates kLeastRates{2, 64'000};
inline constexpr StreamRates kMostRates{60, 50'000'000};

[[nodiscard]] inline StreamRates within_limits(StreamRates rates) {
  return {std::clamp(rates.fps, kLeastRates.fps, kMostRates.fps),
          std::clamp(rates.bitrate, kLeastRates.bitrate, kMostRates.bitrate)};
}

// All presets except ByHand are upper limits: the rates still follow the line.
enum class Preset : std::uint8_t {
  Automatic,  // as much as machine and line carry
  Sharp,      // at most 30 pictures a second, so each has twice the bits
  Balanced,   // at most 5.6 Mbit/s
  Saving,     // at most 15 pictures a second and 1.1 Mbit/s, for lines that are paid by volume
  ByHand,     // the given rates, which the relay never changes
};

// The presets by the names that the console uses.
struct PresetName {
  Preset preset;
  std::string_view name;
};
inline constexpr PresetName kPresetNames[] = {{Preset::Automatic, "automatic"},
                                              {Preset::Sharp, "sharp"},
                                              {Preset::Balanced, "balanced"},
                                              {Preset::Saving, "saving"},
                                              {Preset::ByHand, "hand"}};

[[nodiscard]] inline std::string_view preset_name(Preset preset) {
  return std::ranges::find(kPresetNames, preset, &PresetName::preset)->name;
}

}  // namespace vlk::relay
