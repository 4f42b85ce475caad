// What a check of the set-up has found.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace vlk::relay {

struct Finding {
  enum class Level {
    Ok,
    Warning,  // works now, and an operator should look at it
    Wrong     // the relay would not start, or agents, browsers or people would meet an error
  };
  Level level = Level::Ok;
  std::string text;  // what was found, and unless that is well, what to do
};

class Findings {
 public:
  void ok(std::string text) { list_.push_back({Finding::Level::Ok, std::move(text)}); }
  void warning(std::string text) { list_.push_back({Finding::Level::Warning, std::move(text)}); }
  void wrong(std::string text) { list_.push_back({Finding::Level::Wrong, std::move(text)}); }

  [[nodiscard]] const std::vector<Finding>& list() const { return list_; }

 private:
  std::vector<Finding> list_;
};

}  // namespace vlk::relay
