// Starts a machine's stream, and starts it again for those who still watch.
#include "relay/stream/shared_stream.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include <nlohmann/json.hpp>

namespace vlk::relay {
namespace {

std::int32_t number(const nlohmann::json& payload, const char* key, std::int32_t missing) {
  const auto value = payload.find(key);  // end() if the payload is not an object
  if (value == payload.end() || !value->is_number_integer()) return missing;
  const auto wide = value->get<std::int64_t>();
  return std::in_range<std::int32_t>(wide) ? static_cast<std::int32_t>(wide) : missing;
}

}  // namespace

StreamChoices stream_choices(const nlohmann::json& payload) {
  StreamChoices choices;
  if (!payload.is_object()) return choices;
  choices.monitor = number(payload, "monitor_id", choices.monitor);
  choices.max_fps = number(payload, "max_fps", choices.max_fps);
  choices.bitrate = number(payload, "bitrate", choices.bitrate);
  return choices;
}

std::string start_json(const StreamChoices& choices) {
  return "{\"monitor_id\":" + std::to_string(choices.monitor) +
         ",\"max_fps\":" + std::to_string(choices.max_fps) +
         ",\"bitrate\":" + std::to_string(choices.bitrate) + "}";
}

SharedStream::Order SharedStream::start_order(std::uint32_t session) const {
  return {Msg::StreamStart, session, start_json(choices_)};
}

void SharedStream::add_choices(Orders& orders) const {
  if (choices_.jpeg) orders.push_back({Msg::CodecSelect, leader_, R"({"codec":"mjpeg"})"});
  if (!choices_.pointer) orders.push_back({Msg::CursorVisibility, leader_, R"({"show":0})"});
}

void SharedStream::started(std::uint32_t session, const StreamChoices& choices) {
  choices_ = choices;
  watching_.insert(session);
  leader_ = session;
}

SharedStream::Orders SharedStream::join(std::uint32_t session) {
  watching_.insert(session);
  Orders orders;
  if (leader_ == 0) leader_ = session;
  if (leader_ != session) orders.push_back(start_order(session));
  std::ranges::move(restart(), std::back_inserter(orders));
  return orders;
}

SharedStream::Orders SharedStream::lead(std::uint32_t session) {
  if (!watched_by(session) || leader_ == session) return {};
  leader_ = session;
  return restart();
}

SharedStream::Orders SharedStream::stopped(std::uint32_t session, std::uint32_t next) {
  watching_.erase(session);
  if (watched_by(next)) {
    leader_ = next;
  } else if (!watched_by(leader_)) {
    leader_ = watching_.empty() ? 0 : *watching_.begin();
  }
  return restart();
}

SharedStream::Orders SharedStream::restart() {
  if (leader_ == 0) return {};
  key_frame_needed_ = false;  // a stream begins with one
  Orders orders = {start_order(leader_)};
  add_choices(orders);
  return orders;
}

void SharedStream::chosen(Msg type, const nlohmann::json& payload) {
  if (type == Msg::MonitorSelect) choices_.monitor = number(payload, "monitor_id", 0);
  if (type == Msg::CursorVisibility) choices_.pointer = number(payload, "show", 1) != 0;
  if (type != Msg::CodecSelect) return;
  const auto codec = payload.find("codec");
  choices_.jpeg = codec != payload.end() && *codec == "mjpeg";
}

void SharedStream::set_rates(std::int32_t max_fps, std::int32_t bitrate) {
  choices_.max_fps = max_fps;
  choices_.bitrate = bitrate;
}

bool SharedStream::need_key_frame(Clock::time_point now) {
  key_frame_needed_ = true;
  return key_frame_due(now);
}

bool SharedStream::key_frame_due(Clock::time_point now) {
  if (!key_frame_needed_ || now - key_frame_asked_ < kKeyFramePause) return false;
  key_frame_needed_ = false;
  key_frame_asked_ = now;
  return true;
}

}  // namespace vlk::relay
