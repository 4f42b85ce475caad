// Tests of restarting the machine and of the secure attention sequence (Ctrl+Alt+Del), with the shipped
// executable.
#include <filesystem>
#include <fstream>

#include "e2e/support/agent_fixture.h"

namespace vantelink_test {
namespace {

using vlk::Msg;

class MachineControlTest : public AgentTest {};

TEST_F(MachineControlTest, SimulatedRestartClosesTheConnectionAndTheAgentReconnects) {
  auto peer = start({}, {"VLK_SIMULATE_REBOOT=anything"});
  peer->read_until(Msg::Hello);
  const int before = pid_;
  peer->send_envelope(Msg::Reboot, 0, "");
  EXPECT_TRUE(peer->wait_closed());
  EXPECT_TRUE(becomes_logged("reboot: requested (simulate=1)\n"));
  server_->accept_upgraded()->read_until(Msg::Hello);
  EXPECT_TRUE(running());
  EXPECT_EQ(pid_, before);
}

// Runs on a separate desk, since the restart ends all programs there. Wine's trace shows the arguments of the
// system calls.
TEST_F(MachineControlTest, RestartIsLoggedAndForcesHungProgramsToEnd) {
  const Desk other;
  other.output({"reg", "add", "HKCU\\Software\\Wine\\Debug", "/v", "RelayInclude", "/d",
                "user32.ExitWindowsEx;advapi32.AdjustTokenPrivileges;advapi32.LookupPrivilegeValueW", "/f"});
  std::ofstream(other.folder() + "/ca.pem") << authority->pem();
  pid_ =
      other.spawn(command_line(kAgent), {"SSL_CERT_FILE=" + other.folder() + "/ca.pem", "WINEDEBUG=+relay"});
  auto peer = server_->accept_upgraded();
  peer->read_until(Msg::Hello);
  peer->send_envelope(Msg::Reboot, 3, "whatever");
  EXPECT_TRUE(peer->wait_closed()) << "Windows did not end the agent";
  EXPECT_TRUE(ends());
  EXPECT_NE(other.debug_log().find("reboot: requested (simulate=0)\n"), std::string::npos);
  const std::string trace = other.host("cat '" + other.folder() + "'/out/*/stderr | grep 'Call '");
  const std::size_t privilege = trace.find("LookupPrivilegeValueW(00000000,");
  const std::size_t adjusted = trace.find("AdjustTokenPrivileges(");
  const std::size_t exit = trace.find("ExitWindowsEx(00000012,00040001)");
  EXPECT_TRUE(privilege < adjusted && adjusted < exit && exit != std::string::npos) << trace;
  EXPECT_NE(trace.find("L\"SeShutdownPrivilege\""), std::string::npos) << trace;
}

TEST_F(MachineControlTest, SecureAttentionSequenceIsSentWithAndWithoutASession) {
  // The test's sas.dll is in the folder of the executable, where Windows finds it before the sas.dll of the
  // system.
  const std::string copy = desk->folder() + "/installed";
  std::filesystem::create_directory(copy);
  std::filesystem::copy_file(kAgent, copy + "/VantelinkAgent.exe");
  std::filesystem::copy_file(VANTELINK_SOURCE_DIR "/build/windows/tests/sas.dll", copy + "/sas.dll");
  desk->set("Unattended", "REG_DWORD", "1");
  agent_ = copy + "/VantelinkAgent.exe";
  auto peer = start();
  peer->read_until(Msg::Hello);
  const auto calls = [] {
    return run("cat '" + desk->folder() + "'/prefix/drive_c/users/*/Temp/vlk_sas.txt | tr -d '\\r'");
  };
  peer->send_envelope(Msg::SecureAttention, 0, "");
  peer->settle();
  EXPECT_EQ(calls(), "SendSAS 0");
  peer->send_envelope(Msg::SessionRequest, 5, R"({"rep_name":"A"})");
  peer->read_until(Msg::SessionAccept);
  peer->send_envelope(Msg::SecureAttention, 5, "");
  peer->settle();
  EXPECT_EQ(calls(), "SendSAS 0\nSendSAS 0");
  EXPECT_TRUE(logged("[sas] SendSAS issued\n"));
}

}  // namespace
}  // namespace vantelink_test
