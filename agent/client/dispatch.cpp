// What each message from the server does. All of it runs on the connection thread, one message at a time. No
// handler asks whether a session was accepted: holding that back is the server's part, and no handler answers
// an error.
#include <utility>

#include "client/agent_client.h"
#include "client/link_state.h"
#include "clipboard/watch.h"
#include "input/injector.h"
#include "stream/capture/monitors.h"
#include "stream/encode/jpeg_encoder.h"
#include "system/reboot.h"
#include "transfer/directory.h"
#include "transfer/file_transfer.h"
#include "wire/big_endian.h"
#include "wire/json.h"

namespace vlk::agent {
namespace {

constexpr std::int32_t kStreamQuality = 70;      // JPEG quality of the stream, which no message can change
constexpr std::uint32_t kThumbnailQuality = 80;  // JPEG quality of thumbnails
constexpr std::int32_t kThumbnailSize = 320;     // pixels of the longer side

std::int32_t int_field(std::string_view text, std::string_view key, std::int32_t fallback) {
  return static_cast<std::int32_t>(value_or(read_int(text, key), fallback));
}

std::uint32_t transfer_id_field(std::string_view text) {
  return static_cast<std::uint32_t>(value_or(read_int(text, "transfer_id"), 0));
}

std::string path_field(std::string_view text) {
  return value_or(read_string(text, "path"), "");
}

}  // namespace

bool AgentClient::dispatch(const Envelope& envelope) {
  const std::uint32_t session = envelope.session_id;
  const std::string_view text(reinterpret_cast<const char*>(envelope.payload.data()),
                              envelope.payload.size());
  switch (static_cast<Msg>(envelope.type)) {
    case Msg::Error:
      return handle_error(text);
    case Msg::Heartbeat:
      send(Msg::Heartbeat, 0, envelope.payload.data(), envelope.payload.size(), envelope.flags);
      return true;
    case Msg::EnrollResult:
      handle_enroll_result(text);
      return true;
    case Msg::LoginResult:
      report_status(Status::Online, 0);
      if (callbacks_.on_notice) callbacks_.on_notice("Connected to Maravek");
      return true;
    case Msg::SessionRequest:
      handle_session_request(session, text);
      return true;
    case Msg::SessionEnd:
      if (callbacks_.on_session_ended) callbacks_.on_session_ended(session);
      end_session(session);
      return true;
    case Msg::StreamStop:
      end_session(session);
      return true;
    case Msg::StreamStart:
      start_stream(session, text);
      return true;
    case Msg::InputEvent:
      InjectInputBatch(envelope.payload.data(), envelope.payload.size());
      return true;
    case Msg::ClipboardData:
      if (callbacks_.on_clipboard) callbacks_.on_clipboard(envelope.payload);
      return true;
    case Msg::ThumbnailRequest:
      send_thumbnails(session);
      return true;
    case Msg::Reboot:
      if (!reboot_machine()) return true;
      // Simulated: the server is to see the machine go away.
      interrupt_socket(link_->socket);
      return false;
    case Msg::DirListRequest:
    case Msg::DownloadRequest:
    case Msg::UploadBegin:
    case Msg::FileChunk:
    case Msg::FileTransferEnd:
      serve_files(envelope, text);
      return true;
    case Msg::SecureAttention:
      SendSecureAttention();
      return true;
    default:
      adjust_stream(static_cast<Msg>(envelope.type), text);
      return true;
  }
}

void AgentClient::adjust_stream(Msg type, std::string_view text) {
  ScreenStreamer* const streamer = link_->streamer.get();
  if (streamer == nullptr) return;
  switch (type) {
    case Msg::KeyframeRequest:
      streamer->RequestKeyframe();
      return;
    case Msg::MonitorSelect:
      streamer->SetMonitor(int_field(text, "monitor_id", 0));
      return;
    case Msg::CodecSelect:
      streamer->SetCodec(value_or(read_string(text, "codec"), "h264"));
      return;
    case Msg::CursorVisibility:
      // Read as a number: the words true and false are not found and leave the pointer shown.
      streamer->SetCursorVisible(value_or(read_int(text, "show"), 1) != 0);
      return;
    default:
      return;
  }
}

bool AgentClient::handle_error(std::string_view text) {
  const std::string code = value_or(read_string(text, "code"), "");
  if (callbacks_.on_notice) callbacks_.on_notice(value_or(read_string(text, "message"), "error"));
  if (code != "AUTH_FAILED") return true;
  // The next connection finds no identity and enrols afresh.
  const std::lock_guard<std::mutex> guard(config_lock_);
  config_.agent_id.clear();
  config_.agent_secret.clear();
  save_config(config_);
  return false;
}

void AgentClient::handle_enroll_result(std::string_view text) {
  // Neither field is checked: a missing one is stored as empty, and the next connection enrols again.
  const std::lock_guard<std::mutex> guard(config_lock_);
  config_.agent_id = value_or(read_string(text, "agent_id"), "");
  config_.agent_secret = value_or(read_string(text, "agent_secret"), "");
  save_config(config_);
  if (callbacks_.on_notice) callbacks_.on_notice("Registered with Maravek");
}

void AgentClient::handle_session_request(std::uint32_t session, std::string_view text) {
  const std::string representative = value_or(read_string(text, "rep_name"), "A representative");
  bool unattended = false;
  {
    const std::lock_guard<std::mutex> guard(config_lock_);
    unattended = config_.unattended;
  }
  if (unattended) {
    accept_session(session);
  } else if (callbacks_.on_session_request) {
    callbacks_.on_session_request(session, representative);
  }
}

void AgentClient::start_stream(std::uint32_t session, std::string_view text) {
  const std::int32_t monitor_id = int_field(text, "monitor_id", 0);
  const std::int32_t max_fps = int_field(text, "max_fps", kDefaultStreamFps);
  const std::int32_t bitrate = int_field(text, "bitrate", kDefaultStreamBitrate);

  const std::vector<MonitorInfo> monitors = EnumerateMonitors();
  if (monitor_id >= 0 && static_cast<std::size_t>(monitor_id) < monitors.size()) {
    const MonitorInfo& monitor = monitors[static_cast<std::size_t>(monitor_id)];
    SetActiveMonitorRect(monitor.left, monitor.top, monitor.width, monitor.height);
  }
  // The assignment destroys a previous streamer, which waits here for its worker.
  link_->streamer = std::make_unique<ScreenStreamer>(
      session,
      [this](Msg type, unsigned int id, const unsigned char* data, std::size_t length, unsigned char flags) {
        return send(type, id, data, length, flags);
      },
      clock_);
  SetInputSessionActive(true);
  streaming_session_ = session;
  SetClipboardSessionActive(true);
  link_->streamer->Start(monitor_id, max_fps, kStreamQuality, bitrate);
  int count = 0;
  {
    const std::lock_guard<std::mutex> guard(sessions_lock_);
    active_sessions_.insert(session);
    count = static_cast<int>(active_sessions_.size());
  }
  report_status(Status::InSession, count);
}

void AgentClient::end_session(std::uint32_t session) {
  // There is one stream for all representatives: the end of any session stops it, and input, for all of them.
  SetInputSessionActive(false);
  SetClipboardSessionActive(false);
  streaming_session_ = 0;
  if (link_->streamer) {
    link_->streamer->Stop();
    link_->streamer.reset();
  }
  int count = 0;
  {
    const std::lock_guard<std::mutex> guard(sessions_lock_);
    active_sessions_.erase(session);
    count = static_cast<int>(active_sessions_.size());
  }
  report_status(count < 1 ? Status::Online : Status::InSession, count);
}

void AgentClient::send_thumbnails(std::uint32_t session) {
  const std::vector<MonitorThumbnail> thumbnails = CaptureThumbnails(kThumbnailSize);
  for (const MonitorThumbnail& thumbnail : thumbnails) {
    const auto width = static_cast<std::uint32_t>(thumbnail.width);
    const std::vector<std::uint8_t> jpeg =
        EncodeJpeg(thumbnail.pixels.data(), width, static_cast<std::uint32_t>(thumbnail.height), width * 4,
                   kThumbnailQuality);
    // The count in the payload is not lowered for one that is left out.
    if (jpeg.empty()) continue;
    const std::vector<std::uint8_t> payload = PackThumbnail(thumbnail, thumbnails.size(), jpeg);
    send(Msg::Thumbnail, session, payload.data(), payload.size(), kBinaryPayload);
  }
}

void AgentClient::serve_files(const Envelope& envelope, std::string_view text) {
  const std::uint32_t session = envelope.session_id;
  switch (static_cast<Msg>(envelope.type)) {
    case Msg::DirListRequest:
      send_text(Msg::DirListResult, session, ListDirectory(path_field(text)));
      return;
    case Msg::DownloadRequest:
      StartDownload(
          session, transfer_id_field(text), path_field(text),
          [link = link_](Msg type, unsigned int id, const unsigned char* data, std::size_t length,
                         unsigned char flags) { return link->send(type, id, data, length, flags); });
      return;
    case Msg::UploadBegin:
      BeginUpload(transfer_id_field(text), path_field(text), value_or(read_int(text, "size"), 0));
      return;
    case Msg::FileChunk:
      // Chunks are appended as they come: their index is not looked at.
      if (envelope.payload.size() < kChunkHeaderSize) return;
      WriteUploadChunk(get_u32_be(envelope.payload.data()), envelope.payload.data() + kChunkHeaderSize,
                       envelope.payload.size() - kChunkHeaderSize);
      return;
    case Msg::FileTransferEnd:
      EndUpload(transfer_id_field(text));
      return;
    default:
      return;
  }
}

}  // namespace vlk::agent
