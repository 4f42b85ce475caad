// The check of a response: a blank line first, the status second, and nothing else.
#include "update/response.h"

namespace vlk::agent {
namespace {

constexpr std::string_view kBlankLine = "\r\n\r\n";
constexpr std::string_view kGoodStatus =
    "HTTP/1.1 200";  // what follows, a reason or more digits, is not seen

}  // namespace

std::optional<std::size_t> find_body(std::string_view response) {
  const std::size_t blank_line = response.find(kBlankLine);
  if (blank_line == std::string_view::npos) return std::nullopt;
  if (!response.starts_with(kGoodStatus)) return std::nullopt;
  return blank_line + kBlankLine.size();
}

}  // namespace vlk::agent
