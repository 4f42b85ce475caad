// Decides about the messages of file transfers.
#include "relay/session/files/transfers.h"

#include <algorithm>
#include <iterator>
#include <span>
#include <utility>

#include <nlohmann/json.hpp>

#include "relay/base/text.h"
#include "relay/session/files/pieces.h"

namespace vlk::relay {
namespace {

std::optional<std::uint32_t> transfer_of_chunk(const Bytes& message) {
  if (message.size() < kEnvelopeHeaderSize + kChunkHeader) return std::nullopt;
  return ByteReader(std::span(message).subspan(kEnvelopeHeaderSize)).u32();
}

nlohmann::json payload_of(const Bytes& message) {
  return nlohmann::json::parse(message.begin() + kEnvelopeHeaderSize, message.end(), nullptr, false);
}

std::optional<std::uint32_t> transfer_of_json(const nlohmann::json& fields) {
  if (!fields.is_object()) return std::nullopt;
  const auto found = fields.find("transfer_id");
  if (found == fields.end() || !found->is_number_unsigned()) return std::nullopt;
  const auto number = found->get<std::uint64_t>();
  if (number > UINT32_MAX) return std::nullopt;
  return static_cast<std::uint32_t>(number);
}

// The path of a request. Empty if it is missing or contains a control character, which Windows file names do
// not have in practice.
std::string file_path(const nlohmann::json& fields) {
  const auto found = fields.find("path");
  if (found == fields.end() || !found->is_string()) return {};
  const auto& path = found->get_ref<const std::string&>();
  return has_control(path) ? std::string() : path;
}

std::string shortened(const std::string& path) {
  const std::string_view kept = cut_utf8(path, Transfers::kLongestPath);
  return std::string(kept) + (kept.size() < path.size() ? "..." : "");
}

TransferRuling refuse(std::string sentence, std::uint32_t transfer = 0) {
  return {TransferRuling::Kind::Refuse, std::move(sentence), transfer};
}

}  // namespace

std::uint64_t chunk_bytes(const Bytes& message) {
  return message.size() - kEnvelopeHeaderSize - kChunkHeader;
}

bool is_transfer(Msg type) {
  return type == Msg::DownloadRequest || type == Msg::UploadBegin || type == Msg::FileChunk ||
         type == Msg::FileTransferEnd;
}

std::shared_ptr<const Bytes> upload_end(std::uint32_t session, std::uint32_t transfer) {
  return json_envelope(Msg::FileTransferEnd, session, "{\"transfer_id\":" + std::to_string(transfer) + "}");
}

std::optional<std::uint32_t> transfer_number(Msg type, const Bytes& message) {
  return type == Msg::FileChunk ? transfer_of_chunk(message) : transfer_of_json(payload_of(message));
}

std::uint32_t Transfers::give(std::uint32_t session) {
  thread_.check();
  Numbers& numbers = sessions_[session];
  if (numbers.size() >= kOpenPerSession) return 0;
  if (++last_ == 0) ++last_;
  numbers[last_];
  return last_;
}

TransferRuling Transfers::from_browser(std::uint32_t session, Msg type, Bytes& message) {
  static const auto kNone = refuse("The transfer's number does not belong to this session.");
  const auto found = sessions_.find(session);
  if (found == sessions_.end()) return kNone;
  if (type == Msg::FileChunk) return chunk(found->second, message);
  if (type == Msg::FileTransferEnd) return end(session, found->second, message);
  return begin(session, found->second, type, message);
}

TrailEntry Transfers::end_note(std::uint32_t number, const Transfer& transfer, const char* how) {
  const char* direction = transfer.state == Transfer::State::Upload ? "up" : "down";
  return trail_entry<TrailKind::FileEnded>({}, number, direction, transfer.path, transfer.size,
                                           transfer.bytes, how);
}

TransferRuling Transfers::begin(std::uint32_t session, Numbers& numbers, Msg type, Bytes& message) {
  const nlohmann::json fields = payload_of(message);
  const auto number = transfer_of_json(fields);
  const auto found = number ? numbers.find(*number) : numbers.end();
  if (found == numbers.end())
    return refuse("The transfer's number does not belong to this session.", number.value_or(0));
  if (found->second.state != Transfer::State::Given)
    return refuse("The transfer has begun already.", *number);
  const std::string path = file_path(fields);
  if (path.empty()) return refuse("The file's path is missing or invalid.", *number);

  // The number comes first, because the agent's JSON reader uses the first text that looks like the key.
  nlohmann::ordered_json rewritten = {{"transfer_id", *number}, {"path", path}};
  const bool upload = type == Msg::UploadBegin;
  std::optional<std::uint64_t> bytes;
  if (upload) {
    const auto size = fields.find("size");
    bytes = size != fields.end() && size->is_number_unsigned() ? size->get<std::uint64_t>() : 0;
    rewritten["size"] = *bytes;
  }
  message = *json_envelope(type, session,
                           rewritten.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace));
  Transfer& transfer = found->second;
  transfer.state = upload ? Transfer::State::Upload : Transfer::State::Download;
  transfer.path = shortened(path);
  transfer.size = bytes;
  return {TransferRuling::Kind::Pass,
          {},
          *number,
          0,
          trail_entry<TrailKind::FileStarted>({}, *number, upload ? "up" : "down", transfer.path, bytes)};
}

TransferRuling Transfers::chunk(Numbers& numbers, const Bytes& message) {
  const auto number = transfer_of_chunk(message);
  const auto found = number ? numbers.find(*number) : numbers.end();
  if (found == numbers.end() || found->second.state != Transfer::State::Upload)
    return refuse("The upload is not open.", number.value_or(0));
  Transfer& upload = found->second;
  const std::uint32_t index = upload.chunks;
  upload.bytes += chunk_bytes(message);
  upload.chunks += pieces_of(chunk_bytes(message));
  return {TransferRuling::Kind::Pass, {}, *number, index};
}

TransferRuling Transfers::end(std::uint32_t session, Numbers& numbers, Bytes& message) {
  const auto number = transfer_of_json(payload_of(message));
  const auto found = number ? numbers.find(*number) : numbers.end();
  if (found == numbers.end()) return refuse("The transfer is not open.", number.value_or(0));
  Transfer& transfer = found->second;
  switch (transfer.state) {
    case Transfer::State::Upload: {
      const auto note = end_note(*number, transfer, "ended");
      numbers.erase(found);
      message = *upload_end(session, *number);
      return {TransferRuling::Kind::Pass, {}, *number, 0, note};
    }
    case Transfer::State::Download:
      // The agent has no message that stops a download, so its further chunks are dropped here.
      transfer.state = Transfer::State::Unwanted;
      return {TransferRuling::Kind::Swallow, {}, *number};
    case Transfer::State::Sent:
    case Transfer::State::Given:
      numbers.erase(found);
      break;
    case Transfer::State::Unwanted:
      break;
  }
  return {TransferRuling::Kind::Swallow, {}, *number};
}

Transfers::Delivery Transfers::from_agent(std::uint32_t session, Msg type, const Bytes& message) {
  const auto of_session = sessions_.find(session);
  if (of_session == sessions_.end()) return {};
  Numbers& numbers = of_session->second;
  const bool is_chunk = type == Msg::FileChunk;
  if (!is_chunk && message.size() > kLongestEnd) return {false};
  const nlohmann::json fields = is_chunk ? nlohmann::json() : payload_of(message);
  const auto number = is_chunk ? transfer_of_chunk(message) : transfer_of_json(fields);
  const auto found = number ? numbers.find(*number) : numbers.end();
  if (found == numbers.end()) return {};
  Transfer& transfer = found->second;
  const bool unwanted = transfer.state == Transfer::State::Unwanted;
  if (!unwanted && transfer.state != Transfer::State::Download) return {};
  if (is_chunk) {
    transfer.bytes += chunk_bytes(message);
    return {!unwanted, *number};
  }
  const auto ok = fields.find("ok");
  const bool good = ok != fields.end() && ok->is_boolean() && ok->get<bool>();
  const char* unwanted_end = transfer.failed ? "failed" : "cancelled";
  const auto note = end_note(*number, transfer, unwanted ? unwanted_end : (good ? "ended" : "failed"));
  // The browser learns of the machine's end also if it has cancelled the download.
  if (unwanted)
    numbers.erase(found);
  else
    transfer.state = Transfer::State::Sent;
  return {true, unwanted ? 0 : *number, note};
}

Transfers::Transfer* Transfers::find(std::uint32_t session, std::uint32_t number) {
  const auto numbers = sessions_.find(session);
  if (numbers == sessions_.end()) return nullptr;
  const auto found = numbers->second.find(number);
  return found == numbers->second.end() ? nullptr : &found->second;
}

void Transfers::give_up(std::uint32_t session, std::uint32_t download) {
  thread_.check();
  Transfer* transfer = find(session, download);
  if (!transfer) return;
  if (transfer->state == Transfer::State::Sent) sessions_.at(session).erase(download);
  if (transfer->state != Transfer::State::Download) return;
  transfer->state = Transfer::State::Unwanted;
  transfer->failed = true;
}

void Transfers::forget(std::uint32_t session, std::uint32_t download) {
  thread_.check();
  const Transfer* transfer = find(session, download);
  if (transfer && transfer->state == Transfer::State::Sent) sessions_.at(session).erase(download);
}

std::vector<Transfers::Open> Transfers::open(std::uint32_t session) const {
  std::vector<Open> all;
  const auto numbers = sessions_.find(session);
  if (numbers == sessions_.end()) return all;
  for (const auto& [number, transfer] : numbers->second) {
    const auto state = transfer.state;
    const bool upload = state == Transfer::State::Upload;
    if (upload || state == Transfer::State::Download || state == Transfer::State::Sent)
      all.push_back({number, upload, transfer.path, transfer.size.value_or(0), transfer.bytes});
  }
  return all;
}

void Transfers::take_back(std::uint32_t session, std::uint32_t upload, std::uint64_t bytes) {
  if (Transfer* transfer = find(session, upload)) transfer->bytes -= std::min(bytes, transfer->bytes);
}

std::vector<std::uint32_t> Transfers::unwanted(std::uint32_t session) const {
  return all_with(session, Transfer::State::Unwanted);
}

std::vector<std::uint32_t> Transfers::open_uploads(std::uint32_t session) const {
  return all_with(session, Transfer::State::Upload);
}

std::vector<std::uint32_t> Transfers::all_with(std::uint32_t session, Transfer::State state) const {
  std::vector<std::uint32_t> all;
  const auto numbers = sessions_.find(session);
  if (numbers == sessions_.end()) return all;
  for (const auto& [number, transfer] : numbers->second) {
    if (transfer.state == state) all.push_back(number);
  }
  return all;
}

Transfers::Leftovers Transfers::end_session(std::uint32_t session) {
  thread_.check();
  Leftovers result;
  const auto found = sessions_.find(session);
  if (found == sessions_.end()) return result;
  for (const auto& [number, transfer] : found->second) {
    if (transfer.state == Transfer::State::Given || transfer.state == Transfer::State::Sent) continue;
    const bool upload = transfer.state == Transfer::State::Upload;
    if (upload) result.uploads.push_back(number);
    result.notes.push_back(end_note(number, transfer, "unfinished"));
  }
  sessions_.erase(found);
  return result;
}

Transfers::Cut Transfers::cut(std::uint32_t session, bool uploads, bool downloads) {
  thread_.check();
  Cut result;
  const auto found = sessions_.find(session);
  if (found == sessions_.end()) return result;
  Numbers& numbers = found->second;
  for (auto entry = numbers.begin(); entry != numbers.end();) {
    auto& [number, transfer] = *entry;
    const bool sent = downloads && transfer.state == Transfer::State::Sent;
    const bool upload = uploads && transfer.state == Transfer::State::Upload;
    if (sent || (downloads && transfer.state == Transfer::State::Download)) {
      transfer.state = Transfer::State::Unwanted;
      result.downloads.push_back(number);
    }
    if (upload) {
      result.uploads.push_back(number);
      result.notes.push_back(end_note(number, transfer, "unfinished"));
    }
    entry = sent || upload ? numbers.erase(entry) : std::next(entry);
  }
  return result;
}

void Transfers::owe(const std::string& agent, const std::vector<std::uint32_t>& uploads,
                    Clock::time_point now) {
  if (uploads.empty()) return;
  auto& list = owed_[agent];
  for (const std::uint32_t upload : uploads)
    list.push_back({upload, now});
  if (list.size() > kOwedPerAgent)
    list.erase(list.begin(), list.end() - static_cast<std::ptrdiff_t>(kOwedPerAgent));
}

std::vector<std::uint32_t> Transfers::owed(const std::string& agent, Clock::time_point now) {
  std::vector<std::uint32_t> uploads;
  const auto found = owed_.find(agent);
  if (found == owed_.end()) return uploads;
  for (Owed& owed : found->second) {
    owed.sent_at = now;
    uploads.push_back(owed.upload);
  }
  return uploads;
}

void Transfers::settle(const std::string& agent, Clock::time_point sent_at) {
  const auto found = owed_.find(agent);
  if (found == owed_.end()) return;
  std::erase_if(found->second, [&](const Owed& owed) { return owed.sent_at < sent_at; });
  if (found->second.empty()) owed_.erase(found);
}

}  // namespace vlk::relay
