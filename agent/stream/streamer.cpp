// The stream's thread and its settings.
#include "stream/streamer.h"

#include <utility>

#include "net/thread_records.h"
#include "platform/threads/com_apartment.h"
#include "platform/threads/start_thread.h"

namespace vlk::agent {

ScreenStreamer::ScreenStreamer(std::uint32_t session_id, SendCallable send, Clock clock)
    : session_id_(session_id), send_(std::move(send)), clock_(std::move(clock)) {}

ScreenStreamer::~ScreenStreamer() {
  Stop();
}

void ScreenStreamer::Start(std::int32_t monitor_id, std::int32_t max_fps, std::int32_t quality,
                           std::int32_t bitrate) {
  connection_thread_.check();
  if (running_.exchange(true)) return;
  settings_.monitor_id = monitor_id;
  settings_.max_fps = max_fps;
  settings_.quality = quality;
  settings_.bitrate = bitrate;
  worker_ = start_thread([this] {
    const ThreadRecords records;
    Run();
  });
}

void ScreenStreamer::Stop() {
  connection_thread_.check();
  if (running_.exchange(false) && worker_.joinable()) worker_.join();
}

void ScreenStreamer::RequestKeyframe() {
  connection_thread_.check();
  settings_.keyframe_requested = true;
}

void ScreenStreamer::SetMonitor(std::int32_t monitor_id) {
  connection_thread_.check();
  settings_.monitor_id = monitor_id;
}

void ScreenStreamer::SetCodec(std::string_view codec) {
  connection_thread_.check();
  settings_.codec = codec == "mjpeg" ? StreamCodec::Mjpeg : StreamCodec::H264;
  settings_.keyframe_requested = true;
}

void ScreenStreamer::SetCursorVisible(bool visible) {
  connection_thread_.check();
  settings_.show_cursor = visible;
}

void ScreenStreamer::Run() {
  const ComApartment apartment;  // destroyed after everything that the worker creates
  StreamWorker worker(session_id_, send_, clock_, settings_);
  while (running_)
    worker.RunIteration();
}

}  // namespace vlk::agent
