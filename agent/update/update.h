// What the server offers and what the agent makes of it. Whoever asks runs on a thread of their own, as both
// fetches block.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "update/manifest.h"

namespace vlk::agent {

// Fetches the server's manifest and reads it. Every failure is silent and the same as no offer.
std::optional<UpdateOffer> check_for_update(const std::string& host, std::uint32_t port);

// The installer of that name, whole and as the server gave it: nothing about it is checked. Empty if the
// fetch failed, or if there is nothing in it.
std::string fetch_installer(const std::string& host, std::uint32_t port, const std::string& file);

}  // namespace vlk::agent
