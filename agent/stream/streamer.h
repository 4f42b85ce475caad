// The video stream: one worker thread that captures, draws the pointer, encodes and sends, at a bounded rate.
#pragma once

#include <atomic>
#include <cstdint>
#include <string_view>
#include <thread>

#include "platform/clock.h"
#include "stream/stream_worker.h"
#include "wire/messages.h"

namespace vlk::agent {

// Made, started, stopped and destroyed by the connection thread, each once; a new stream is a new object. The
// worker owns all capture, drawing and encoding state; the two meet in the settings, which are atomic, and in
// `send`.
class ScreenStreamer {
 public:
  // `session_id` goes out with every message of this stream. `clock` is the steady clock but in tests.
  ScreenStreamer(std::uint32_t session_id, SendCallable send, Clock clock = steady_clock());
  ~ScreenStreamer();  // stops
  ScreenStreamer(const ScreenStreamer&) = delete;
  ScreenStreamer& operator=(const ScreenStreamer&) = delete;

  // Index of EnumerateMonitors, frames a second, JPEG quality, bits a second; no value is checked. Does
  // nothing when started already. Throws std::system_error when no thread can be had.
  void Start(std::int32_t monitor_id, std::int32_t max_fps, std::int32_t quality, std::int32_t bitrate);

  // Blocks, without a limit, until the worker has ended its iteration and torn down.
  void Stop();

  void RequestKeyframe();
  void SetMonitor(std::int32_t monitor_id);
  // Exactly "mjpeg" asks for JPEG; every other text asks for H.264.
  void SetCodec(std::string_view codec);
  void SetCursorVisible(bool visible);

 private:
  void Run();  // the worker thread

  const std::uint32_t session_id_;
  const SendCallable send_;
  const Clock clock_;
  std::thread worker_;
  std::atomic<bool> running_{false};
  StreamSettings settings_;
};

}  // namespace vlk::agent
