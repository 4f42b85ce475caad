// Counts unchanged pictures.
#include "relay/stream/full_pace.h"

#include <algorithm>
#include <functional>
#include <string_view>
#include <utility>

#include "relay/stream/h264/stream.h"

namespace vlk::relay {
namespace {

constexpr std::chrono::seconds kLooked{3};
constexpr std::size_t kMostPictures = 1000;
// An H.264 picture that says of each block that it is unchanged; a blinking cursor needs more.
constexpr std::size_t kUnchangedBytes = 256;
constexpr double kPaceShare = 0.6;
constexpr double kUnchangedShare = 0.9;

}  // namespace

void FullPace::picture(Clock::time_point now, std::span<const std::uint8_t> payload) {
  while (!pictures_.empty() && (now - pictures_.front().at > kLooked || pictures_.size() >= kMostPictures))
    pictures_.pop_front();
  const PictureNeeds needs = needs_of(payload);
  if (needs == PictureNeeds::Nothing)
    return;  // sent every two seconds, whether the screen has changed or not
  bool unchanged = payload.size() <= kUnchangedBytes;
  if (needs == PictureNeeds::NoStream) {
    const std::string_view bytes(reinterpret_cast<const char*>(payload.data()), payload.size());
    const std::size_t hash = std::hash<std::string_view>()(bytes);
    unchanged = std::exchange(last_jpeg_, hash) == hash;
  }
  pictures_.push_back({now, unchanged});
}

bool FullPace::is(Clock::time_point now, int fps) const {
  const auto looked = [&](const Picture& picture) { return now - picture.at <= kLooked; };
  const auto count = static_cast<double>(std::ranges::count_if(pictures_, looked));
  const auto unchanged = static_cast<double>(std::ranges::count_if(
      pictures_, [&](const Picture& picture) { return looked(picture) && picture.unchanged; }));
  // More than the two pictures a second at which a still screen and its key frames are sent anyway.
  const double least = std::max(kPaceShare * fps, 2.5) * static_cast<double>(kLooked.count());
  return count >= least && unchanged >= kUnchangedShare * count;
}

}  // namespace vlk::relay
