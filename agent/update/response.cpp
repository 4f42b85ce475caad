// Checks a response for a blank line and for its status, and nothing else.
#include "update/response.h"

namespace vlk::agent {
namespace {

constexpr std::string_view kBlankLine = "\r\n\r\n";
constexpr std::string_view kGoodStatus = "HTTP/1.1 200";  // any text or digits after it are ignored

}  // namespace

std::optional<std::size_t> find_body(std::string_view response) {
  const std::size_t blank_line = response.find(kBlankLine);
  if (blank_line == std::string_view::npos) return std::nullopt;
  if (!response.starts_with(kGoodStatus)) return std::nullopt;
  return blank_line + kBlankLine.size();
}

}  // namespace vlk::agent
