// The console's JSON requests: each path and method, who may use it, and its handler.
#pragma once

#include <span>
#include <string>
#include <string_view>

#include "relay/http/api/api.h"

namespace vlk::relay {

// Sets of stages and roles. An endpoint without stages needs no log-in.
enum StageBit : unsigned { kPasswordStage = 1, kTotpStage = 2, kTotpSetupStage = 4, kFullStage = 8 };
enum RoleBit : unsigned { kAdministrators = 1, kRepresentatives = 2, kAuditors = 4 };
inline constexpr unsigned kNobodyYet = 0;
inline constexpr unsigned kEachStage = kPasswordStage | kTotpStage | kTotpSetupStage | kFullStage;
inline constexpr unsigned kEveryone = kAdministrators | kRepresentatives | kAuditors;

using ApiHandler = JsonReply (*)(Api&, Call&);

struct Endpoint {
  boost::beast::http::verb method{};
  std::string_view path{};  // {} stands for one part of the path
  unsigned stages = 0;
  unsigned roles = 0;
  ApiHandler handler = nullptr;
};

[[nodiscard]] std::span<const Endpoint> endpoints();

[[nodiscard]] constexpr unsigned bit_of(LoginStage stage) {
  switch (stage) {
    case LoginStage::Password:
      return kPasswordStage;
    case LoginStage::Totp:
      return kTotpStage;
    case LoginStage::TotpSetup:
      return kTotpSetupStage;
    case LoginStage::Full:
      return kFullStage;
  }
  return 0;
}

[[nodiscard]] constexpr unsigned bit_of(Role role) {
  switch (role) {
    case Role::Administrator:
      return kAdministrators;
    case Role::Representative:
      return kRepresentatives;
    case Role::Auditor:
      return kAuditors;
  }
  return 0;
}

// The endpoint of a request; null if there is none. Puts the part that stands for {} into `key`.
[[nodiscard]] const Endpoint* find_endpoint(boost::beast::http::verb method, std::string_view path,
                                            std::string& key);

}  // namespace vlk::relay
