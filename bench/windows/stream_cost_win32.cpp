// Runs the stream until it has sent the frames.
#include "bench/windows/stream_cost_win32.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>

#include "stream/streamer.h"

namespace vantelink_bench {
namespace {

using vlk::Msg;
using vlk::agent::ScreenStreamer;

constexpr std::int32_t kFps = 2000;  // more than any machine reaches, so that the worker never waits
constexpr std::chrono::seconds kPatience{60};  // the timeout for all frames of one stream

}  // namespace

std::optional<StreamCost> cost_of_stream(LoopbackLink& link, const char* codec, int frames) {
  std::mutex lock;
  std::condition_variable changed;
  int sent_frames = 0;
  std::string announced;
  ScreenStreamer streamer(
      1, [&](Msg type, unsigned, const unsigned char* data, std::size_t length, unsigned char flags) {
        const bool sent = link.Send(type, data, length, flags);
        const std::lock_guard guard(lock);
        if (type == Msg::StreamConfig) announced.assign(reinterpret_cast<const char*>(data), length);
        if (type == Msg::StreamFrame) ++sent_frames;
        changed.notify_all();
        return sent;
      });
  const auto wait_for = [&](int wanted) {
    std::unique_lock guard(lock);
    return changed.wait_for(guard, kPatience, [&] { return sent_frames >= wanted; });
  };
  streamer.SetCodec(codec);
  streamer.Start(0, kFps, kQuality, kBitrate);
  if (!wait_for(1)) return std::nullopt;
  const double wall = wall_milliseconds(), all = process_milliseconds(), reader = link.reader_milliseconds();
  if (!wait_for(frames + 1)) return std::nullopt;
  const double taken = wall_milliseconds() - wall;
  const double own = process_milliseconds() - all - (link.reader_milliseconds() - reader);
  streamer.Stop();
  return StreamCost{frames * 1000 / taken, {taken / frames, own / frames}, announced};
}

}  // namespace vantelink_bench
