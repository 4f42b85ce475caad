// The enrolment or log-in of an agent's connection.
#pragma once

#include <memory>
#include <string>

#include <boost/asio/awaitable.hpp>
#include <nlohmann/json_fwd.hpp>

#include "relay/links/agent_link.h"
#include "relay/wire/envelope.h"

namespace vlk::relay {

// Belongs to one connection. Used on the relay's one thread.
class AgentLogin {
 public:
  // `context` and `place` outlive this object.
  AgentLogin(AgentContext& context, std::shared_ptr<AgentPeer> peer, Connections::Place& place)
      : context_(context),
        parts_(context.parts),
        channel_(*peer->channel),
        peer_(std::move(peer)),
        place_(place),
        source_(place.source()) {}

  // Handles a message of an agent that has not logged in. Returns true if the agent has logged in by it; the
  // database has stored the enrolment or log-in then. A refused agent gets an error.
  [[nodiscard]] boost::asio::awaitable<bool> handle(Msg type, const Bytes& message);

  // Counts the connection by the state of its machine, which an administrator can have approved since the
  // log-in. Closes the connection if there is no place.
  void update_standing();

 private:
  void refuse_enrolment(const char* why, const char* message);
  // The record of a machine that enrols now.
  [[nodiscard]] MachineRecord new_record(const nlohmann::json& fields, const std::string& secret,
                                         MachineState state) const;
  boost::asio::awaitable<void> enroll(const nlohmann::json& fields);
  boost::asio::awaitable<void> log_in(const nlohmann::json& fields);
  boost::asio::awaitable<void> find_new_machine(const std::string& id);
  [[nodiscard]] bool take_place(MachineState state);
  void go_online(const std::string& id);
  void refuse_order(const std::string& reason);
  void record_refusal(const std::string& id, std::string_view why);
  void refuse_state(const std::string& id, MachineState state);
  void refuse_log_in(const std::string& id, const char* why);
  void hold_back(const char* code, const char* message);
  void send_error(const char* code, const char* message);
  [[nodiscard]] TrailSubject subject_of(const std::string& id) const;
  [[nodiscard]] std::string accepted_name(const MachineRecord& known, std::string name);
  void log(const std::string& text) const;

  AgentContext& context_;
  Parts& parts_;
  Channel& channel_;  // the channel of peer_
  const std::shared_ptr<AgentPeer> peer_;
  Connections::Place& place_;
  const std::string source_;  // by which enrolments and refusals are counted
  bool greeted_ = false;
};

}  // namespace vlk::relay
