// Makes the stored state once, and copies it for each World.
#include "world/world.h"

#include <stdlib.h>

#include <cstring>
#include <stdexcept>

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <sodium.h>

#include "relay/base/secrets.h"
#include "relay/links/console_link.h"
#include "require.h"

namespace asio = boost::asio;
namespace fs = std::filesystem;

namespace vlk::relay::fuzz {
namespace {

// Random numbers that are the same for each input.
std::uint64_t random_state = 0;

std::uint32_t next_random() {
  random_state = random_state * 6364136223846793005u + 1442695040888963407u;
  return static_cast<std::uint32_t>(random_state >> 32);
}

void fill_random(void* buffer, std::size_t size) {
  auto* bytes = static_cast<unsigned char*>(buffer);
  for (std::size_t i = 0; i < size; ++i)
    bytes[i] = static_cast<unsigned char>(next_random());
}

const char* random_name() {
  return "sequence";
}

fs::path new_folder() {
  std::string name = (fs::temp_directory_path() / "vantelink-fuzz-XXXXXX").string();
  if (!::mkdtemp(name.data())) throw std::runtime_error("cannot make a temporary folder");
  return name;
}

void store_people(Database& database) {
  for (const auto& [name, role] :
       {std::pair(kAdministrator, Role::Administrator), std::pair(kRepresentative, Role::Representative),
        std::pair(kAuditor, Role::Auditor)}) {
    Person person;
    person.name = name;
    person.password = hash_password(kPassword);
    person.role = role;
    (void)add_person(database, person);
  }
  const auto representative = find_person(database, kRepresentative);
  replace_rights(database, kFirstGroup, {{kFirstGroup, representative->id, std::nullopt, kAllRights}});
}

// The folder with the stored state, made once and removed at the end of the process.
struct Template {
  Template() : folder(new_folder()) {
    static randombytes_implementation sequence{random_name, next_random, nullptr,
                                               nullptr,     fill_random, nullptr};
    randombytes_set_implementation(&sequence);
    start_sodium();
    Store store((folder / "relay.db").string());
    Transaction transaction(store.database());
    MachineRecord machine{kMachine, "machine", "PC", "windows", "hw", 1};
    machine.secret_hash = hash_secret(kMachineSecret);
    add_machine(store.database(), machine);
    machine.id = kWaitingMachine;
    machine.state = MachineState::Waiting;
    add_machine(store.database(), machine);
    store_people(store.database());
    transaction.commit();
  }
  ~Template() { fs::remove_all(folder); }
  Template(const Template&) = delete;
  Template& operator=(const Template&) = delete;

  const fs::path folder;
};

fs::path copy_of_template() {
  static const Template original;
  random_state = 1;
  fs::path folder = new_folder();
  fs::copy_file(original.folder / "relay.db", folder / "relay.db");
  return folder;
}

// Small limits, so that small inputs reach them.
Limits small_limits() {
  Limits limits;
  limits.unauthenticated_message = 600;
  limits.idle_message = 1000;
  limits.control_message = 400;
  limits.bulk_message = 100;
  limits.agent_message = 1200;
  limits.browser_message = 1200;
  limits.sessions_per_login = 2;
  return limits;
}

std::unique_ptr<Store> open_store(const std::string& file) {
  auto store = std::make_unique<Store>(file);
  store->database().execute("PRAGMA synchronous = OFF");  // the file does not outlive the process
  return store;
}

asio::awaitable<void> serve(AgentContext& context, std::shared_ptr<WebSocketLink> link,
                            std::unique_ptr<Connections::Place> place, std::shared_ptr<bool> served) {
  co_await serve_agent(context, link, *place);
  *served = true;
}

asio::awaitable<void> serve(Parts& parts, const Limits& limits, std::shared_ptr<WebSocketLink> link,
                            std::shared_ptr<ConsolePeer> peer, std::shared_ptr<bool> served) {
  co_await serve_console(parts, limits, link, peer);
  *served = true;
}

asio::awaitable<void> carry_out(MachineDecisions::Done decision) {
  try {
    co_await std::move(decision);
  } catch (const DecisionRefused&) {
  }
}

}  // namespace

World::World()
    : folder_(copy_of_template()),
      log_([this](std::string_view line) { log_text_.append(line).append("\n"); }),
      limits_(small_limits()),
      database_(std::make_unique<DatabaseThread>(open_store(file()), io_.get_executor())),
      spools_(folder_ / "spool", io_.get_executor(), {limits_.spool, limits_.spools}),
      parts_(std::make_unique<Parts>(*database_, spools_, log_, limits_)),
      admission_(std::make_unique<Admission>(*parts_, log_)),
      decisions_(*parts_, *admission_),
      enrolments_(limits_.enrolments_per_address, limits_.failure_window, limits_.counted_keys),
      refusals_(limits_.refusals_per_address, limits_.failure_window, limits_.counted_keys),
      renames_(limits_.renames_per_machine, limits_.failure_window, limits_.counted_keys),
      log_ins_(limits_.log_ins_per_machine, limits_.failure_window, limits_.counted_keys),
      agents_{*parts_, *admission_, log_, limits_, enrolments_, refusals_, renames_, log_ins_} {}

// An exception here is a finding, so it may end the process.
// NOLINTNEXTLINE(bugprone-exception-escape)
World::~World() {
  settle();
  admission_.reset();
  parts_.reset();
  database_.reset();
  fs::remove_all(folder_);
}

void World::Line::send(Bytes bytes, bool text) const {
  const std::size_t size = bytes.size();
  ends.inbox->give({.text = text, .size = size, .bytes = std::move(bytes)});
}

World::Line World::connect_agent() {
  Line line{make_scripted_link(io_.get_executor()), std::make_shared<bool>(false)};
  auto place = connections_.admit("192.0.2.1", "192.0.2.1:1000");
  REQUIRE(place);
  asio::co_spawn(io_, serve(agents_, line.ends.link, std::move(place), line.served), asio::detached);
  settle();
  return line;
}

World::Line World::connect_browser() {
  Line line{make_scripted_link(io_.get_executor()), std::make_shared<bool>(false)};
  const auto peer = std::make_shared<ConsolePeer>();
  peer->address = "192.0.2.2:2000";
  peer->representative = kRepresentative;
  peer->person = person(kRepresentative);
  peer->login = hash_secret("login");
  peer->view = parts_->view_of(peer->person);
  asio::co_spawn(io_, serve(*parts_, limits_, line.ends.link, peer, line.served), asio::detached);
  settle();
  return line;
}

void World::set_rights(Rights rights) {
  People::Contents all = parts_->people.all();
  all.rights = {{kFirstGroup, person(kRepresentative), std::nullopt, rights}};
  parts_->people.replace(std::move(all));
}

void World::decide(MachineDecisions::Done decision) {
  asio::co_spawn(io_, carry_out(std::move(decision)), asio::detached);
}

void World::settle() {
  do {
    database_->drain();
    spools_.drain();
    io_.restart();
  } while (io_.poll() > 0);
}

}  // namespace vlk::relay::fuzz
