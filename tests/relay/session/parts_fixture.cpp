// Connections without sockets, and what was sent to them.
#include "relay/session/parts_fixture.h"

#include "relay/base/secrets.h"
#include "relay/net/queue/piece_text.h"
#include "relay/wire/envelope.h"

namespace vlk::relay {
namespace {

std::string line_of(const Channel::Piece& piece) {
  const std::string text = text_of(piece);
  if (piece.text) return text;
  const Bytes bytes(text.begin(), text.end());
  const auto header = read_header(bytes);
  if (!header) return "not an envelope";
  return std::to_string(static_cast<int>(header->type)) + "/" + std::to_string(header->session) + " " +
         std::string(bytes.begin() + kEnvelopeHeaderSize, bytes.end());
}

}  // namespace

PartsTest::PartsTest() : log_([this](std::string_view line) { log_text_.append(line).append("\n"); }) {
  start_sodium();
  restart();
}

PartsTest::Agent PartsTest::connect() {
  const auto peer = std::make_shared<AgentPeer>();
  peer->channel = std::make_shared<Channel>(io_.get_executor(), limits_.queue_bytes);
  peer->address = "10.0.0.1:1000";
  parts_->machines.add_connection(peer);
  return peer;
}

PartsTest::Agent PartsTest::log_in(const std::string& id) {
  const MachineRecord record{id, "name of " + id, "machine", "windows", "hw", 1};
  if (!parts_->machines.find(id)) {
    database_.run_and_wait([&](Store& store) { add_machine(store.database(), record); });
    parts_->machines.add(record);
  }
  const auto peer = connect();
  (void)parts_->machines.log_in(peer, id);
  return peer;
}

PersonId PartsTest::person(const std::string& name, Role role) {
  People::Contents all = parts_->people.all();
  PersonId id = 0;
  if (const Person* known = parts_->people.person_named(name)) id = known->id;
  std::erase_if(all.people, [&](const Person& person) { return person.name == name; });
  if (id == 0) id = static_cast<PersonId>(all.people.size()) + 1;
  Person person;
  person.id = id;
  person.name = name;
  person.role = role;
  all.people.push_back(person);
  parts_->people.replace(std::move(all));
  return id;
}

void PartsTest::give_rights(PersonId person, Rights rights) {
  People::Contents all = parts_->people.all();
  std::erase_if(all.rights, [&](const RightRow& row) { return row.person == person; });
  all.rights.push_back({kFirstGroup, person, std::nullopt, rights});
  parts_->people.replace(std::move(all));
}

PartsTest::Console PartsTest::browse(const std::string& representative) {
  const auto peer = std::make_shared<ConsolePeer>();
  peer->channel = std::make_shared<Channel>(io_.get_executor(), limits_.queue_bytes);
  peer->address = "10.0.0.2:2000";
  peer->representative = representative;
  const Person* known = parts_->people.person_named(representative);
  peer->person = known ? known->id : person(representative, Role::Administrator);
  peer->login = Bytes(representative.begin(), representative.end());
  parts_->browsers.add(peer);
  return peer;
}

std::uint32_t PartsTest::ask(const Console& console, const Agent& agent) {
  (void)sent(*console->channel);
  parts_->sessions.open(console, agent->id, "");
  const Lines answer = sent(*console->channel);
  EXPECT_EQ(answer.size(), 1u);
  return answer.empty() ? 0 : Json::parse(answer.front()).value("session", 0u);
}

std::uint32_t PartsTest::accepted(const Console& console, const Agent& agent) {
  const std::uint32_t number = ask(console, agent);
  parts_->sessions.accept(*agent, number);
  (void)sent(*console->channel);
  (void)sent(*agent->channel);
  return number;
}

Lines PartsTest::sent(Channel& channel) {
  Lines lines;
  while (const auto piece = channel.take()) {
    lines.push_back(line_of(*piece));
    channel.written(*piece);
  }
  channel.finished_work();
  return lines;
}

Lines PartsTest::sent_but_lists(Channel& channel) {
  Lines lines = sent(channel);
  std::erase_if(lines, [](const std::string& line) {
    return line.find("\"type\":\"agents") != line.npos || line.find("\"type\":\"viewers") != line.npos;
  });
  return lines;
}

void PartsTest::settle() {
  database_.drain();
  spools_.drain();
  io_.restart();
  io_.poll();
}

void PartsTest::restart() {
  settle();
  parts_.reset();
  parts_ = std::make_unique<Parts>(database_, spools_, log_, limits_);
}

std::vector<MachineRecord> PartsTest::stored_machines() {
  settle();
  Database database(file_);
  return load_machines(database);
}

Lines PartsTest::audited() {
  settle();
  Database database(file_);
  Statement rows(database, "SELECT code || coalesce('/' || session, ''), fields FROM trail ORDER BY id");
  Lines lines;
  while (rows.step())
    lines.push_back(rows.text(0) + " " + rows.text(1));
  return lines;
}

void PartsTest::break_audit_trail() {
  Database(file_).execute("DROP TABLE trail");
}

Bytes envelope_of(Msg type, std::uint32_t session, const std::string& payload) {
  return encode_envelope(type, session, reinterpret_cast<const unsigned char*>(payload.data()),
                         payload.size(), 0);
}

}  // namespace vlk::relay
