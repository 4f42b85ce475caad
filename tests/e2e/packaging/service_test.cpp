// Tests of the shipped executable as a service under Wine's service manager: installation, supervision of the
// agent, stop and removal.
#include <signal.h>

#include <filesystem>

#include "e2e/support/redirect_fixture.h"
#include "support/bytes/file_bytes.h"

namespace vantelink_test {
namespace {

using Clock = std::chrono::steady_clock;

constexpr char kHost[] = "VantelinkAgent.exe --service";
// The service checks at this interval whether the agent runs. A faster reaction has another cause.
constexpr Milliseconds kPollInterval{5000};
constexpr int kInstall = 101;           // a button of the update dialog
constexpr unsigned kStaticKind = 0x1F;  // SS_TYPEMASK
constexpr unsigned kIconKind = 0x03;    // SS_ICON

class ServiceTest : public RedirectTest {
 protected:
  // Runs the executable with the switch `name`, closes its message box and returns the box's icon, title and
  // text.
  static std::string message_after(const std::string& name, const std::string& program = kAgent) {
    return box_of(desk->spawn({program, name}));
  }
  static std::string install() { return message_after("--install-service"); }
  static std::string uninstall() { return message_after("--uninstall-service"); }

  // Waits for the message box of the process, closes it, waits until the process ends, and returns the box's
  // icon, title and text.
  static std::string box_of(int pid) {
    std::vector<SeenWindow> box;
    EXPECT_TRUE(eventually([&] {
      box = windows_on(*desk, {kDialog});
      return box.size() >= 3 && box.front().visible;
    })) << "there is no message box";
    std::string text = icon_of(box) + '|';
    for (const SeenWindow& window : box)
      if (!window.child || window.id == 65535) text += window.text + '|';
    for (const SeenWindow& window : box)
      if (window.type == "Button") click(*desk, window);
    EXPECT_TRUE(eventually([&] { return !is_running(pid); })) << "the message box stays open";
    return text;
  }

  // Identifies the icon by its colour, after it has been painted on the light background: Wine's information
  // icon is blue, its warning icon orange.
  static std::string icon_of(const std::vector<SeenWindow>& box) {
    const auto icon = std::find_if(box.begin(), box.end(), [](const SeenWindow& window) {
      return window.child && (window.style & kStaticKind) == kIconKind;
    });
    if (icon == box.end()) return "no icon";
    std::string colour;
    EXPECT_TRUE(eventually([&] {
      colour =
          evaluate_colours(*desk, icon->screen_left, icon->screen_top, icon->width, icon->height,
                           "p{0,0}.r < 0.9 ? 0 : mean.b - mean.r > 0.1 ? 1 : mean.g - mean.b > 0.1 ? 2 : 0");
      return colour != "0";
    })) << "the icon is neither blue nor orange";
    return colour == "1" ? "information" : "warning";
  }

  std::string query() const { return desk->output({"sc", "query", "VantelinkAgent"}); }
  std::string image_path() const {
    return desk->output(
        {"reg", "query", "HKLM\\System\\CurrentControlSet\\Services\\VantelinkAgent", "/v", "ImagePath"});
  }

  // Answers the next update check with an offer, and returns the connection of the agent that made it.
  std::unique_ptr<ServerConnection> offer_update() const {
    std::unique_ptr<ServerConnection> peer;
    for (bool offered = false; !offered || !peer;) {
      auto connection = server_->accept();
      if (!connection->handshake()) continue;
      if (connection->read_request().starts_with("GET /version.json ")) {
        connection->send("HTTP/1.1 200 OK\r\n\r\n{\"agent_version\":\"9\",\"agent_file\":\"Setup.exe\"}");
        connection->close();
        offered = true;
      } else {
        connection->accept_upgrade();
        peer = std::move(connection);
      }
    }
    return peer;
  }
  // Accepts the offered update, and answers the download with a program that writes a file beside itself.
  void accept_update() const {
    SeenWindow button;
    ASSERT_TRUE(eventually([&] {
      for (const SeenWindow& window : windows_on(*desk, {kDialog}))
        if (window.child && window.id == kInstall && window.visible) button = window;
      return button.id == kInstall;
    })) << "there is no update dialog";
    click(*desk, button);
    const auto download = server_->accept();
    ASSERT_TRUE(download->handshake());
    ASSERT_TRUE(download->read_request().starts_with("GET /download/Setup.exe "));
    download->send("HTTP/1.1 200 OK\r\n\r\n" +
                   file_bytes(VANTELINK_SOURCE_DIR "/build/windows/tests/mark.exe"));
    download->close();
  }

  int child() const {
    std::vector<int> found;
    EXPECT_TRUE(eventually([&] { return !(found = processes(kChild)).empty(); }))
        << "the service started no agent";
    return found.empty() ? 0 : found.front();
  }
};

constexpr char kInstalled[] = "information|Maravek|Service installed and started.|";

TEST_F(ServiceTest, InstallationStartsTheServiceWhichStartsAHiddenAgent) {
  EXPECT_EQ(install(), kInstalled);
  const auto peer = greeted();
  const std::string state = query();
  EXPECT_NE(state.find("TYPE               : 10  WIN32_OWN_PROCESS"), std::string::npos) << state;
  EXPECT_NE(state.find("STATE              : 4  RUNNING"), std::string::npos) << state;
  EXPECT_NE(image_path().find("VantelinkAgent.exe\" --service"), std::string::npos) << image_path();
  EXPECT_EQ(processes(kHost).size(), 1u);
  EXPECT_EQ(processes("VantelinkAgent.exe --unattended --from-service").size(), 1u);
  const auto windows = windows_on(*desk, {kAgentWindow});
  ASSERT_FALSE(windows.empty());
  EXPECT_FALSE(windows.front().visible);
}

TEST_F(ServiceTest, KilledAgentIsStartedAgainAtOnce) {
  install();
  auto peer = greeted();
  for (int i = 0; i < 3; ++i) {
    const int killed = child();
    const auto begin = Clock::now();
    ::kill(killed, SIGKILL);
    EXPECT_TRUE(eventually([&] {
      const auto now = processes(kChild);
      return !now.empty() && now.front() != killed;
    }));
    EXPECT_LT(Clock::now() - begin, kPollInterval - Milliseconds(500))
        << "the service noticed it only by polling";
    peer = greeted();
  }
}

TEST_F(ServiceTest, ChoosingExitInTheTrayMenuMakesTheServiceStartANewAgent) {
  install();
  const auto peer = greeted();
  const int first = child();
  post(*desk, kCommand, kMenuExit, 0);
  EXPECT_TRUE(peer->wait_closed());
  greeted();
  EXPECT_NE(child(), first);
}

TEST_F(ServiceTest, AgentThatEndsForAnUpdateIsStartedAgainAtOnceFromTheOldExecutable) {
  desk->host("rm -f \"$WINEPREFIX\"/drive_c/users/*/Temp/Setup.exe*");
  install();
  const auto peer = offer_update();
  const int first = child();
  accept_update();
  EXPECT_TRUE(peer->wait_closed());
  const auto begin = Clock::now();
  std::vector<int> now;
  EXPECT_TRUE(eventually([&] {
    now = processes("VantelinkAgent.exe --unattended --from-service");
    return now.size() == 1 && now.front() != first;
  })) << "the service does not start the agent again";
  EXPECT_LT(Clock::now() - begin, kPollInterval - Milliseconds(500))
      << "the service noticed it only by polling";
  const auto again = greeted();
  EXPECT_TRUE(eventually([] {
    return desk->host("ls \"$WINEPREFIX\"/drive_c/users/*/Temp").find("Setup.exe.mark") != std::string::npos;
  })) << "the installer was not started";
}

TEST_F(ServiceTest, StoppingTheServiceEndsTheAgentWithinASecondAndStartingItStartsTheAgent) {
  install();
  const auto peer = greeted();
  desk->output({"sc", "stop", "VantelinkAgent"});
  const auto begin = Clock::now();
  EXPECT_TRUE(gone(kChild));
  EXPECT_LT(Clock::now() - begin, Milliseconds(1000));
  EXPECT_TRUE(gone(kHost));
  EXPECT_NE(query().find("STATE              : 1  STOPPED"), std::string::npos) << query();
  EXPECT_FALSE(agent_connects(Milliseconds(300)));
  desk->output({"sc", "start", "VantelinkAgent"});
  greeted();
}

TEST_F(ServiceTest, SecondInstallationOfTheServiceKeepsTheExecutablePathOfTheFirst) {
  install();
  greeted();
  const std::string path = image_path();
  const std::string copy = desk->folder() + "/VantelinkAgent.exe";
  std::filesystem::copy_file(kAgent, copy);
  EXPECT_EQ(message_after("--install-service", copy), kInstalled);
  EXPECT_EQ(image_path(), path);
  EXPECT_EQ(processes(kHost).size(), 1u);
}

TEST_F(ServiceTest, RemovalEndsTheServiceAndItsAgentAndFailsWhenNoServiceIsInstalled) {
  EXPECT_EQ(uninstall(), "information|Maravek|Service removal failed.|");
  install();
  const auto peer = greeted();
  EXPECT_EQ(uninstall(), "information|Maravek|Service removed.|");
  EXPECT_TRUE(gone(kChild));
  EXPECT_TRUE(gone(kHost));
  EXPECT_FALSE(service_exists());
  EXPECT_EQ(uninstall(), "information|Maravek|Service removal failed.|");
}

TEST_F(ServiceTest, InstallationFailsWhenTheServiceCannotBeCreated) {
  const DisplayNameTaken taken;
  EXPECT_EQ(install(), "information|Maravek|Service install failed.|")
      << "not the information icon, with which a failure is shown on purpose";
  EXPECT_FALSE(service_exists());
}

TEST_F(ServiceTest, OnlyAnAdministratorCanInstallAndRemoveTheService) {
  const std::string program = '"' + wine_path(kAgent) + "\" ";
  EXPECT_EQ(box_of(spawn_without_elevation(*desk, program + "--install-service")),
            "warning|Maravek|Please run as Administrator to install the service.|");
  EXPECT_FALSE(service_exists());
  install();
  const auto peer = greeted();
  EXPECT_EQ(box_of(spawn_without_elevation(*desk, program + "--uninstall-service")),
            "warning|Maravek|Please run as Administrator to remove the service.|");
  EXPECT_NE(query().find("STATE              : 4  RUNNING"), std::string::npos) << query();
}

// A service that finds an agent in the session starts copy after copy without a delay. Each copy shows the
// first agent's window and ends.
TEST_F(ServiceTest, EachCopyThatTheServiceStartsShowsTheWindowOfTheAgentThatRunsAlready) {
  desk->spawn({kAgent, "--unattended"}, {"SSL_CERT_FILE=" + folder + "/ca.pem"});
  const auto peer = greeted();
  ASSERT_FALSE(windows_on(*desk, {kAgentWindow}).front().visible);
  install();
  EXPECT_TRUE(eventually([&] { return windows_on(*desk, {kAgentWindow}).front().visible; }));
  std::vector<int> seen;
  const auto begin = Clock::now();
  EXPECT_TRUE(eventually([&] {
    for (const int pid : processes(kChild))
      if (std::find(seen.begin(), seen.end(), pid) == seen.end()) seen.push_back(pid);
    return seen.size() >= 3;
  }));
  EXPECT_LT(Clock::now() - begin, 2 * kPollInterval) << "the service starts copies only when it polls";
  EXPECT_FALSE(agent_connects(Milliseconds(100))) << "a copy connected";
}

// This test takes up to ten seconds under Wine.
TEST_F(ServiceTest, AgentStartedWithTheServiceSwitchByAUserEndsSilently) {
  EXPECT_EQ(desk->exec({kAgent, "--host=x--service"}), 0)
      << "the switch is not found inside another argument";
  EXPECT_TRUE(windows_on(*desk, {kAgentWindow, kDialog}).empty());
}

}  // namespace
}  // namespace vantelink_test
