// Connects ends to whichever relay answers, and plays both sides of a session.
#include "cluster_ends.h"

#include <fcntl.h>
#include <poll.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "relay/browser.h"

namespace vantelink_bench {
namespace {

using vlk::Msg;
using vlk::relay::Browser;
using vlk::relay::Json;
using vlk::relay::RawPeer;

constexpr std::chrono::milliseconds kRest{20};
constexpr std::chrono::milliseconds kPictureInterval{100};
constexpr std::size_t kPictureBytes = 8 * 1024;
constexpr std::size_t kGroup = 10;                     // pictures from one key frame to the next
constexpr std::chrono::milliseconds kFirstPause{500};  // of an agent
constexpr std::chrono::milliseconds kLongestPause{30'000};
constexpr std::chrono::milliseconds kAskAgain{250};  // the console asks when the list says that it is back
constexpr std::chrono::seconds kGoneAfter{10};       // the console's time limit for a relay
constexpr std::chrono::seconds kPatience{10};

std::string picture_frame(std::uint32_t session, std::size_t number) {
  std::string payload(kPictureBytes, 'x');
  std::memcpy(payload.data(), &number, sizeof number);
  payload.replace(sizeof number, 5, std::string("\0\0\0\1", 4) + (number % kGroup == 0 ? '\x65' : '\x41'));
  const auto bytes = vlk::encode_envelope(
      Msg::StreamFrame, session, reinterpret_cast<const unsigned char*>(payload.data()), payload.size(), 0);
  return RawPeer::frame(vlk::kWsBinary, {bytes.begin(), bytes.end()});
}

std::unique_ptr<RawPeer> connected(unsigned short port, const std::string& from) {
  auto peer = std::make_unique<RawPeer>(port, from);
  peer->limit_waits(kPatience);
  peer->start_tls();
  return peer;
}

}  // namespace

void Relays::add(const std::string& address, unsigned short port) {
  const std::lock_guard guard(lock_);
  const auto known = ports_.find(address);
  if (known != ports_.end()) std::erase(in_turn_, known->second);
  ports_[address] = port;
  in_turn_.push_back(port);
}

unsigned short Relays::port_of(const std::string& address) const {
  const std::lock_guard guard(lock_);
  return ports_.at(address);
}

std::unique_ptr<RawPeer> Relays::connect(const std::string& from, unsigned short& port) {
  std::vector<unsigned short> ports;
  {
    const std::lock_guard guard(lock_);
    ports = in_turn_;
    const auto first = ports.begin() + static_cast<std::ptrdiff_t>(turn_++ % ports.size());
    std::rotate(ports.begin(), first, ports.end());
  }
  for (const unsigned short candidate : ports) {
    port = candidate;
    try {
      return connected(port, from);
    } catch (const std::runtime_error&) {
      continue;
    }
  }
  throw std::runtime_error("no relay answers");
}

void RelayedEnd::start() {
  thread_ = std::thread([this] { run(); });
}

void RelayedEnd::stop() {
  stopping_ = true;
  if (thread_.joinable()) thread_.join();
}

void RelayedEnd::run() {
  while (!stopping_) {
    try {
      live();
    } catch (const std::exception&) {
      // The next attempt shows whether it lasts.
    }
    peer_ = nullptr;
    port_ = 0;
    const auto end = Clock::now() + pause();
    while (!stopping_ && Clock::now() < end)
      std::this_thread::sleep_for(kRest);
  }
}

void RelayedEnd::serve(RawPeer& peer) {
  peer_ = &peer;
  leaving_ = false;
  const int socket = SSL_get_fd(peer.tls());
  ::fcntl(socket, F_SETFL, ::fcntl(socket, F_GETFL) | O_NONBLOCK);
  std::array<unsigned char, 16 * 1024> bytes{};
  while (!stopping_) {
    while (const auto frame = peer.parser().next()) {
      if (frame->opcode == vlk::kWsPing)
        peer.send(RawPeer::frame(vlk::kWsPong, {frame->payload.begin(), frame->payload.end()}));
      handle(*frame);
      if (leaving_) return;
    }
    at_rest();
    const int count = SSL_read(peer.tls(), bytes.data(), static_cast<int>(bytes.size()));
    if (count > 0) {
      peer.parser().feed(bytes.data(), static_cast<std::size_t>(count));
      continue;
    }
    if (SSL_get_error(peer.tls(), count) != SSL_ERROR_WANT_READ) return;
    pollfd readable{socket, POLLIN, 0};
    ::poll(&readable, 1, kRest.count());
  }
}

std::string RelayedMachine::id() const {
  const std::lock_guard guard(lock_);
  return id_;
}

void RelayedMachine::live() {
  unsigned short port = 0;
  session_ = 0;
  const auto peer = relays_.connect(from_, port);
  peer->upgrade();
  pause_ = kFirstPause;
  peer->send_message(Msg::Hello, 0, R"({"role":"agent"})");
  if (id_.empty()) {
    peer->send_message(Msg::Enroll, 0, R"({"name":"machine"})");
  } else {
    peer->send_message(Msg::Login, 0,
                       Json{{"agent_id", id_}, {"secret", secret_}, {"name", "machine"}}.dump());
  }
  port_ = port;
  serve(*peer);
}

std::chrono::milliseconds RelayedMachine::pause() {
  return std::exchange(pause_, std::min(2 * pause_, kLongestPause));
}

void RelayedMachine::handle(const vlk::WsFrame& frame) {
  vlk::Envelope envelope;
  if (frame.opcode != vlk::kWsBinary ||
      !vlk::decode_envelope(frame.payload.data(), frame.payload.size(), envelope))
    return;
  const std::string payload(envelope.payload.begin(), envelope.payload.end());
  switch (static_cast<Msg>(envelope.type)) {
    case Msg::Heartbeat:
      return peer_->send_message(Msg::Heartbeat, 0, payload);
    case Msg::EnrollResult: {
      const Json fields = Json::parse(payload);
      const std::lock_guard guard(lock_);
      id_ = fields["agent_id"];
      secret_ = fields["agent_secret"];
      return;
    }
    case Msg::SessionRequest:
      return peer_->send_message(Msg::SessionAccept, envelope.session_id, "{}");
    case Msg::StreamStart:
      session_ = envelope.session_id;
      pictures_ = 0;
      next_picture_ = Clock::now();
      return;
    case Msg::StreamStop:
    case Msg::SessionEnd:
      session_ = 0;
      return;
    default:
      return;
  }
}

void RelayedMachine::at_rest() {
  if (session_ == 0 || Clock::now() < next_picture_) return;
  next_picture_ += kPictureInterval;
  peer_->send(picture_frame(session_, pictures_++));
}

RelayedViewer::Seen RelayedViewer::seen() const {
  const std::lock_guard guard(lock_);
  Seen seen = seen_;
  seen.longest = std::max(seen.longest, Clock::now() - seen.last_picture);
  return seen;
}

void RelayedViewer::forget() {
  const std::lock_guard guard(lock_);
  seen_.longest = {};
}

void RelayedViewer::live() {
  unsigned short port = moved_to_;
  std::unique_ptr<RawPeer> peer;
  try {
    peer = port != 0 ? connected(port, from_) : relays_.connect(from_, port);
    peer->upgrade("/console", "Origin: https://localhost\r\nCookie: __Host-vantelink_session=" +
                                  (moved_to_ != 0 ? moved_cookie_ : cookie_) + "\r\n");
  } catch (const std::runtime_error&) {
    if (gone_since_ == Clock::time_point()) gone_since_ = Clock::now();
    if (Clock::now() - gone_since_ > kGoneAfter) moved_to_ = 0;
    throw;
  }
  port_ = port;
  gone_since_ = {};
  ask_ = Clock::now();
  serve(*peer);
  gone_since_ = Clock::now();
  if (!std::exchange(follow_, false)) return;
  follow();
}

// Goes where the machine is.
void RelayedViewer::follow() {
  const std::string& cookie = moved_to_ != 0 ? moved_cookie_ : cookie_;
  const auto given =
      Browser(port_).request("POST", "/api/tickets", Json{{"machine", machine_}}.dump(), cookie);
  if (given.status != 200) return;
  const unsigned short port = relays_.port_of(given.body["address"]);
  const auto moved =
      Browser(port).request("POST", "/api/login/ticket", Json{{"ticket", given.body["ticket"]}}.dump());
  if (moved.status != 200) return;
  moved_to_ = port;
  moved_cookie_ = moved.cookie;
}

void RelayedViewer::handle(const vlk::WsFrame& frame) {
  const std::lock_guard guard(lock_);
  if (frame.opcode == vlk::kWsText) {
    const Json text = Json::parse(frame.payload.begin(), frame.payload.end());
    const std::string type = text["type"];
    if (type == "session" && text["state"] == "accepted") {
      ++seen_.sessions;
      peer_->send_message(Msg::StreamStart, text["session"], R"({"max_fps":10,"bitrate":6000000})");
    } else if (type == "session" && text["state"] == "ended") {
      ask_ = Clock::now() + kAskAgain;
    } else if (type == "error") {
      ask_ = Clock::now() + kAskAgain;
      if (text.value("code", "") != "elsewhere") return;
      follow_ = true;
      leave();
    }
    return;
  }
  vlk::Envelope envelope;
  if (frame.opcode != vlk::kWsBinary ||
      !vlk::decode_envelope(frame.payload.data(), frame.payload.size(), envelope) ||
      envelope.type != static_cast<std::uint8_t>(Msg::StreamFrame))
    return;
  const auto now = Clock::now();
  if (seen_.pictures > 0) seen_.longest = std::max(seen_.longest, now - seen_.last_picture);
  ++seen_.pictures;
  seen_.last_picture = now;
}

void RelayedViewer::at_rest() {
  if (Clock::now() < ask_) return;
  ask_ = Clock::time_point::max();
  peer_->send(RawPeer::frame(vlk::kWsText, Json{{"type", "open"}, {"agent", machine_}}.dump()));
}

}  // namespace vantelink_bench
