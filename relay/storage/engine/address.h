// The address of a database: the path of a file, or the URL of a PostgreSQL server.
#pragma once

#include <string>
#include <string_view>

namespace vlk::relay {

// Whether the address of a database is the URL of a PostgreSQL server, not a file's path.
[[nodiscard]] bool is_postgresql(std::string_view address);
// The address as people may see it: without a password.
[[nodiscard]] std::string shown_address(const std::string& address);

// The URL with what limits the time of connecting and of silence, unless it says that itself.
[[nodiscard]] std::string with_time_limits(std::string url);

}  // namespace vlk::relay
