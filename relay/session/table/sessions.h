// The sessions of representatives with machines. A session is requested, may be accepted, and ends.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "relay/base/counting/rate_counter.h"
#include "relay/base/limits.h"
#include "relay/base/log.h"
#include "relay/base/threads/thread_checker.h"
#include "relay/people/logins.h"
#include "relay/people/people.h"
#include "relay/session/browsers.h"
#include "relay/session/files/downloads.h"
#include "relay/session/files/transfers.h"
#include "relay/session/files/upload_counts.h"
#include "relay/session/machines.h"
#include "relay/session/peers.h"
#include "relay/session/table/pressed_input.h"
#include "relay/session/table/questions.h"
#include "relay/session/table/session_states.h"
#include "relay/session/trail/audit_trail.h"
#include "relay/session/trail/clip_notes.h"
#include "relay/storage/machines/open_sessions.h"

namespace vlk::relay {

// Carries out each transition: sends messages to the browser and the machine, and writes a row to the audit
// trail. A session ends when one of its rows cannot be written. Used on the relay's one thread.
//
// A session belongs to a log-in and a machine. When its browser disconnects, the session is held for a time,
// in which any browser with the same log-in can resume it; the machine does not learn of this.
class Sessions {
 public:
  // The arguments outlive this object. The first session gets the number after `start`.
  Sessions(const People& people, const Logins& logins, Machines& machines, Browsers& browsers,
           Transfers& transfers, Downloads& downloads, UploadCounts& uploads, PressedInput& pressed,
           AuditTrail& audit, ClipNotes& clips, const Log& log, const Limits& limits, std::uint32_t start);

  // Takes over the questions of an earlier run, whose boxes may still stand on the machines' screens.
  void restore_questions(const std::vector<OpenQuestion>& questions);
  // Sets the name that rows of the trail have, if several relays share the database.
  void set_relay(const std::string& name) { relay_ = name; }
  // Requests a session from the machine. If the relay refuses, for instance because the machine is offline,
  // the browser receives an error message. `reason` is what the representative typed, or empty. A session
  // that this log-in has with the machine and whose browser is away is resumed instead.
  void open(const std::shared_ptr<ConsolePeer>& console, const std::string& agent_id,
            const std::string& reason = {});
  // Gives a session of the browser's log-in to this browser, also if another browser has it. If there is no
  // such session, the browser is informed of the session's end.
  void resume(const std::shared_ptr<ConsolePeer>& console, std::uint32_t number);
  // Keeps what the console has chosen in its session, a JSON object, for the browser that resumes it.
  void keep_choices(ConsolePeer& console, std::uint32_t number, std::string choices);
  // Holds the sessions of a browser that disconnected.
  void hold_all_of(const ConsolePeer& peer, Clock::time_point now);
  // Ends a session of this browser, or one that is held for its log-in. If there is no such session, the
  // browser receives an error message.
  void close(ConsolePeer& console, std::uint32_t number);
  // Closes the connection of the machine in an accepted session of this browser, which ends the session. A
  // machine cannot be asked to stop what it sends, for instance a download. If the relay refuses, the browser
  // receives an error message.
  void cut(ConsolePeer& console, std::uint32_t number);
  // Ends anybody's session, as an administrator may. Returns false if there is no such session.
  bool end_for_administrator(std::uint32_t number, const std::string& administrator);
  // Gives each session the rights that its representative has now. A session without the right to see ends;
  // transfers without their right are cut; the browser is informed. To be called after each change of people,
  // rights, and machines' groups.
  void refresh_rights();
  // Several sessions can be with one machine. One of them steers; the others only watch and move files. The
  // representative asks for the steering, and gets it at once if nobody can use it at present.
  void ask_to_steer(ConsolePeer& console, std::uint32_t number);
  // The session that steers hands the steering over to session `to`, or refuses it to that one.
  void hand_over(ConsolePeer& console, std::uint32_t number, std::uint32_t to);
  void refuse_steering(ConsolePeer& console, std::uint32_t number, std::uint32_t to);
  // Takes the steering from whoever has it, as an administrator may.
  void take_over(ConsolePeer& console, std::uint32_t number);
  // The session watches the stream that another one leads.
  void watch(std::uint32_t number);
  // Informs the browsers about a stream whose choices have changed.
  void report_stream(std::uint32_t number);
  static void send_orders(AgentPeer& agent, const SharedStream::Orders& orders);
  // Calls `act` with each session that is to get a picture of the machine's stream. `named` is the session
  // that the picture carries, which gets it even if no stream was requested.
  template <class Act>
  void each_viewer(const AgentPeer& peer, std::uint32_t named, Act act) const {
    const auto show = [&](std::uint32_t number) {
      const auto found = sessions_.find(number);
      if (found != sessions_.end() && found->second.accepted()) act(found->second);
    };
    for (const std::uint32_t number : peer.stream.watching())
      show(number);
    if (named != 0 && !peer.stream.watched_by(named)) show(named);
  }

  // Carry out the machine's answer to the request for a session.
  void accept(AgentPeer& peer, std::uint32_t number);
  void reject(AgentPeer& peer, std::uint32_t number);

  // Counts bytes of the session's uploads that were written to its machine or dropped, and informs the
  // browser.
  void upload_passed(std::uint32_t number, std::uint64_t bytes);
  // The machine of this session is read again, after a wait for the disk.
  void resume_reading(std::uint32_t number);
  // Ends a download that the relay cannot keep, for the reason with this code.
  void lose_download(std::uint32_t number, std::uint32_t download, const char* code);
  // Continues a transfer for the browser that has resumed its session: a download after so many bytes.
  void continue_transfer(ConsolePeer& console, std::uint32_t number, std::uint32_t transfer,
                         std::uint64_t bytes);

  // End all sessions of a machine or of a log-in. A machine that stays connected is informed.
  void end_all_of(const AgentPeer& peer, const std::string& reason, bool stays_connected = false);
  void end_all_of(const Bytes& login, const std::string& reason);
  // Ends the requests that nobody answered in time and the sessions that were held for too long, and stops
  // streams that nobody has seen for a while.
  void tick(Clock::time_point now);
  // Ends every session.
  void end_all(const std::string& reason);

  // The session with this number, or null.
  [[nodiscard]] const Session* find(std::uint32_t number) const;
  [[nodiscard]] const std::map<std::uint32_t, Session>& all() const { return sessions_; }
  // The relay's last measurement of the round trip to the machine of this browser's accepted session, in ms.
  [[nodiscard]] std::optional<std::int64_t> round_trip(const ConsolePeer& console) const;

 private:
  enum class Tell { BrowserOnly, MachineToo };
  void end(std::uint32_t number, SessionEvent event, const std::string& reason, Tell tell);
  void end_transfers(const Session& session, Tell tell);
  // The session's transfers that have not ended, for the browser that resumes it.
  [[nodiscard]] nlohmann::json list_transfers(Session& session);
  // Takes what is still queued of an open upload away from the machine.
  void discard(const Session& session, std::uint32_t upload);
  void set_rights(Session& session, Rights rights);
  // Brings what depends on the other sessions of the machine up to date: who steers, the rights, what the
  // browsers and the list show. To be called after each change of the machine's sessions.
  void settle(const std::shared_ptr<AgentPeer>& agent);
  // Sets the rights of a session whose browser gets a message with them next.
  void update_rights(Session& session);
  void set_steering(AgentPeer& agent, std::uint32_t number);
  // The same at the request of this browser, which receives an error message if its representative has
  // changed the steering of the machine too often.
  void change_steering(ConsolePeer& console, AgentPeer& agent, std::uint32_t number);
  void choose_steering(AgentPeer& agent, const std::vector<Session*>& viewers);
  void report_eyes(AgentPeer& agent, const std::vector<Session*>& viewers);
  static void tell_viewers(const AgentPeer& agent, const std::vector<Session*>& viewers);
  // The running sessions of the machine, the oldest first.
  [[nodiscard]] std::vector<Session*> viewers_of(const AgentPeer& agent);
  [[nodiscard]] bool wants_four_eyes(const AgentPeer& agent) const;
  [[nodiscard]] Rights rights_in_effect(const Session& session, bool four_eyes_missing) const;
  [[nodiscard]] Session* running_session_of(ConsolePeer& console, std::uint32_t number);
  void cut_transfers(const Session& session, bool uploads, bool downloads);
  void tell_browser(const Session& session, const std::string& state, nlohmann::json fields);
  void tell_browser(const Session& session, const std::string& state);
  // Releases the keys and buttons that the session has pressed on its machine.
  void release_input(const Session& session);
  // Takes the session away from the browser that has it.
  void leave_browser(const Session& session);
  void report_end(ConsolePeer& console, std::uint32_t number);
  // Sends the browser the settings of the stream, if they are known, and the pictures that it needs in order
  // to show the present one.
  static void show_recent(const Session& session);
  static void stop_stream(Session& session);
  // Whether a browser is there that watches the machine's stream.
  [[nodiscard]] bool is_seen(const AgentPeer& agent) const;
  // The machine was sent a message that ends its stream, for this session: starts it again for the others.
  static void continue_stream(AgentPeer& agent, std::uint32_t ended);
  [[nodiscard]] Rights rights_on(const ConsolePeer& console, const std::string& agent_id) const;
  // Why the representative may not open a session in the group at once: the code of the error, or empty.
  [[nodiscard]] std::string missing_for(const ConsolePeer& console, GroupId group,
                                        const std::string& reason) const;
  void note_answer(const AgentPeer& peer, std::uint32_t number, bool accepted);
  // Why the machine may not be asked now: the code of the error, or empty.
  [[nodiscard]] std::string not_to_be_asked(const std::string& agent_id);
  [[nodiscard]] static bool apply(Session& session, SessionEvent event);
  [[nodiscard]] Session* find_of(const AgentPeer& peer, std::uint32_t number);
  // The person's session with the machine, or null.
  [[nodiscard]] Session* session_with(const std::string& agent_id, PersonId person);
  // Whether the representative may have a session with the machine now. If not, sends the browser the reason.
  [[nodiscard]] bool admit(ConsolePeer& console, const std::string& agent_id, const std::string& reason);
  [[nodiscard]] bool has_room(const ConsolePeer& console) const;
  template <class Condition>
  [[nodiscard]] std::vector<std::uint32_t> numbers_where(Condition condition) const {
    std::vector<std::uint32_t> numbers;
    for (const auto& [number, session] : sessions_) {
      if (condition(session)) numbers.push_back(number);
    }
    return numbers;
  }
  [[nodiscard]] std::uint32_t new_number();

  const ThreadChecker thread_;
  const People& people_;
  const Logins& logins_;
  Machines& machines_;
  Browsers& browsers_;
  Transfers& transfers_;
  Downloads& downloads_;
  UploadCounts& uploads_;
  PressedInput& pressed_;
  AuditTrail& audit_;
  ClipNotes& clips_;
  const Log& log_;
  const Limits& limits_;
  std::map<std::uint32_t, Session> sessions_;  // by session number
  std::optional<std::string> relay_;           // this relay's name, if several share the database
  std::uint32_t last_number_;
  RateCounter cuts_;                 // by the machine's id
  RateCounter resumes_;              // by the machine's id
  RateCounter changes_of_steering_;  // by the machine's id and the person who asks
  Questions questions_;
  // The last sessions that ended, the latest at the end, for browsers that were away.
  struct Ending {
    std::uint32_t number = 0;
    Bytes login;
    std::string agent;
    std::string reason;
  };
  static constexpr std::size_t kEndings = 1024;
  std::deque<Ending> endings_;
};

}  // namespace vlk::relay
