// A fixture with the relay's session parts and no network. Tests call the parts as connections would, and
// read the peers' channels.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include <boost/asio/io_context.hpp>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "relay/session/parts.h"
#include "support/temp_folder.h"

namespace vlk::relay {

using Json = nlohmann::json;
using Lines = std::vector<std::string>;

class PartsTest : public testing::Test {
 protected:
  using Agent = std::shared_ptr<AgentPeer>;
  using Console = std::shared_ptr<ConsolePeer>;

  PartsTest();

  // Add a connection: of an agent that has not logged in, of an enrolled machine `id`, or of a browser.
  Agent connect();
  Agent log_in(const std::string& id);
  Console browse(const std::string& representative);

  // Request a session of the browser with the machine and return its number. accepted() also accepts it.
  std::uint32_t ask(const Console& console, const Agent& agent);
  std::uint32_t accepted(const Console& console, const Agent& agent);

  // Takes the channel's queued messages: each as JSON text or, for an envelope, as "TYPE/SESSION PAYLOAD".
  static Lines sent(Channel& channel);
  // The same as sent(), without the messages with lists of machines.
  static Lines sent_but_lists(Channel& channel);
  // The rows of the audit trail as "EVENT: DETAIL".
  Lines audited();
  bool logged(const std::string& text) const { return log_text_.find(text) != std::string::npos; }
  // Makes each further write to the audit trail fail.
  void break_audit_trail();

  vantelink_test::TempFolder folder_;
  const std::string file_ = (folder_.path() / "relay.db").string();
  std::string log_text_;
  const Log log_;
  Limits limits_;
  Store store_;
  boost::asio::io_context io_;
  std::unique_ptr<Parts> parts_;
};

// An envelope with the given payload.
Bytes envelope_of(Msg type, std::uint32_t session, const std::string& payload = {});

}  // namespace vlk::relay
