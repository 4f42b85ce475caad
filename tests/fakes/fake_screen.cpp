// Fakes of capture, pointer, encoders and monitors.
#include <utility>

#include "fakes/fakes.h"
#include "stream/capture/cursor_overlay.h"
#include "stream/encode/h264_encoder.h"
#include "stream/encode/jpeg_encoder.h"

namespace vlk::agent {

using vantelink_fakes::note;
using vantelink_fakes::script;

struct ScreenCapturer::State {
  std::int32_t left = 0, top = 0, width = 0, height = 0;
};

ScreenCapturer::ScreenCapturer() : state_(std::make_unique<State>()) {}

ScreenCapturer::~ScreenCapturer() {
  worker_thread_.check();
  note("~ScreenCapturer");
}

bool ScreenCapturer::Open(std::int32_t monitor_index) {
  worker_thread_.check();
  note("Open " + std::to_string(monitor_index));
  if (!script().open || !script().open(monitor_index)) return false;
  *state_ = {script().left, script().top, script().width, script().height};
  return true;
}

void ScreenCapturer::Close() {}

bool ScreenCapturer::AcquireFrame(CapturedFrame& frame, std::uint32_t timeout_ms) {
  worker_thread_.check();
  note("AcquireFrame " + std::to_string(timeout_ms));
  return !script().acquire || script().acquire(frame);
}

bool ScreenCapturer::CaptureGdi(CapturedFrame& frame) {
  worker_thread_.check();
  note("CaptureGdi");
  if (script().capture_gdi) return script().capture_gdi(frame);
  frame.width = script().gdi_width;
  frame.height = script().gdi_height;
  frame.stride = static_cast<std::int32_t>(frame.width * 4);
  frame.pixels.resize(std::size_t{frame.height} * frame.width * 4);
  return true;
}

std::int32_t ScreenCapturer::width() const {
  return state_->width;
}

std::int32_t ScreenCapturer::height() const {
  return state_->height;
}

std::int32_t ScreenCapturer::left() const {
  return state_->left;
}

std::int32_t ScreenCapturer::top() const {
  return state_->top;
}

struct CursorOverlay::State {};

CursorOverlay::CursorOverlay() = default;

CursorOverlay::~CursorOverlay() {
  worker_thread_.check();
  note("~CursorOverlay");
}

void CursorOverlay::Draw(CapturedFrame&, std::int32_t left, std::int32_t top) {
  worker_thread_.check();
  note("Draw " + std::to_string(left) + ' ' + std::to_string(top));
}

// The size of the last session.
struct H264Encoder::State {
  std::int32_t width = 0, height = 0;
};

H264Encoder::H264Encoder() : state_(std::make_unique<State>()) {}

H264Encoder::~H264Encoder() {
  worker_thread_.check();
  note("~H264Encoder");
}

bool H264Encoder::Init(std::int32_t width, std::int32_t height, std::int32_t fps, std::int32_t bitrate) {
  worker_thread_.check();
  note("Init " + std::to_string(width) + ' ' + std::to_string(height) + ' ' + std::to_string(fps) + ' ' +
       std::to_string(bitrate));
  *state_ = {width, height};
  return script().init && script().init();
}

bool H264Encoder::Encode(const CapturedFrame& frame, std::vector<std::uint8_t>& out, bool force_keyframe) {
  worker_thread_.check();
  const bool fits =
      std::cmp_equal(frame.width, state_->width) && std::cmp_equal(frame.height, state_->height);
  note(std::string(force_keyframe ? "Encode key" : "Encode") + (fits ? "" : " of another size"));
  if (script().encode) return script().encode(out, force_keyframe);
  out.insert(out.end(), {'h', '2', '6', '4'});
  return true;
}

void H264Encoder::Shutdown() {
  worker_thread_.check();
  note("Shutdown");
}

std::vector<std::uint8_t> EncodeJpeg(const std::uint8_t*, std::uint32_t width, std::uint32_t height,
                                     std::uint32_t stride, std::uint32_t quality) {
  note("EncodeJpeg " + std::to_string(width) + ' ' + std::to_string(height) + ' ' + std::to_string(stride) +
       ' ' + std::to_string(quality));
  if (script().jpeg) return script().jpeg();
  return {'j', 'p', 'e', 'g'};
}

std::vector<MonitorInfo> EnumerateMonitors() {
  note("EnumerateMonitors");
  return script().monitors;
}

std::vector<MonitorThumbnail> CaptureThumbnails(std::int32_t max_dimension) {
  note("CaptureThumbnails " + std::to_string(max_dimension));
  return script().thumbnails;
}

}  // namespace vlk::agent
