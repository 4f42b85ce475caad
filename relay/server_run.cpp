// Runs the relay until its end: periodic work, draining and stopping.
#include <algorithm>
#include <utility>

#include <boost/asio/as_tuple.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/use_awaitable.hpp>

#include "relay/server.h"

namespace asio = boost::asio;

namespace vlk::relay {
namespace {

constexpr auto kAsTuple = asio::as_tuple(asio::use_awaitable);
// How long a stopping relay waits until its close frames have reached the browsers.
constexpr std::chrono::milliseconds kStopDelay{300};
constexpr int kSlices = 8;  // parts of a tick, after each of which heartbeats are sent

}  // namespace

void Server::run() {
  io_.run();
  parts_.sessions.end_all("relay-stopped");
  parts_.audit.write(trail_entry<TrailKind::RelayStopped>({.actor = kTrailRelay}));
  trail_keeper_.sign();
  parts_.cluster.leave();
  const bool stored = database_.drain();
  if (!stored) log_.write("", "", "the relay ends without its database; what waits for it is not stored");
  if (!failure_) return;
  try {
    std::rethrow_exception(failure_);
  } catch (const std::exception& failure) {
    log_.write("", "", std::string("the relay ends: ") + failure.what());
    throw;
  }
}

void Server::stop() {
  asio::post(io_, [this] {
    if (stopping_) return;
    stopping_ = true;
    acceptor_.close();
    monitoring_.stop();
    parts_.machines.cut_connections("the relay stops");
    parts_.browsers.close_all(CloseCode::GoingAway, "the relay stops");
    auto delay = std::make_shared<asio::steady_timer>(io_, kStopDelay);
    delay->async_wait([this, delay](boost::system::error_code) { io_.stop(); });
  });
}

void Server::join_cluster(const Cluster::Settings& settings) {
  parts_.sessions.set_relay(settings.name);
  parts_.cluster.join(settings, key_fingerprint(trail_key_.public_part()));
  database_.on_reports([this](const std::vector<std::string>& reports) { parts_.cluster.hear(reports); });
  parts_.cluster.reload();
}

void Server::drain() {
  asio::post(io_, [this] { parts_.cluster.drain(); });
}

void Server::follow_trail(std::unique_ptr<TrailSink> sink) {
  const auto report = [this](const std::string& problem) {
    asio::post(io_, [this, problem] { log_.write("", "", problem); });
  };
  trail_followers_.push_back(std::make_unique<TrailFollower>(database_address_, std::move(sink), report));
}

void Server::reopen_trail_logs() {
  for (const auto& follower : trail_followers_)
    follower->reopen();
}

asio::awaitable<void> Server::tick() {
  asio::steady_timer timer(io_);
  auto due = Clock::now() + limits_.tick;
  while (!stopping_) {
    const auto slice = Clock::now() + limits_.tick / kSlices;
    timer.expires_at(parts_.watchdog.heartbeats_wait() ? std::min(due, slice) : due);
    co_await timer.async_wait(kAsTuple);
    const auto now = Clock::now();
    if (now < due) {
      parts_.watchdog.send_heartbeats(now);
      continue;
    }
    lag_.add(due, now);
    due = now + limits_.tick;
    connections_.tick(now);
    parts_.watchdog.tick(now);
    parts_.cluster.tick(now);
    admission_.tick(wall_seconds());
    trail_keeper_.tick(trail_now());
    certificate_.tick(wall_seconds());
    log_.end_windows(now);
    memory_trim_.tick(now, connections_.ended());
  }
}

}  // namespace vlk::relay
