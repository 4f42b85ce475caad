// The work of the streaming thread: its state and one iteration of its loop.
#pragma once

#include <atomic>
#include <cstdint>
#include <vector>

#include "platform/clock.h"
#include "platform/threads/thread_checker.h"
#include "stream/capture/capture.h"
#include "stream/capture/cursor_overlay.h"
#include "stream/encode/h264_encoder.h"
#include "wire/messages.h"

namespace vlk::agent {

inline constexpr std::int32_t kDefaultStreamFps = 15;
inline constexpr std::int32_t kDefaultStreamBitrate = 6000000;  // bits per second

enum class StreamCodec : std::int32_t { Mjpeg = 0, H264 = 1 };

// The stream's settings. The connection thread writes them. The worker reads a value at the step that needs
// it, so a value may change between two reads of one iteration.
struct StreamSettings {
  std::atomic<std::int32_t> monitor_id{0};
  std::atomic<std::int32_t> max_fps{kDefaultStreamFps};      // a value below 1 stands for the default
  std::atomic<std::int32_t> quality{70};                     // of JPEG frames
  std::atomic<std::int32_t> bitrate{kDefaultStreamBitrate};  // bits per second
  std::atomic<StreamCodec> codec{StreamCodec::H264};
  std::atomic<bool> keyframe_requested{false};
  std::atomic<bool> show_cursor{true};
};

// Created, used and destroyed on the worker's thread.
class StreamWorker {
 public:
  // Opens the capture. Keeps references to all arguments except `session_id`.
  StreamWorker(std::uint32_t session_id, const SendCallable& send, const Clock& clock,
               StreamSettings& settings);
  ~StreamWorker();
  StreamWorker(const StreamWorker&) = delete;
  StreamWorker& operator=(const StreamWorker&) = delete;

  // Sends at most one frame, then pauses until the next frame is due.
  void RunIteration();

 private:
  // Follows a change of the monitor, then captures, encodes and sends a frame. Reuses the previous frame's
  // memory.
  void StreamOneFrame(std::int64_t interval_ms);
  // If another monitor was selected, opens its capture and maps input to it.
  void FollowMonitor();
  void CaptureEncodeSend(CapturedFrame& frame, StreamCodec requested, std::int64_t interval_ms);
  // Captures a frame by duplication or, when a frame is due, by GDI. False if there is no frame this time.
  [[nodiscard]] bool CaptureFrame(CapturedFrame& frame, std::int64_t interval_ms);
  // Reopens the encoder and sends the configuration if the size or the requested codec has changed. Returns
  // the codec to use.
  [[nodiscard]] StreamCodec UpdateConfig(const CapturedFrame& frame, StreamCodec requested);
  // Opens the encoder for frames of this size, if H.264 is requested. Returns the codec to use, which is JPEG
  // if no encoder could be opened.
  [[nodiscard]] StreamCodec ReopenEncoder(const CapturedFrame& frame, StreamCodec requested);
  void SendConfig(const CapturedFrame& frame, StreamCodec effective);
  // Appends the payload of a frame message to `output`; nothing if there is no picture to send.
  void EncodeFrame(const CapturedFrame& frame, StreamCodec effective, std::vector<std::uint8_t>& output);
  void MapInputToMonitor();

  [[no_unique_address]] ThreadChecker thread_;
  const std::uint32_t session_id_;
  const SendCallable& send_;
  const Clock& clock_;
  StreamSettings& settings_;

  // Destroyed in the reverse of this order.
  ScreenCapturer capturer_;
  CursorOverlay overlay_;
  H264Encoder encoder_;

  // The previous frame's memory. It is reused, because allocating that much memory takes several times as
  // long as copying the frame.
  std::vector<std::uint8_t> pixel_memory_;

  bool dxgi_ok_ = false;     // the last Open's result; stays true if the system ends the duplication
  bool encoder_ok_ = false;  // an H.264 session is open
  bool force_keyframe_ = true;
  std::int32_t current_monitor_ = 0;
  std::uint32_t last_width_ = 0, last_height_ = 0;  // the size in the last StreamConfig
  std::int32_t last_codec_ = -1;                    // the requested codec, not the one in use
  std::int64_t now_ = 0;                            // the iteration's start; all times are in nanoseconds
  std::int64_t last_sent_ = 0;
  std::int64_t last_keyframe_ = 0;
  std::int64_t start_time_ = 0;
};

}  // namespace vlk::agent
