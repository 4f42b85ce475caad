// One iteration of the stream: capture, pointer, configuration, encoding, sending, pause.
#include "stream/stream_worker.h"

#include "input/injector.h"
#include "stream/encode/jpeg_encoder.h"
#include "wire/json.h"

namespace vlk::agent {
namespace {

constexpr std::int64_t kMillisecond = 1000000;         // nanoseconds
constexpr std::int64_t kSecond = 1000 * kMillisecond;  // nanoseconds
constexpr std::int64_t kLongAgo = 10 * kSecond;        // makes the first frame and a key frame due at once
constexpr std::int64_t kRefreshInterval = kSecond;  // a screen without changes is sent again after this time
constexpr std::int64_t kKeyframeInterval = 2 * kSecond;  // the encoder itself has no key frame interval
constexpr std::size_t kStampSize = 8;

void put_u64_le(std::uint8_t* out, std::uint64_t value) {
  for (std::size_t i = 0; i < kStampSize; ++i)
    out[i] = static_cast<std::uint8_t>(value >> (8 * i));
}

}  // namespace

StreamWorker::StreamWorker(std::uint32_t session_id, const SendCallable& send, const Clock& clock,
                           StreamSettings& settings)
    : session_id_(session_id), send_(send), clock_(clock), settings_(settings) {
  current_monitor_ = settings_.monitor_id;
  dxgi_ok_ = capturer_.Open(current_monitor_);
  // Called even if Open failed: a rectangle that is then empty maps input to the whole virtual desktop.
  MapInputToMonitor();
  start_time_ = clock_.now();
  last_sent_ = start_time_ - kLongAgo;
  last_keyframe_ = start_time_ - kLongAgo;
}

StreamWorker::~StreamWorker() {
  thread_.check();
}

void StreamWorker::RunIteration() {
  thread_.check();
  now_ = clock_.now();
  const std::int32_t max_fps = settings_.max_fps;
  const std::int64_t interval_ms = 1000 / (max_fps < 1 ? kDefaultStreamFps : max_fps);
  StreamOneFrame(interval_ms);
  const std::int64_t end = clock_.now();
  const std::int64_t elapsed_ms = (end - now_) / kMillisecond;
  if (elapsed_ms < interval_ms) clock_.sleep_until(end + (interval_ms - elapsed_ms) * kMillisecond);
}

void StreamWorker::StreamOneFrame(std::int64_t interval_ms) {
  const StreamCodec requested = settings_.codec;
  FollowMonitor();
  CapturedFrame frame;
  frame.pixels.swap(pixel_memory_);
  frame.pixels.clear();
  CaptureEncodeSend(frame, requested, interval_ms);
  frame.pixels.swap(pixel_memory_);
}

void StreamWorker::CaptureEncodeSend(CapturedFrame& frame, StreamCodec requested, std::int64_t interval_ms) {
  if (!CaptureFrame(frame, interval_ms) || frame.pixels.empty()) return;
  if (settings_.show_cursor) overlay_.Draw(frame, capturer_.left(), capturer_.top());

  const StreamCodec effective = UpdateConfig(frame, requested);
  std::vector<std::uint8_t> output;
  EncodeFrame(frame, effective, output);
  // The flag is cleared even if there is no output: the next key frame then comes after the key frame
  // interval.
  force_keyframe_ = false;
  if (output.empty()) return;
  send_(Msg::StreamFrame, session_id_, output.data(), output.size(), kBinaryPayload);
  last_sent_ = now_;
}

void StreamWorker::FollowMonitor() {
  const std::int32_t wanted = settings_.monitor_id;
  if (wanted == current_monitor_) return;
  current_monitor_ = wanted;
  dxgi_ok_ = capturer_.Open(current_monitor_);
  last_width_ = 0;  // so that the configuration is sent even if both monitors have the same size
  last_height_ = 0;
  MapInputToMonitor();
  if (!encoder_ok_) return;
  encoder_.Shutdown();
  encoder_ok_ = false;
}

bool StreamWorker::CaptureFrame(CapturedFrame& frame, std::int64_t interval_ms) {
  if (dxgi_ok_ && capturer_.AcquireFrame(frame, static_cast<std::uint32_t>(interval_ms))) return true;
  if (dxgi_ok_ && now_ - last_sent_ < kRefreshInterval) return false;
  const bool got = capturer_.CaptureGdi(frame);
  // Only a failed Open is retried. A duplication that the system ended after a successful Open is
  // deliberately not started again.
  if (!dxgi_ok_) dxgi_ok_ = capturer_.Open(current_monitor_);
  return got;
}

StreamCodec StreamWorker::UpdateConfig(const CapturedFrame& frame, StreamCodec requested) {
  if (frame.width == last_width_ && frame.height == last_height_ &&
      static_cast<std::int32_t>(requested) == last_codec_) {
    // An encoder that could not be opened is not tried again until the size or the requested codec changes.
    return requested == StreamCodec::H264 && !encoder_ok_ ? StreamCodec::Mjpeg : requested;
  }
  const StreamCodec effective = ReopenEncoder(frame, requested);
  SendConfig(frame, effective);
  last_width_ = frame.width;
  last_height_ = frame.height;
  last_codec_ = static_cast<std::int32_t>(requested);
  force_keyframe_ = true;
  return effective;
}

StreamCodec StreamWorker::ReopenEncoder(const CapturedFrame& frame, StreamCodec requested) {
  if (encoder_ok_) encoder_.Shutdown();
  encoder_ok_ = requested == StreamCodec::H264 &&
                encoder_.Init(static_cast<std::int32_t>(frame.width), static_cast<std::int32_t>(frame.height),
                              settings_.max_fps, settings_.bitrate);
  return encoder_ok_ ? requested : StreamCodec::Mjpeg;
}

void StreamWorker::SendConfig(const CapturedFrame& frame, StreamCodec effective) {
  const std::string text = JsonWriter()
                               .add_string("codec", effective == StreamCodec::H264 ? "h264" : "mjpeg")
                               .add_int("w", frame.width)
                               .add_int("h", frame.height)
                               .add_int("monitor_id", current_monitor_)
                               .finish();
  send_(Msg::StreamConfig, session_id_, reinterpret_cast<const unsigned char*>(text.data()), text.size(),
        kJsonPayload);
}

void StreamWorker::EncodeFrame(const CapturedFrame& frame, StreamCodec effective,
                               std::vector<std::uint8_t>& output) {
  const std::int64_t timestamp_us = (now_ - start_time_) / 1000;
  if (effective == StreamCodec::H264 && encoder_ok_) {
    // The flag is checked first, so that a request that arrives during a forced key frame stays pending and
    // makes the next frame a key frame too.
    const bool key = force_keyframe_ || settings_.keyframe_requested.exchange(false) ||
                     now_ - last_keyframe_ >= kKeyframeInterval;
    output.resize(kStampSize);  // the encoder appends after the time stamp, so that nothing is copied
    if (!encoder_.Encode(frame, output, key) || output.size() == kStampSize) {
      output.clear();
      return;
    }
    if (key) last_keyframe_ = now_;
  } else {
    const std::vector<std::uint8_t> jpeg =
        EncodeJpeg(frame.pixels.data(), frame.width, frame.height, static_cast<std::uint32_t>(frame.stride),
                   static_cast<std::uint32_t>(settings_.quality.load()));
    if (jpeg.empty()) return;
    output.reserve(kStampSize + jpeg.size());
    output.resize(kStampSize);
    output.insert(output.end(), jpeg.begin(), jpeg.end());
  }
  // The time stamp is little-endian, unlike the envelope: viewers rely on this order.
  put_u64_le(output.data(), static_cast<std::uint64_t>(timestamp_us));
}

void StreamWorker::MapInputToMonitor() {
  SetActiveMonitorRect(capturer_.left(), capturer_.top(), capturer_.width(), capturer_.height());
}

}  // namespace vlk::agent
