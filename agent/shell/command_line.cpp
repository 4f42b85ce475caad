// Searches the command line for switches and their values.
#include "shell/command_line.h"

#include <limits>

namespace vlk::agent {
namespace {

bool contains(std::wstring_view text, std::wstring_view word) {
  return text.find(word) != std::wstring_view::npos;
}

// The text after the first occurrence of `name` and after any blanks and "=" that follow it.
std::optional<std::wstring_view> find_value(std::wstring_view command_line, std::wstring_view name) {
  const std::size_t at = command_line.find(name);
  if (at == std::wstring_view::npos) return std::nullopt;
  const std::wstring_view rest = command_line.substr(at + name.size());
  const std::size_t begin = rest.find_first_not_of(L" =");
  return begin == std::wstring_view::npos ? std::wstring_view() : rest.substr(begin);
}

// Converts like _wtoi of the Universal C Runtime: white space, a sign, digits. Gives 0 if there are no
// digits, and the largest or smallest integer on overflow.
std::int32_t parse_decimal(std::wstring_view text) {
  const std::size_t begin = text.find_first_not_of(L" \t\n\v\f\r");
  if (begin == std::wstring_view::npos) return 0;
  text.remove_prefix(begin);
  const bool negative = text.front() == L'-';
  if (negative || text.front() == L'+') text.remove_prefix(1);
  constexpr std::int64_t kMax = std::numeric_limits<std::int32_t>::max();
  const std::int64_t limit = negative ? kMax + 1 : kMax;
  std::int64_t value = 0;
  for (const wchar_t c : text) {
    if (c < L'0' || c > L'9') break;
    value = value * 10 + (c - L'0');
    if (value > limit) value = limit;
  }
  return static_cast<std::int32_t>(negative ? -value : value);
}

}  // namespace

RunMode find_run_mode(std::wstring_view command_line) {
  if (contains(command_line, L"--service")) return RunMode::Service;
  if (contains(command_line, L"--install-service")) return RunMode::InstallService;
  if (contains(command_line, L"--uninstall-service")) return RunMode::UninstallService;
  return RunMode::Agent;
}

bool wants_hidden_start(std::wstring_view command_line) {
  return contains(command_line, L"--unattended");
}

std::optional<std::wstring_view> find_host(std::wstring_view command_line) {
  const auto rest = find_value(command_line, L"--host");
  if (!rest || rest->empty()) return std::nullopt;
  return rest->substr(0, rest->find(L' '));
}

std::optional<std::uint32_t> find_port(std::wstring_view command_line) {
  const auto rest = find_value(command_line, L"--port");
  if (!rest) return std::nullopt;
  const std::int32_t port = parse_decimal(*rest);
  if (port <= 0) return std::nullopt;
  return static_cast<std::uint32_t>(port);
}

}  // namespace vlk::agent
