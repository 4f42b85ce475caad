// The connected peers and the sessions between them, as plain records that the parts of this folder share.
//
// A peer is owned by the coroutine that serves its connection. It has a Channel but no socket, so this folder
// can be tested without a network.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "relay/base/bytes.h"
#include "relay/base/clock.h"
#include "relay/net/channel.h"
#include "relay/net/queue/recent_pictures.h"
#include "relay/people/rights.h"
#include "relay/stream/shared_stream.h"
#include "relay/stream/stream_quality.h"
#include "relay/stream/times/heartbeats.h"
#include "relay/stream/times/stream_times.h"

namespace vlk::relay {

// The connection of an agent, logged in or not.
struct AgentPeer {
  std::shared_ptr<Channel> channel;
  std::string address;  // with port
  std::string id;       // empty until the log-in
  // The machine of whose connection the audit trail has a row; empty before. A connection can end between
  // this row and the log-in.
  std::string recorded;
  // The agent was refused and an error was sent. The connection stays open for a while to delay the next
  // attempt.
  bool refused = false;
  // The relay does not read from the agent, because a browser has not read the messages that were sent to it,
  // or because the disk has not stored the agent's downloads.
  bool paused = false;
  Clock::time_point since = Clock::now();  // the time of the refusal or, before the log-in, of the connection
  Clock::time_point logged_in{};
  Heartbeats heartbeats;
  StreamTimes times;
  SharedStream stream;
  StreamQuality quality;  // of the stream
  RecentPictures recent;  // of the stream
  // The session that has keyboard, mouse and clipboard and chooses what the stream shows; 0 if none has. Only
  // the class Sessions changes it.
  std::uint32_t steering = 0;
  Clock::time_point dropped_input_reported{};  // to the browser of the session that steers
  bool eyes_missing = false;  // a second person is needed before anybody may do more than see
};

struct MachineRecord;

// Which machines a browser's list shows. Browsers whose views have equal keys get the same text.
struct MachineView {
  std::string key;
  // False if the view does not show the machine. Otherwise the function may put further members of the
  // machine's JSON object into `fields`, such as `"rights":[]`.
  std::function<bool(const MachineRecord&, std::string& fields)> shows;
  // The browser is told how many machines wait for approval.
  bool counts_waiting = false;
};

// The connection of a representative's browser.
struct ConsolePeer {
  std::shared_ptr<Channel> channel;
  std::string address;  // with port
  std::string representative;
  std::int64_t person = 0;  // the id of the representative
  Bytes login;              // hash of the log-in's token
  // The relay does not read from the browser, because a machine or the browser itself has not read the
  // messages that were sent to it.
  bool paused = false;
  // What the list of machines shows; null means every machine. Only the class Browsers changes these two
  // after the browser was added.
  std::shared_ptr<const MachineView> view;
  // Changes of the list were not sent, because the browser reads slowly. It gets the whole list instead.
  bool list_missed = false;
};

// Held: the machine has accepted, and the browser is away. A browser can also be away while the machine is
// asked.
enum class SessionState { Asked, Accepted, Held, Ended };

// A representative's session with a machine. Only the class Sessions changes it.
struct Session {
  std::uint32_t number = 0;
  std::shared_ptr<AgentPeer> agent;
  std::shared_ptr<ConsolePeer> console;  // while the browser is away: the one that was last there, never null
  SessionState state = SessionState::Asked;
  std::string reason{};        // the reason that the representative gave, or empty
  Rights granted = kNoRights;  // of the representative on this machine, at present
  // The rights that have an effect: a session that does not steer has no control, and a session alone only
  // sees a machine that asks for four eyes.
  Rights rights = kNoRights;
  Clock::time_point asked = Clock::now();
  std::optional<Clock::time_point> away{};  // since when the browser is away
  bool stream_stopped = false;              // while the browser is away: the relay has stopped the stream
  bool asks = false;                        // the representative asks for the steering
  Clock::time_point asks_since{};           // the time of that request
  Clock::time_point ask_again{};            // a request before this time has no effect, after a refusal
  std::string viewers{};                    // the last message about the viewers that the browser received
  // The choices that the console made for this session, such as the monitor, as it sent them: a JSON object,
  // or empty.
  std::string choices{};
  // The downloads that ended while the browser was away, because the relay could not keep them, with a code.
  std::map<std::uint32_t, std::string> lost_downloads{};

  // Messages pass in both directions.
  [[nodiscard]] bool accepted() const { return state == SessionState::Accepted; }
  // The machine has accepted the session, whether its browser is there or not.
  [[nodiscard]] bool running() const { return accepted() || state == SessionState::Held; }
};

}  // namespace vlk::relay
