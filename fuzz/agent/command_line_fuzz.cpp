// Reads any text as the agent's command line. Bytes from 0x80 stand for the words of the switches.
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

void check_port(const std::wstring& text) {
  const auto port = find_port(text);
  if (!has(text, L"--port")) REQUIRE(!port);
  if (port) REQUIRE(*port >= 1 && *port <= std::numeric_limits<std::int32_t>::max());
  REQUIRE(find_port(L"--port=8443 " + text) == 8443u);
  REQUIRE(!find_port(L"--port -8443 " + text));
  // A number that is written in another way is the same number.
  if (port) REQUIRE(find_port(L"--port " + std::to_wstring(*port)) == port);
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
