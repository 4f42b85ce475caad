// The video stream: one worker thread that captures, draws the pointer, encodes and sends, at a limited frame
// rate.
#pragma once

#include <atomic>
#include <cstdint>
#include <string_view>
#include <thread>

#include "platform/clock.h"
#include "platform/threads/thread_checker.h"
#include "stream/stream_worker.h"
#include "wire/messages.h"

namespace vlk::agent {

// Created, started, stopped and destroyed on the connection thread, each once; a new stream is a new object.
// The worker owns all state of capture, drawing and encoding. The two threads share only the settings, which
// are atomic, and `send`.
class ScreenStreamer {
 public:
  // `session_id` is sent with every message of this stream. `clock` is the steady clock except in tests.
  ScreenStreamer(std::uint32_t session_id, SendCallable send, Clock clock = steady_clock());
  ~ScreenStreamer();  // calls Stop()
  ScreenStreamer(const ScreenStreamer&) = delete;
  ScreenStreamer& operator=(const ScreenStreamer&) = delete;

  // Starts the worker thread. `monitor_id` is an index in EnumerateMonitors, `max_fps` is in frames per
  // second, `quality` is the JPEG quality and `bitrate` is in bits per second; no value is checked. Does
  // nothing if the stream is already running. Throws std::system_error if no thread can be created.
  void Start(std::int32_t monitor_id, std::int32_t max_fps, std::int32_t quality, std::int32_t bitrate);

  // Ends the stream. Blocks without a time limit until the worker has finished its iteration and released
  // everything.
  void Stop();

  void RequestKeyframe();
  void SetMonitor(std::int32_t monitor_id);
  // Exactly "mjpeg" selects JPEG; every other text selects H.264.
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
  [[no_unique_address]] ThreadChecker connection_thread_;
};

}  // namespace vlk::agent
