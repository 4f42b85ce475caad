// The viewer's file transfers.
#include "viewer.h"

namespace vantelink_bench {

using nlohmann::json;
using vlk::Msg;

namespace {

// As much as the console sends at first, and in chunks as large.
constexpr std::size_t kUploadWindow = 1024 * 1024, kUploadChunk = 256 * 1024;

}  // namespace

// The relay has kept the session, and sends the download from the bytes on that it knows to be stored.
void Viewer::continue_transfers(const json& message) {
  for (const json& transfer : message["transfers"]) {
    if (transfer["kind"] == "download") {
      downloading_ = transfer["transfer"];
      stored_ = transfer["bytes"];
      send({{"type", "continue"},
            {"session", session_},
            {"transfer", transfer["transfer"]},
            {"bytes", transfer["bytes"]}});
    } else {
      const std::lock_guard guard(lock_);
      uploading_ = transfer["transfer"];
      uploaded_ = message["uploads"]["taken"];
      passed_ = message["uploads"]["passed"];
      upload_changed_.notify_all();
    }
  }
}

void Viewer::ask_for_transfer() {
  if (settings_.download_path.empty()) return;
  send({{"type", "transfer"}, {"session", session_}, {"request", kDownload}});
}

void Viewer::begin_transfer(const json& message) {
  if (message["request"] == kDownload) {
    downloading_ = message["transfer"];
    stored_ = 0;
    const json request = {{"transfer_id", downloading_}, {"path", settings_.download_path}};
    return send_envelope(Msg::DownloadRequest, session_, request.dump());
  }
  const json begin = {{"transfer_id", message["transfer"]}, {"path", settings_.upload_path}, {"size", 0}};
  send_envelope(Msg::UploadBegin, session_, begin.dump());
  const std::lock_guard guard(lock_);
  uploading_ = message["transfer"];
  uploaded_ = passed_ = 0;
  upload_changed_.notify_all();
}

void Viewer::upload() {
  for (;;) {
    std::uint32_t session = 0, transfer = 0;
    {
      std::unique_lock guard(lock_);
      upload_changed_.wait(
          guard, [this] { return stopping_ || (uploading_ != 0 && uploaded_ - passed_ < kUploadWindow); });
      if (stopping_) return;
      session = session_;
      transfer = uploading_;
      uploaded_ += kUploadChunk;
    }
    std::string payload(kChunkHeader + kUploadChunk, 'x');
    for (unsigned i = 0; i < 4; ++i)
      payload[i] = static_cast<char>(transfer >> (24 - 8 * i));
    send_envelope(Msg::FileChunk, session, payload);
  }
}

}  // namespace vantelink_bench
