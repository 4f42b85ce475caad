// Fetches the server's manifest and its installer. Both calls block, so each is made on a thread of its own.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "update/manifest.h"

namespace vlk::agent {

// Fetches and reads the server's manifest. Every failure is silent and counts as no offer.
[[nodiscard]] std::optional<UpdateOffer> check_for_update(const std::string& host, std::uint32_t port);

// Fetches the installer with the name `file`. Its content is not checked. Empty if the fetch failed or the
// file is empty.
[[nodiscard]] std::string fetch_installer(const std::string& host, std::uint32_t port,
                                          const std::string& file);

}  // namespace vlk::agent
