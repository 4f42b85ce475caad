// Carries out what the ladder and the watch over the picture decide.
#include "relay/session/watch/quality_control.h"

#include <algorithm>
#include <string>
#include <utility>

#include <nlohmann/json.hpp>

#include "relay/wire/envelope.h"

namespace vlk::relay {
namespace {

using std::chrono::duration_cast;
using std::chrono::milliseconds;

// Longer, and a picture that stands still is more likely late than wrong.
constexpr milliseconds kLongQueue{500};

std::int32_t number_in(const nlohmann::json& message, const char* key) {
  const auto value = message.find(key);
  if (value == message.end() || !value->is_number_integer()) return 0;
  return static_cast<std::int32_t>(std::clamp<std::int64_t>(value->get<std::int64_t>(), 0, INT32_MAX));
}

// While heartbeats are rare because an echo was late, the pictures show how long the queue is now.
milliseconds echo_of(const AgentPeer& agent, Clock::time_point now) {
  const milliseconds echo = agent.heartbeats.echo(now);
  const auto waited = agent.times.waited(now);
  if (!waited) return echo;
  return std::min(echo, agent.heartbeats.line() + duration_cast<milliseconds>(*waited));
}

}  // namespace

std::optional<StreamQuality::Choice> quality_choice(const nlohmann::json& message) {
  const std::string preset = text_field(message, "preset");
  const auto known = std::ranges::find(kPresetNames, preset, &PresetName::name);
  if (known == std::end(kPresetNames)) return std::nullopt;
  const StreamRates by_hand{number_in(message, "max_fps"), number_in(message, "bitrate")};
  return StreamQuality::Choice{known->preset, within_limits(by_hand)};
}

void QualityControl::choose(const ConsolePeer& console, std::uint32_t number,
                            const StreamQuality::Choice& choice) {
  const Session* session = sessions_.find(number);
  if (!session || session->console.get() != &console || !session->accepted()) return;
  AgentPeer& agent = *session->agent;
  if (agent.steering != number && agent.stream.leader() != 0) return;
  // The next tick would take the choice for one about the stream that has just ended.
  if (agent.stream.leader() == 0) agent.quality.end();
  agent.quality.choose(choice, Clock::now());
}

// The streams of machines that were in a session at the last tick end here.
void QualityControl::tick(const std::set<std::shared_ptr<AgentPeer>>& in_session, Clock::time_point now,
                          bool measured) {
  auto watched = in_session;
  watched.insert(watched_.begin(), watched_.end());
  for (const auto& agent : watched) {
    // What the machine has sent before its session does not count for the stream.
    if (!agent->quality.runs() || !watched_.contains(agent)) (void)agent->times.take_bytes();
    if (!agent->quality.runs()) continue;
    if (agent->stream.leader() == 0) {
      agent->quality.end();
      continue;
    }
    if (measured) adapt(*agent, now);
    watch(*agent, now);
  }
  watched_ = in_session;
}

void QualityControl::adapt(AgentPeer& agent, Clock::time_point now) {
  const StreamTimes::Passed passed = agent.times.take_bytes();
  LadderReport report{
      .now = now, .echo = echo_of(agent, now), .bytes = passed.pictures, .other_bytes = passed.others};
  sessions_.each_viewer(agent, 0, [&](const Session& viewer) {
    const PictureWay* way = measures_.of(viewer.number);
    report.viewers.push_back({.steers = agent.steering == viewer.number,
                              .pictures = way ? way->ages : AgeMeter::Summary{},
                              .dropped = way ? way->dropped : 0});
  });
  if (const auto rates = agent.quality.report(std::move(report))) restart(agent, *rates, "measured");
}

void QualityControl::watch(AgentPeer& agent, Clock::time_point now) {
  const bool late = agent.paused || agent.heartbeats.queue(now) > kLongQueue;
  switch (agent.quality.watch(now, late)) {
    case StillPicture::Action::None:
      break;
    case StillPicture::Action::RequestKeyFrame:
      if (agent.stream.need_key_frame(now))
        agent.channel->send_binary(json_envelope(Msg::KeyframeRequest, agent.stream.leader(), "{}"));
      break;
    case StillPicture::Action::StartAgain:
      if (const auto rates = agent.quality.asked()) restart(agent, *rates, "the picture stood still");
      break;
  }
}

void QualityControl::restart(AgentPeer& agent, const StreamRates& rates, const char* why) {
  log_.write(agent.address, agent.id,
             "the stream starts again (" + std::string(why) + "): " + std::to_string(rates.fps) +
                 " pictures and " + std::to_string(rates.bitrate) + " bits a second");
  agent.stream.set_rates(rates.fps, rates.bitrate);
  Sessions::send_orders(agent, agent.stream.restart());
  sessions_.report_stream(agent.stream.leader());
}

}  // namespace vlk::relay
