// The table from message code to handler, and the handlers. All of it runs on the connection thread, one
// message at a time. No handler checks that a session was accepted, because the server does not pass on a
// session's messages before that. No handler answers with an error.
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

std::string_view text_of(const Envelope& envelope) {
  return {reinterpret_cast<const char*>(envelope.payload.data()), envelope.payload.size()};
}

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

std::span<const AgentClient::MessageHandler> AgentClient::message_handlers() {
  static constexpr MessageHandler kHandlers[] = {
      {Msg::Error, &AgentClient::on_error},
      {Msg::Heartbeat, &AgentClient::on_heartbeat},
      {Msg::EnrollResult, &AgentClient::on_enroll_result},
      {Msg::LoginResult, &AgentClient::on_login_result},
      {Msg::SessionRequest, &AgentClient::on_session_request},
      {Msg::SessionEnd, &AgentClient::on_session_end},
      {Msg::StreamStart, &AgentClient::on_stream_start},
      {Msg::StreamStop, &AgentClient::on_stream_stop},
      {Msg::KeyframeRequest, &AgentClient::on_keyframe_request},
      {Msg::MonitorSelect, &AgentClient::on_monitor_select},
      {Msg::InputEvent, &AgentClient::on_input_event},
      {Msg::ClipboardData, &AgentClient::on_clipboard_data},
      {Msg::CodecSelect, &AgentClient::on_codec_select},
      {Msg::CursorVisibility, &AgentClient::on_cursor_visibility},
      {Msg::ThumbnailRequest, &AgentClient::on_thumbnail_request},
      {Msg::DirListRequest, &AgentClient::on_dir_list_request},
      {Msg::DownloadRequest, &AgentClient::on_download_request},
      {Msg::UploadBegin, &AgentClient::on_upload_begin},
      {Msg::FileChunk, &AgentClient::on_file_chunk},
      {Msg::FileTransferEnd, &AgentClient::on_file_transfer_end},
      {Msg::Reboot, &AgentClient::on_reboot},
      {Msg::SecureAttention, &AgentClient::on_secure_attention},
  };
  return kHandlers;
}

bool AgentClient::dispatch(const Envelope& envelope) {
  connection_thread_.check();
  for (const MessageHandler& handler : message_handlers()) {
    if (handler.code == static_cast<Msg>(envelope.type)) return (this->*handler.handle)(envelope);
  }
  return true;
}

void AgentClient::notify(std::string text) {
  if (callbacks_.on_notice) callbacks_.on_notice(std::move(text));
}

bool AgentClient::on_error(const Envelope& envelope) {
  const std::string_view text = text_of(envelope);
  const std::string code = value_or(read_string(text, "code"), "");
  notify(value_or(read_string(text, "message"), "error"));
  if (code != "AUTH_FAILED") return true;
  // Without an identity, the next connection enrols again.
  const MutexLock lock(config_lock_);
  config_.agent_id.clear();
  config_.agent_secret.clear();
  save_config(config_);
  return false;
}

bool AgentClient::on_heartbeat(const Envelope& envelope) {
  send(Msg::Heartbeat, 0, envelope.payload.data(), envelope.payload.size(), envelope.flags);
  return true;
}

bool AgentClient::on_enroll_result(const Envelope& envelope) {
  const std::string_view text = text_of(envelope);
  // Neither field is checked: a missing one is stored as empty, and the next connection enrols again.
  const MutexLock lock(config_lock_);
  config_.agent_id = value_or(read_string(text, "agent_id"), "");
  config_.agent_secret = value_or(read_string(text, "agent_secret"), "");
  save_config(config_);
  notify("Registered with Maravek");
  return true;
}

bool AgentClient::on_login_result(const Envelope&) {
  report_status(Status::Online, 0);
  notify("Connected to Maravek");
  return true;
}

bool AgentClient::on_session_request(const Envelope& envelope) {
  const std::uint32_t session = envelope.session_id;
  const std::string representative = value_or(read_string(text_of(envelope), "rep_name"), "A representative");
  bool unattended = false;
  {
    const MutexLock lock(config_lock_);
    unattended = config_.unattended;
  }
  if (unattended) {
    accept_session(session);
  } else if (callbacks_.on_session_request) {
    callbacks_.on_session_request(session, representative);
  }
  return true;
}

bool AgentClient::on_session_end(const Envelope& envelope) {
  if (callbacks_.on_session_ended) callbacks_.on_session_ended(envelope.session_id);
  end_session(envelope.session_id);
  return true;
}

bool AgentClient::on_stream_start(const Envelope& envelope) {
  const std::uint32_t session = envelope.session_id;
  const std::string_view text = text_of(envelope);
  const std::int32_t monitor_id = int_field(text, "monitor_id", 0);
  const std::int32_t max_fps = int_field(text, "max_fps", kDefaultStreamFps);
  const std::int32_t bitrate = int_field(text, "bitrate", kDefaultStreamBitrate);

  const std::vector<MonitorInfo> monitors = EnumerateMonitors();
  if (monitor_id >= 0 && static_cast<std::size_t>(monitor_id) < monitors.size()) {
    const MonitorInfo& monitor = monitors[static_cast<std::size_t>(monitor_id)];
    SetActiveMonitorRect(monitor.left, monitor.top, monitor.width, monitor.height);
  }
  // The assignment destroys an earlier streamer and waits here for its worker to end.
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
    const MutexLock lock(sessions_lock_);
    active_sessions_.insert(session);
    count = static_cast<int>(active_sessions_.size());
  }
  report_status(Status::InSession, count);
  return true;
}

bool AgentClient::on_stream_stop(const Envelope& envelope) {
  end_session(envelope.session_id);
  return true;
}

void AgentClient::end_session(std::uint32_t session) {
  // All representatives share one stream: the end of any session stops the stream and the input of all of
  // them.
  SetInputSessionActive(false);
  SetClipboardSessionActive(false);
  streaming_session_ = 0;
  if (link_->streamer) {
    link_->streamer->Stop();
    link_->streamer.reset();
  }
  int count = 0;
  {
    const MutexLock lock(sessions_lock_);
    active_sessions_.erase(session);
    count = static_cast<int>(active_sessions_.size());
  }
  report_status(count < 1 ? Status::Online : Status::InSession, count);
}

bool AgentClient::on_keyframe_request(const Envelope&) {
  if (link_->streamer) link_->streamer->RequestKeyframe();
  return true;
}

bool AgentClient::on_monitor_select(const Envelope& envelope) {
  if (link_->streamer) link_->streamer->SetMonitor(int_field(text_of(envelope), "monitor_id", 0));
  return true;
}

bool AgentClient::on_codec_select(const Envelope& envelope) {
  if (link_->streamer) link_->streamer->SetCodec(value_or(read_string(text_of(envelope), "codec"), "h264"));
  return true;
}

bool AgentClient::on_cursor_visibility(const Envelope& envelope) {
  // The field is read as a number. The JSON values true and false are not numbers, so they make the pointer
  // visible.
  if (link_->streamer)
    link_->streamer->SetCursorVisible(value_or(read_int(text_of(envelope), "show"), 1) != 0);
  return true;
}

bool AgentClient::on_input_event(const Envelope& envelope) {
  InjectInputBatch(envelope.payload.data(), envelope.payload.size());
  return true;
}

bool AgentClient::on_secure_attention(const Envelope&) {
  SendSecureAttention();
  return true;
}

bool AgentClient::on_clipboard_data(const Envelope& envelope) {
  if (callbacks_.on_clipboard) callbacks_.on_clipboard(envelope.payload);
  return true;
}

bool AgentClient::on_thumbnail_request(const Envelope& envelope) {
  const std::vector<MonitorThumbnail> thumbnails = CaptureThumbnails(kThumbnailSize);
  for (const MonitorThumbnail& thumbnail : thumbnails) {
    const auto width = static_cast<std::uint32_t>(thumbnail.width);
    const std::vector<std::uint8_t> jpeg =
        EncodeJpeg(thumbnail.pixels.data(), width, static_cast<std::uint32_t>(thumbnail.height), width * 4,
                   kThumbnailQuality);
    // A thumbnail that could not be encoded is left out, but the count in the payloads of the others includes
    // it.
    if (jpeg.empty()) continue;
    const std::vector<std::uint8_t> payload = PackThumbnail(thumbnail, thumbnails.size(), jpeg);
    send(Msg::Thumbnail, envelope.session_id, payload.data(), payload.size(), kBinaryPayload);
  }
  return true;
}

bool AgentClient::on_dir_list_request(const Envelope& envelope) {
  send_text(Msg::DirListResult, envelope.session_id, ListDirectory(path_field(text_of(envelope))));
  return true;
}

bool AgentClient::on_download_request(const Envelope& envelope) {
  const std::string_view text = text_of(envelope);
  StartDownload(envelope.session_id, transfer_id_field(text), path_field(text),
                [link = link_](Msg type, unsigned int id, const unsigned char* data, std::size_t length,
                               unsigned char flags) { return link->send(type, id, data, length, flags); });
  return true;
}

bool AgentClient::on_upload_begin(const Envelope& envelope) {
  const std::string_view text = text_of(envelope);
  BeginUpload(transfer_id_field(text), path_field(text), value_or(read_int(text, "size"), 0));
  return true;
}

bool AgentClient::on_file_chunk(const Envelope& envelope) {
  // Chunks are appended in the order of arrival; the index in their header is ignored.
  const std::vector<std::uint8_t>& payload = envelope.payload;
  if (payload.size() < kChunkHeaderSize) return true;
  WriteUploadChunk(get_u32_be(payload.data()), payload.data() + kChunkHeaderSize,
                   payload.size() - kChunkHeaderSize);
  return true;
}

bool AgentClient::on_file_transfer_end(const Envelope& envelope) {
  EndUpload(transfer_id_field(text_of(envelope)));
  return true;
}

bool AgentClient::on_reboot(const Envelope&) {
  if (!reboot_machine()) return true;
  // The restart was simulated: the connection is ended, as a real restart would end it.
  link_->socket.interrupt();
  return false;
}

}  // namespace vlk::agent
