// Reads any text as the agent's command line. Bytes from 0x80 stand for the words of the switches.
#include <algorithm>
#include <limits>
#include <string>

#include "require.h"
#include "shell/command_line.h"

using namespace vlk::agent;

namespace {

constexpr const wchar_t* kWords[] = {
    L"--host", L"--port", L"--service", L"--install-service", L"--unattended", L"--uninstall-service",
    L" ",      L"=",      L"\"",        L"2147483647",        L"\u00ED",       L"99999999999999999999",
    L"\xFFFF", L"-",
};

std::wstring text_of(const std::uint8_t* data, std::size_t size) {
  std::wstring text;
  for (std::size_t i = 0; i < size; ++i) {
    if (data[i] < 0x80) {
      text += static_cast<wchar_t>(data[i]);
    } else {
      text += kWords[data[i] % std::size(kWords)];
    }
  }
  return text;
}

bool has(const std::wstring& text, const wchar_t* word) {
  return text.find(word) != std::wstring::npos;
}

void check_host(const std::wstring& text) {
  const auto host = find_host(text);
  if (!has(text, L"--host")) REQUIRE(!host);
  if (host) {
    REQUIRE(!host->empty() && host->front() != L'=' && host->find(L' ') == std::wstring_view::npos);
    REQUIRE(host->data() >= text.data() && host->data() + host->size() <= text.data() + text.size());
    const auto begin = static_cast<std::size_t>(host->data() - text.data());
    const std::size_t end = begin + host->size();
    REQUIRE(end == text.size() || text[end] == L' ');
    // Between the first switch and its value are only blanks and "=".
    const std::size_t after = text.find(L"--host") + 6;
    REQUIRE(begin >= after && text.find_first_not_of(L" =", after) == begin);
  }
  // The first switch counts, whatever follows.
  const std::wstring before = L"--host a.example " + text;
  REQUIRE(find_host(before) == L"a.example");
}

// The number after the first switch, at most the largest of 32 bits with a sign; 0 if there is none above 0.
std::uint32_t written_port(const std::wstring& text) {
  const std::size_t at = text.find(L"--port");
  if (at == std::wstring::npos) return 0;
  std::size_t begin = text.find_first_not_of(L" =", at + 6);
  begin = text.find_first_not_of(L" \t\n\v\f\r", begin == std::wstring::npos ? text.size() : begin);
  if (begin == std::wstring::npos) return 0;
  if (text[begin] == L'+') ++begin;
  std::size_t end = begin;
  while (end < text.size() && text[end] >= L'0' && text[end] <= L'9')
    ++end;
  while (begin < end && text[begin] == L'0')
    ++begin;
  const std::wstring digits = text.substr(begin, end - begin);
  constexpr std::uint32_t kMost = std::numeric_limits<std::int32_t>::max();
  if (digits.size() > 10) return kMost;
  return digits.empty() ? 0 : static_cast<std::uint32_t>(std::min<long long>(std::stoll(digits), kMost));
}

void check_port(const std::wstring& text) {
  const auto port = find_port(text);
  REQUIRE(port.value_or(0) == written_port(text) && port != 0u);
  REQUIRE(find_port(L"--port=8443 " + text) == 8443u);
  REQUIRE(!find_port(L"--port -8443 " + text));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::wstring text = text_of(data, size);
  const RunMode mode = find_run_mode(text);
  const bool service = has(text, L"--service");
  const bool install = has(text, L"--install-service");
  const bool uninstall = has(text, L"--uninstall-service");
  REQUIRE((mode == RunMode::Service) == service);
  REQUIRE((mode == RunMode::InstallService) == (install && !service));
  REQUIRE((mode == RunMode::UninstallService) == (uninstall && !install && !service));
  REQUIRE(wants_hidden_start(text) == has(text, L"--unattended"));
  check_host(text);
  check_port(text);
  return 0;
}
