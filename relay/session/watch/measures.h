// Measures the way of the pictures in each running session, and reports it to the browser, the API and the
// log.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>

#include <nlohmann/json_fwd.hpp>

#include "relay/base/limits.h"
#include "relay/base/log.h"
#include "relay/session/table/sessions.h"
#include "relay/stream/times/stage_meter.h"

namespace vlk::relay {

// What is known about the pictures of a session in the last second.
struct PictureWay {
  std::optional<Stages> stages{};  // if pictures were shown
  AgeMeter::Summary ages{};
  std::uint32_t dropped = 0;  // pictures that the browser reads too slowly for
  // How long the pictures wait in the machine at present, or would wait if the machine sent some.
  std::chrono::milliseconds queue{};
  bool file = false;  // the machine sends a file
  StillPicture::State still = StillPicture::State::Follows;
  std::optional<Preset> preset{};      // if somebody has chosen one
  std::optional<StreamRates> asked{};  // what the machine is asked for
};

// The members of a report, in milliseconds.
[[nodiscard]] nlohmann::json way_json(const PictureWay& way);

// Used on the relay's one thread.
class Measures {
 public:
  // The arguments outlive this object.
  Measures(const Sessions& sessions, const Log& log, const Limits& limits)
      : sessions_(sessions), log_(log), limits_(limits) {}

  // A browser reports which pictures of its session it has shown. A report about a session that it does not
  // have is ignored, and so are more than Limits::shown_reports in a second. Returns false if the report is
  // not valid.
  [[nodiscard]] bool shown(const ConsolePeer& console, std::uint32_t number, const nlohmann::json& report,
                           Clock::time_point now);
  // Returns true if it has measured.
  bool tick(Clock::time_point now);

  // What the last report about a session said, or null before the first.
  [[nodiscard]] const PictureWay* of(std::uint32_t number) const;

 private:
  struct Viewer {
    const ConsolePeer* console = nullptr;  // only compared
    StageMeter meter{};
    std::optional<PictureWay> way{};
    std::optional<Clock::time_point> seen{};    // the last time with shown pictures
    std::optional<Clock::time_point> logged{};  // nothing before the first pictures
    Clock::time_point second{};                 // in which the reports are counted
    std::size_t reports = 0;
  };

  [[nodiscard]] Viewer& viewer_of(const Session& session);
  void measure(const Session& session, Viewer& viewer, Clock::time_point now);
  void log(const Session& session, Viewer& viewer, Clock::time_point now);

  const Sessions& sessions_;
  const Log& log_;
  const Limits& limits_;
  std::map<std::uint32_t, Viewer> viewers_;  // by session number
  Clock::time_point measured_{};
};

}  // namespace vlk::relay
