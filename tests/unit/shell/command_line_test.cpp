// Switches and values in the raw command line.
#include "shell/command_line.h"

#include <string>

#include <gtest/gtest.h>

namespace vlk::agent {
namespace {

std::string Narrow(std::wstring_view text) {
  std::string narrow;
  for (const wchar_t c : text)
    narrow.push_back(static_cast<char>(c));
  return narrow;
}

TEST(CommandLine, ServiceSwitchesSelectTheRunMode) {
  const struct {
    const wchar_t* line;
    RunMode mode;
  } rows[] = {
      {L"", RunMode::Agent},
      {L"--unattended", RunMode::Agent},
      {L"anything else", RunMode::Agent},
      {L"--service", RunMode::Service},
      {L"--install-service", RunMode::InstallService},
      {L"--uninstall-service", RunMode::UninstallService},
      {L"  x --service y", RunMode::Service},
      {L"word--serviceword", RunMode::Service},
      {L"--host --service", RunMode::Service},
      {L"--host=--install-service", RunMode::InstallService},
      {L"\"--uninstall-service\"", RunMode::UninstallService},
      {L"--from-service", RunMode::Agent},
      {L"--unattended --from-service", RunMode::Agent},
      {L"-service", RunMode::Agent},
      {L"--servic", RunMode::Agent},
      {L"--SERVICE", RunMode::Agent},
      {L"--Install-Service", RunMode::Agent},
      {L"--uninstall-service --install-service", RunMode::InstallService},
      {L"--uninstall-service --install-service --service", RunMode::Service},
      {L"--uninstall-service --service", RunMode::Service},
  };
  for (const auto& row : rows)
    EXPECT_EQ(find_run_mode(row.line), row.mode) << Narrow(row.line);
}

TEST(CommandLine, UnattendedSwitchIsFoundAnywhereButOnlyInLowerCase) {
  EXPECT_TRUE(wants_hidden_start(L"--unattended"));
  EXPECT_TRUE(wants_hidden_start(L"--port 1 --unattended"));
  EXPECT_TRUE(wants_hidden_start(L"x--unattendedly"));
  EXPECT_TRUE(wants_hidden_start(L"--unattended --from-service"));
  EXPECT_FALSE(wants_hidden_start(L""));
  EXPECT_FALSE(wants_hidden_start(L"-unattended"));
  EXPECT_FALSE(wants_hidden_start(L"--Unattended"));
}

TEST(CommandLine, HostIsTheTextAfterItsSwitch) {
  const struct {
    const wchar_t* line;
    const wchar_t* host;  // null if the line has no host
  } rows[] = {
      {L"", nullptr},
      {L"host", nullptr},
      {L"--HOST a", nullptr},
      {L"--host", nullptr},
      {L"--host    ", nullptr},
      {L"--host = == ", nullptr},
      {L"--host relay.example", L"relay.example"},
      {L"--host=relay.example", L"relay.example"},
      {L"--host = relay.example", L"relay.example"},
      {L"--host  ==  = relay.example", L"relay.example"},
      {L"--host===relay.example", L"relay.example"},
      {L"--host relay.example --port 1", L"relay.example"},
      {L"--port 1 --host relay.example", L"relay.example"},
      {L"--hostrelay.example", L"relay.example"},
      {L"--hostname relay.example", L"name"},
      {L"--host a=b", L"a=b"},
      {L"--host \"two words\"", L"\"two"},
      {L"--host\trelay", L"\trelay"},
      {L"--host a\tb c", L"a\tb"},
      {L"--host first --host second", L"first"},
      {L"--host --port 7", L"--port"},
      {L"--host \u00e6\u00f0i.example", L"\u00e6\u00f0i.example"},
  };
  for (const auto& row : rows) {
    const auto host = find_host(row.line);
    ASSERT_EQ(host.has_value(), row.host != nullptr) << Narrow(row.line);
    if (host) {
      EXPECT_TRUE(*host == row.host) << Narrow(row.line);
    }
  }
}

TEST(CommandLine, PortIsTheNumberAfterItsSwitch) {
  const struct {
    const wchar_t* line;
    std::uint32_t port;  // 0 if the line has no port
  } rows[] = {
      {L"", 0},
      {L"--port", 0},
      {L"--port   ", 0},
      {L"--port 8443", 8443},
      {L"--port=8443", 8443},
      {L"--port = = 8443", 8443},
      {L"--port8443", 8443},
      {L"--port 8443x", 8443},
      {L"--port 8443 9", 8443},
      {L"--port x8443", 0},
      {L"--port 0", 0},
      {L"--port -1", 0},
      {L"--port - 1", 0},
      {L"--port +8443", 8443},
      {L"--port +-8443", 0},
      {L"--port \t\n8443", 8443},
      {L"--port\t=8443", 0},
      {L"--port 007", 7},
      {L"--port 0x10", 0},
      {L"--port \"8443\"", 0},
      {L"--port 65536", 65536},
      {L"--port 2147483647", 2147483647},
      {L"--port 2147483648", 2147483647},
      {L"--port 99999999999999999999999999", 2147483647},
      {L"--port -99999999999999999999999999", 0},
      {L"--port --port 8443", 0},
      {L"--port 1 --port 2", 1},
      {L"--PORT 8443", 0},
  };
  for (const auto& row : rows)
    EXPECT_EQ(find_port(row.line).value_or(0), row.port) << Narrow(row.line);
}

}  // namespace
}  // namespace vlk::agent
