// People who make any requests to the relay's HTTP API in any order, and the checks after each request.
#pragma once

#include <optional>
#include <string>

#include "input.h"
#include "relay/http/routes.h"
#include "relay/storage/trail/key.h"
#include "relay/storage/trail/reader.h"
#include "world/world.h"

namespace vlk::relay::fuzz {

using vlk::fuzz::Input;

// After each request: it was answered; what its sender may not do has changed nothing; a change has a row in
// the trail; what is in memory is what is stored.
class ApiScript {
 public:
  explicit ApiScript(Input& input);

  void run();

 private:
  struct Answer {
    unsigned status = 0;
    std::string text;
  };
  // What is stored, as text. Log-ins are left out.
  struct State {
    std::string own;     // passwords and second factors of people
    std::string common;  // everything else
    std::int64_t rows = 0;
  };

  [[nodiscard]] Request next_request();
  void fill(Request& request);
  [[nodiscard]] Json next_body();
  [[nodiscard]] Json next_value();
  [[nodiscard]] Answer answer(const Request& request);
  [[nodiscard]] boost::asio::awaitable<Answer> answer_to(const Request& request);
  [[nodiscard]] State stored();
  void check(const Request& request, const Answer& answer, const std::optional<Caller>& caller,
             const State& before);
  void check_memory(const State& after);
  void add_logins();

  World world_;
  Input& input_;
  Updates updates_{{world_.folder() + "/updates", {}}, world_.io().get_executor(), world_.log()};
  const TrailKey key_ = TrailKey::load_or_make(world_.folder());
  TrailReader reader_{world_.file(), key_};
  HttpApi api_{world_.parts(), world_.admission(), updates_, reader_, world_.log(), world_.limits()};
};

}  // namespace vlk::relay::fuzz
