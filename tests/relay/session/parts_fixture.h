// The parts of the relay without a network: tests act for the connections and read the peers' channels.
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

  // Connections: one of an agent that has not logged in, one of an enrolled machine, one of a browser.
  Agent connect();
  Agent log_in(const std::string& id);
  Console browse(const std::string& representative);

  // A session of the browser with the machine: its number.
  std::uint32_t ask(const Console& console, const Agent& agent);
  std::uint32_t accepted(const Console& console, const Agent& agent);

  // What the channel was asked to send since the last call: JSON text, or "TYPE/SESSION PAYLOAD" for an
  // envelope.
  static Lines sent(Channel& channel);
  // The same without lists of machines.
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

// An envelope with a payload of text.
Bytes envelope_of(Msg type, std::uint32_t session, const std::string& payload = {});

}  // namespace vlk::relay
