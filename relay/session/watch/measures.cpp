// Collects what the machines, the queues and the browsers say about the pictures.
#include "relay/session/watch/measures.h"

#include <algorithm>
#include <cmath>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "relay/wire/envelope.h"

namespace vlk::relay {
namespace {

using std::chrono::duration_cast;
using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::seconds;

// A page's clock counts from its loading; this is three hundred years.
constexpr double kLatestMs = 1e13;
constexpr double kLongestMs = 600'000;
// A still screen is sent once a second.
constexpr seconds kStagesCount{5};

std::optional<microseconds> time_in(const nlohmann::json& value, double most) {
  if (!value.is_number()) return std::nullopt;
  const auto ms = value.get<double>();
  if (!(ms >= 0 && ms <= most)) return std::nullopt;
  return microseconds(std::llround(1000 * ms));
}

std::optional<ShownPicture> picture_in(const nlohmann::json& entry) {
  if (!entry.is_array() || entry.size() != 4 || !entry[0].is_number_unsigned()) return std::nullopt;
  const auto since = time_in(entry[1], kLongestMs);
  const auto decoder = time_in(entry[2], kLongestMs);
  const auto screen = time_in(entry[3], kLongestMs);
  if (!since || !decoder || !screen) return std::nullopt;
  return ShownPicture{entry[0].get<std::uint64_t>(), *since, *decoder, *screen};
}

// In milliseconds with one decimal.
double rounded(microseconds time) {
  return std::round(static_cast<double>(time.count()) / 100) / 10;
}

const char* still_name(StillPicture::State state) {
  switch (state) {
    case StillPicture::State::Still:
      return "still";
    case StillPicture::State::StartedAgain:
      return "started-again";
    case StillPicture::State::Unchanged:
      return "unchanged";
    case StillPicture::State::Silent:
      return "silent";
    case StillPicture::State::Follows:
      break;
  }
  return "follows";
}

std::string whole_ms(microseconds time) {
  return std::to_string(std::chrono::round<milliseconds>(time).count());
}

}  // namespace

nlohmann::json way_json(const PictureWay& way) {
  nlohmann::json json = {{"stages", nullptr},
                         {"pictures", way.ages.shown},
                         {"dropped", way.dropped},
                         {"added_median", way.ages.median.count()},
                         {"added_worst", way.ages.worst.count()},
                         {"queue", way.queue.count()},
                         {"file", way.file},
                         {"still", still_name(way.still)},
                         {"preset", nullptr},
                         {"asked", nullptr}};
  if (way.preset) json["preset"] = preset_name(*way.preset);
  if (way.asked) json["asked"] = {{"max_fps", way.asked->fps}, {"bitrate", way.asked->bitrate}};
  if (way.stages) {
    json["stages"] = {
        {"machine", rounded(way.stages->machine)}, {"to_relay", rounded(way.stages->to_relay)},
        {"relay", rounded(way.stages->relay)},     {"to_browser", rounded(way.stages->to_browser)},
        {"decoder", rounded(way.stages->decoder)}, {"screen", rounded(way.stages->screen)}};
  }
  return json;
}

// A browser that has taken the session over has another clock and another line.
Measures::Viewer& Measures::viewer_of(const Session& session) {
  Viewer& viewer = viewers_[session.number];
  if (viewer.console != session.console.get()) viewer = {.console = session.console.get()};
  return viewer;
}

bool Measures::shown(const ConsolePeer& console, std::uint32_t number, const nlohmann::json& report,
                     Clock::time_point now) {
  const auto at = report.contains("at") ? time_in(report["at"], kLatestMs) : std::nullopt;
  const auto list = report.find("pictures");
  if (!at || list == report.end() || !list->is_array() || list->size() > limits_.shown_pictures) return false;
  std::vector<ShownPicture> pictures;
  for (const nlohmann::json& entry : *list) {
    const auto picture = picture_in(entry);
    if (!picture) return false;
    pictures.push_back(*picture);
  }
  const Session* session = sessions_.find(number);
  if (!session || session->console.get() != &console || !session->accepted()) return true;
  Viewer& viewer = viewer_of(*session);
  if (now - viewer.second >= seconds(1)) {
    viewer.second = now;
    viewer.reports = 0;
  }
  if (viewer.reports == limits_.shown_reports) return true;
  ++viewer.reports;
  viewer.meter.shown(now, *at, pictures, session->agent->times);
  return true;
}

bool Measures::tick(Clock::time_point now) {
  if (now - measured_ < limits_.stages) return false;
  measured_ = now;
  std::erase_if(viewers_, [&](const auto& entry) { return !sessions_.find(entry.first); });
  for (const auto& [number, session] : sessions_.all()) {
    if (session.accepted() && viewers_.contains(number)) measure(session, viewer_of(session), now);
  }
  return true;
}

void Measures::measure(const Session& session, Viewer& viewer, Clock::time_point now) {
  AgentPeer& agent = *session.agent;
  const PictureTally tally = session.console->channel->take_tally(session.number);
  const auto relay =
      tally.written == 0 ? microseconds(0) : duration_cast<microseconds>(tally.waited / tally.written);
  const StageMeter::Summary summary = viewer.meter.take(agent.heartbeats.line() / 2, relay);
  if (summary.stages) viewer.seen = now;
  const bool recent = viewer.seen && now - *viewer.seen < kStagesCount;
  std::optional<Stages> stages = summary.stages;
  if (!stages && recent && viewer.way) stages = viewer.way->stages;
  // Pictures show the queue at once. A heartbeat shows it when no pictures arrive.
  const auto waited = agent.times.waited(now);
  viewer.way = {.stages = stages,
                .ages = summary.ages,
                .dropped = tally.dropped,
                .queue = waited ? duration_cast<milliseconds>(*waited) : agent.heartbeats.queue(now),
                .file = agent.times.sends_file(now),
                .still = agent.quality.state(),
                .preset = agent.quality.preset(),
                .asked = agent.quality.asked()};
  nlohmann::json message = way_json(*viewer.way);
  message["type"] = "stages";
  message["session"] = session.number;
  session.console->channel->send_text(dump(message), session.number);
  log(session, viewer, now);
}

void Measures::log(const Session& session, Viewer& viewer, Clock::time_point now) {
  const auto& stages = viewer.way->stages;
  if (!stages || (viewer.logged && now - *viewer.logged < limits_.stages_log)) return;
  viewer.logged = now;
  log_.write(session.console->address, session.agent->id,
             "session " + std::to_string(session.number) + ": pictures are shown " +
                 whole_ms(stages->total()) + " ms after their capture: machine " + whole_ms(stages->machine) +
                 ", line to the relay " + whole_ms(stages->to_relay) + ", relay " + whole_ms(stages->relay) +
                 ", line to the browser " + whole_ms(stages->to_browser) + ", decoder " +
                 whole_ms(stages->decoder) + ", screen " + whole_ms(stages->screen));
}

const PictureWay* Measures::of(std::uint32_t number) const {
  const auto found = viewers_.find(number);
  return found == viewers_.end() || !found->second.way ? nullptr : &*found->second.way;
}

}  // namespace vlk::relay
