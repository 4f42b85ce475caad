// Runs a client against a server of the same process.
#include "machine/scripted_server.h"

#include <algorithm>
#include <utility>

#include "fakes/fakes.h"
#include "require.h"
#include "transfer/file_transfer.h"
#include "wire/json.h"

namespace vlk::agent::fuzz {
namespace {

constexpr std::size_t kKeyLength = 24;  // characters of 16 bytes in Base64

void check_request(std::string_view text) {
  constexpr std::string_view kKey = "Sec-WebSocket-Key: ";
  REQUIRE(text.starts_with("GET /link HTTP/1.1\r\nHost: server\r\n"));
  REQUIRE(text.find("\r\n\r\n") == text.size() - 4);
  const std::size_t key = text.find(kKey);
  REQUIRE(key != std::string_view::npos);
  REQUIRE(text.find("\r\n", key) == key + kKey.size() + kKeyLength);
}

Sent read_sent(const unsigned char* data, std::size_t size) {
  REQUIRE(size >= 2 && (data[0] & 0x80) != 0 && (data[1] & 0x80) != 0);
  WsParser parser;
  parser.feed(data, size);
  const std::optional<WsFrame> frame = parser.next();
  REQUIRE(frame && !parser.failed);
  Sent sent;
  sent.opcode = frame->opcode;
  // The frame ends with the write: a byte after it would be a second frame.
  REQUIRE(parser.pos == 0 ? parser.buffer.empty() : parser.pos == parser.buffer.size());
  if (sent.opcode == kWsPong) {
    sent.pong = frame->payload;
    return sent;
  }
  REQUIRE(sent.opcode == kWsBinary);
  REQUIRE(decode_envelope(frame->payload.data(), frame->payload.size(), sent.envelope));
  REQUIRE(frame->payload.size() == sent.envelope.payload.size() + kEnvelopeHeaderSize);
  const MessageRule* const rule = find_rule(static_cast<Msg>(sent.envelope.type));
  REQUIRE(rule != nullptr && rule->from_agent());
  REQUIRE(rule->scope != Scope::Link || sent.envelope.session_id == 0);
  return sent;
}

}  // namespace

void ScriptedServer::run(AgentConfig config, AgentCallbacks callbacks) {
  config.server_host = "server";
  const Network network(*this);
  {
    AgentClient client(std::move(config), std::move(callbacks), clock());
    client.start();
    {
      std::unique_lock<std::mutex> guard(lock_);
      changed_.wait(guard, [this] { return finished_; });
    }
    client.stop();
  }
  for (const std::uint32_t upload : uploads_)
    EndUpload(upload);
}

bool ScriptedServer::accept(const std::string& host, std::uint32_t port) {
  REQUIRE(host == "server" && port == kDefaultServerPort);
  requested_ = answered_ = false;
  given_.clear();
  position_ = 0;
  own_ = WsParser();
  return true;
}

std::ptrdiff_t ScriptedServer::give(unsigned char* buffer, std::size_t size) {
  REQUIRE(requested_);
  vantelink_fakes::clear_journal();  // it would grow without a limit while a stream runs
  while (position_ == given_.size()) {
    std::optional<Bytes> bytes = next();
    if (!bytes) return 0;
    note_uploads(*bytes);
    given_ = *std::move(bytes);
    position_ = 0;
  }
  const std::size_t limit = cut_ == 0 ? size : std::min(size, cut_);
  const std::size_t count = std::min(limit, given_.size() - position_);
  std::copy_n(given_.begin() + static_cast<std::ptrdiff_t>(position_), count, buffer);
  position_ += count;
  return static_cast<std::ptrdiff_t>(count);
}

bool ScriptedServer::take(const unsigned char* data, std::size_t size) {
  if (requested_) return on_sent(read_sent(data, size));
  requested_ = true;
  check_request({reinterpret_cast<const char*>(data), size});
  return true;
}

// The frames begin after the first blank line, which is in the first bytes.
void ScriptedServer::note_uploads(const Bytes& bytes) {
  constexpr std::string_view kBlankLine = "\r\n\r\n";
  const auto begin = answered_
                         ? bytes.begin()
                         : std::search(bytes.begin(), bytes.end(), kBlankLine.begin(), kBlankLine.end());
  const auto skipped = begin - bytes.begin() + (answered_ ? 0 : std::ssize(kBlankLine));
  answered_ = true;
  if (skipped >= std::ssize(bytes)) return;
  own_.feed(bytes.data() + skipped, bytes.size() - static_cast<std::size_t>(skipped));
  while (const std::optional<WsFrame> frame = own_.next()) {
    Envelope envelope;
    if (!decode_envelope(frame->payload.data(), frame->payload.size(), envelope)) continue;
    if (static_cast<Msg>(envelope.type) != Msg::UploadBegin) continue;
    const std::string text(envelope.payload.begin(), envelope.payload.end());
    uploads_.insert(static_cast<std::uint32_t>(value_or(read_int(text, "transfer_id"), 0)));
  }
}

void ScriptedServer::interrupted() {
  const std::lock_guard<std::mutex> guard(lock_);
  stopping_ = true;
  changed_.notify_all();
}

// A pause of the stream's thread takes no time. A pause of the connection thread is the one between two
// connections.
Clock ScriptedServer::clock() {
  return {[this] { return time_.load(); },
          [this](std::int64_t deadline) {
            time_ = std::max(time_.load(), deadline);
            on_connecting_thread() ? pause_between_connections() : std::this_thread::yield();
          }};
}

void ScriptedServer::pause_between_connections() {
  if (another_connection()) return;
  std::unique_lock<std::mutex> guard(lock_);
  finished_ = true;
  changed_.notify_all();
  changed_.wait(guard, [this] { return stopping_; });
}

}  // namespace vlk::agent::fuzz
