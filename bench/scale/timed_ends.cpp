// Sends and reads on sockets that do not block.
#include "timed_ends.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace vantelink_bench {
namespace {

using vlk::Msg;
using vlk::relay::RawPeer;

constexpr std::size_t kInputBytes = 6;  // one move of the pointer
constexpr std::size_t kGroup = 30;      // pictures from one key frame to the next
constexpr std::chrono::seconds kWarmUp{1};
constexpr std::chrono::seconds kPatience{10};

std::string envelope_frame(Msg type, std::uint32_t session, const std::string& payload) {
  const auto bytes = vlk::encode_envelope(
      type, session, reinterpret_cast<const unsigned char*>(payload.data()), payload.size(), 0);
  return RawPeer::frame(vlk::kWsBinary, {bytes.begin(), bytes.end()});
}

// A picture of an H.264 stream whose time stamp is the time at which it is sent.
std::string picture(std::size_t size, std::size_t number, Clock::time_point now) {
  const std::int64_t stamp = now.time_since_epoch().count();
  std::string payload(size, 'x');
  std::memcpy(payload.data(), &stamp, sizeof stamp);
  payload.replace(sizeof stamp, 5, std::string("\0\0\0\1", 4) + (number % kGroup == 0 ? '\x65' : '\x41'));
  return payload;
}

std::string input(std::size_t number) {
  return {1, 1, static_cast<char>(number & 0x7F), 0, 0, 0};
}

}  // namespace

void End::start_tls() {
  peer.limit_waits(kPatience);
  peer.start_tls();
  const int on = 1;
  ::setsockopt(SSL_get_fd(peer.tls()), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

TimedEnds::TimedEnds(Load load)
    : load_(load), poll_(::epoll_create1(EPOLL_CLOEXEC)), thread_([this] { run(); }) {}

TimedEnds::~TimedEnds() {
  stopping_ = true;
  thread_.join();
  ::close(poll_);
}

void TimedEnds::add(std::unique_ptr<End> machine, std::unique_ptr<End> viewer) {
  machine->machine = true;
  machine->other = viewer.get();
  viewer->other = machine.get();
  for (End* end : {machine.get(), viewer.get()}) {
    const int socket = SSL_get_fd(end->peer.tls());
    ::fcntl(socket, F_SETFL, ::fcntl(socket, F_GETFL) | O_NONBLOCK);
    epoll_event event{EPOLLIN, {end}};
    ::epoll_ctl(poll_, EPOLL_CTL_ADD, socket, &event);
  }
  machines_.push_back(std::move(machine));
  viewers_.push_back(std::move(viewer));
}

Delays TimedEnds::measure(std::chrono::seconds time) {
  begin_ = Clock::now();
  sending_ = true;
  std::this_thread::sleep_for(time + kWarmUp);
  sending_ = false;
  const auto end = Clock::now() + kPatience;
  do {
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
  } while (on_way_ > 0 && !lost_ && Clock::now() < end);
  if (lost_ || on_way_ > 0)
    throw std::runtime_error(lost_ ? "a connection has ended"
                                   : std::to_string(on_way_) + " messages are missing");
  return std::move(delays_);
}

void TimedEnds::run() {
  std::array<epoll_event, 256> events{};
  while (!stopping_) {
    const int count = ::epoll_wait(poll_, events.data(), static_cast<int>(events.size()), 1);
    for (int i = 0; i < count; ++i) {
      auto& end = *static_cast<End*>(events[static_cast<std::size_t>(i)].data.ptr);
      if (read(end)) continue;
      ::epoll_ctl(poll_, EPOLL_CTL_DEL, SSL_get_fd(end.peer.tls()), nullptr);
      lost_ = true;
    }
    if (sending_) send_due(Clock::now());
  }
}

// A session's input is sent half an interval after its picture.
void TimedEnds::send_due(Clock::time_point now) {
  const std::size_t sessions = machines_.size();
  const double rate = load_.a_second * static_cast<double>(sessions);
  const auto due = static_cast<std::size_t>(std::chrono::duration<double>(now - begin_).count() * rate);
  for (; sent_ < due; ++sent_) {
    send(*machines_[sent_ % sessions], sent_ / sessions);
    send(*viewers_[(sent_ + sessions / 2) % sessions], sent_ / sessions);
  }
}

std::string TimedEnds::message(const End& from, std::size_t number, Clock::time_point now) const {
  std::string payload = from.machine ? picture(load_.picture_bytes, number, now) : input(number);
  if (!from.messages) return payload;
  return envelope_frame(from.machine ? Msg::StreamFrame : Msg::InputEvent, from.session, payload);
}

void TimedEnds::send(End& from, std::size_t number) {
  const auto now = Clock::now();
  from.other->on_way.push_back(now);
  ++on_way_;
  if (!from.peer.try_send(message(from, number, now))) lost_ = true;
}

bool TimedEnds::read(End& end) {
  std::array<unsigned char, 16 * 1024> bytes{};
  for (;;) {
    const int count = SSL_read(end.peer.tls(), bytes.data(), static_cast<int>(bytes.size()));
    if (count <= 0) return SSL_get_error(end.peer.tls(), count) == SSL_ERROR_WANT_READ;
    const auto now = Clock::now();
    if (end.messages) {
      end.peer.parser().feed(bytes.data(), static_cast<std::size_t>(count));
      parse(end, now);
    } else {
      this->count(end, static_cast<std::size_t>(count), now);
    }
  }
}

void TimedEnds::parse(End& end, Clock::time_point now) {
  while (const auto frame = end.peer.parser().next()) {
    vlk::Envelope envelope;
    if (frame->opcode == vlk::kWsPing)
      end.peer.send(RawPeer::frame(vlk::kWsPong, {frame->payload.begin(), frame->payload.end()}));
    if (frame->opcode != vlk::kWsBinary ||
        !vlk::decode_envelope(frame->payload.data(), frame->payload.size(), envelope))
      continue;
    const auto type = static_cast<Msg>(envelope.type);
    if (type == Msg::Heartbeat && end.machine) {
      end.peer.send_message(Msg::Heartbeat, 0, {envelope.payload.begin(), envelope.payload.end()});
    } else if (type == (end.machine ? Msg::InputEvent : Msg::StreamFrame)) {
      arrived(end, now);
    }
  }
}

void TimedEnds::count(End& end, std::size_t bytes, Clock::time_point now) {
  const std::size_t size = end.machine ? kInputBytes : load_.picture_bytes;
  for (end.bytes += bytes; end.bytes >= size; end.bytes -= size)
    arrived(end, now);
}

void TimedEnds::arrived(End& end, Clock::time_point now) {
  if (end.on_way.empty()) return;
  const auto sent = end.on_way.front();
  end.on_way.pop_front();
  --on_way_;
  if (sent - begin_ < kWarmUp) return;
  (end.machine ? delays_.inputs : delays_.pictures)
      .push_back(std::chrono::duration<double, std::milli>(now - sent).count());
}

}  // namespace vantelink_bench
