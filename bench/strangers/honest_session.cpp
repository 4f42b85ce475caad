// Sends pictures with a number each, and measures when they arrive.
#include "honest_session.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

#include "attacked_relay.h"
#include "wire/messages.h"

namespace vantelink_bench {

using vlk::Msg;
using vlk::relay::Browser;
using vlk::relay::Json;

namespace {

constexpr std::size_t kPicture = 20'000;  // bytes
constexpr std::chrono::milliseconds kInterval{33};
constexpr char kMachine[] = "127.0.0.250";

}  // namespace

bool open_console(Browser& browser, unsigned short port) {
  const Json credentials = {{"name", "admin"}, {"password", kPassword}};
  const std::string cookie = Browser(port).request("POST", "/api/login", credentials.dump()).cookie;
  unsigned status = 0;
  return browser.open_console(cookie, status);
}

HonestSession::HonestSession(unsigned short port) : agent_(port, kMachine), browser_(port) {
  agent_.start_tls();
  agent_.upgrade();
  agent_.send_message(Msg::Hello, 0, R"({"role":"agent"})");
  agent_.send_message(Msg::Enroll, 0, R"({"name":"honest"})");
  const std::string id = Json::parse(agent_.read_message(Msg::EnrollResult))["agent_id"];
  if (!open_console(browser_, port)) throw std::runtime_error("the console was refused");
  browser_.send({{"type", "open"}, {"agent", id}});
  agent_.read_message(Msg::SessionRequest);
  session_ = agent_.last_session();
  agent_.send_message(Msg::SessionAccept, session_, "{}");
  browser_.accepted_session();
  sender_ = std::thread([this] { send(); });
  receiver_ = std::thread([this] { receive(); });
}

HonestSession::~HonestSession() {
  stopping_ = true;
  sender_.join();
  agent_.close();
  receiver_.join();
}

void HonestSession::send() {
  for (auto due = Clock::now(); !stopping_; due += kInterval) {
    std::this_thread::sleep_until(due);
    std::string picture(kPicture, 'p');
    {
      const std::lock_guard guard(lock_);
      const auto number = static_cast<std::uint32_t>(sent_.size());
      std::memcpy(picture.data() + 8, &number, sizeof number);
      sent_.push_back(Clock::now());
    }
    const auto bytes = vlk::encode_envelope(
        Msg::StreamFrame, session_, reinterpret_cast<const unsigned char*>(picture.data()), kPicture, 0);
    agent_.send(vlk::relay::RawPeer::frame(vlk::kWsBinary, {bytes.begin(), bytes.end()}));
  }
}

void HonestSession::receive() {
  try {
    for (;;) {
      const vlk::Envelope envelope = browser_.read_envelope(Msg::StreamFrame);
      std::uint32_t number = 0;
      std::memcpy(&number, envelope.payload.data() + 8, sizeof number);
      const std::lock_guard guard(lock_);
      received_ = number + 1;
      if (number >= first_)
        times_.push_back(std::chrono::duration<double, std::milli>(Clock::now() - sent_[number]).count());
      if (stopping_) return;
    }
  } catch (const std::exception&) {
    // The connection has ended.
  }
}

void HonestSession::restart() {
  const std::lock_guard guard(lock_);
  first_ = sent_.size();
  times_.clear();
}

double HonestSession::p99() {
  const std::lock_guard guard(lock_);
  std::vector<double> times = times_;
  for (std::size_t number = std::max(first_, received_); number < sent_.size(); ++number)
    times.push_back(std::chrono::duration<double, std::milli>(Clock::now() - sent_[number]).count());
  if (times.empty()) return 0;
  std::ranges::sort(times);
  return times[times.size() * 99 / 100];
}

}  // namespace vantelink_bench
