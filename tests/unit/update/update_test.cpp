// The update: reading the manifest, and downloading the manifest and the installer.
#include "update/update.h"

#include <cstdlib>
#include <future>
#include <random>

#include <gtest/gtest.h>

#include "support/log_folder.h"
#include "support/peers/scripted_server.h"

namespace vlk::agent {
namespace {

using vantelink_test::LogFolder;
using vantelink_test::ScriptedServer;
using vantelink_test::TestAuthority;

class ManifestTest : public testing::Test {
 protected:
  void SetUp() override { setenv("VLK_DEBUG_INPUT", "", 1); }
  void TearDown() override { unsetenv("VLK_DEBUG_INPUT"); }
  const LogFolder log_;
};

TEST_F(ManifestTest, NewerVersionWithAFileIsOffered) {
  const auto offer = read_manifest(R"({"other":1,"agent_file":"Setup-\"7\".exe","agent_version":"0.1.7"})");
  ASSERT_TRUE(offer);
  EXPECT_EQ(offer->version, "0.1.7");
  EXPECT_EQ(offer->file, "Setup-\"7\".exe");
  EXPECT_EQ(log_.text(), "update: manifest agent_version=0.1.7 current=0.1.6 newer=1 file=Setup-\"7\".exe\n");
}

TEST_F(ManifestTest, NewerVersionWithoutAFileIsNotOfferedAlthoughItIsLoggedAsNewer) {
  EXPECT_FALSE(read_manifest(R"({"agent_version":"9"})"));
  EXPECT_FALSE(read_manifest(R"({"agent_version":"9","agent_file":""})"));
  const std::string line = "update: manifest agent_version=9 current=0.1.6 newer=1 file=\n";
  EXPECT_EQ(log_.text(), line + line);
}

TEST_F(ManifestTest, EqualAndEmptyVersionsAreNotOffered) {
  EXPECT_FALSE(read_manifest(R"({"agent_version":"0.1.6","agent_file":"a.exe"})"));
  EXPECT_FALSE(read_manifest(R"({"agent_version":"","agent_file":"b.exe"})"));
  EXPECT_FALSE(read_manifest(R"({"agent_version":7,"agent_file":"c.exe"})")) << "a number is not a string";
  EXPECT_EQ(log_.text(),
            "update: manifest agent_version=0.1.6 current=0.1.6 newer=0 file=a.exe\n"
            "update: manifest agent_version= current=0.1.6 newer=0 file=b.exe\n"
            "update: manifest agent_version= current=0.1.6 newer=0 file=c.exe\n");
}

TEST_F(ManifestTest, TextThatIsNotJsonHasNoFields) {
  for (const char* text : {"", "<html>\"agent_version\"</html>", "agent_version=9 agent_file=a",
                           R"({"agent_version":"9)", R"({"agent_version"
:"9","agent_file":"a"})"}) {
    const LogFolder log;
    EXPECT_FALSE(read_manifest(text)) << text;
    EXPECT_TRUE(log.text().starts_with("update: manifest agent_version= current=0.1.6 newer=0 ")) << text;
  }
}

TEST_F(ManifestTest, ManifestIsNotLoggedWithoutTheEnvironmentVariable) {
  unsetenv("VLK_DEBUG_INPUT");
  EXPECT_TRUE(read_manifest(R"({"agent_version":"1","agent_file":"x"})"));
  EXPECT_EQ(log_.text(), "");
}

TEST_F(ManifestTest, FileNameInTheManifestIsUsedUnchanged) {
  const auto offer = read_manifest(R"({"agent_version":"1","agent_file":"..\\..\\x/y.exe"})");
  ASSERT_TRUE(offer);
  EXPECT_EQ(offer->file, "..\\..\\x/y.exe");
}

TEST_F(ManifestTest, ManifestOfRandomBytesNeverLeadsToAnOffer) {
  unsetenv("VLK_DEBUG_INPUT");
  std::mt19937 random(7);
  for (int i = 0; i < 2000; ++i) {
    std::string text(random() % 300, '\0');
    for (char& byte : text)
      byte = static_cast<char>(random());
    EXPECT_FALSE(read_manifest(text));
    // Random bytes also follow and fill almost complete fields.
    EXPECT_FALSE(read_manifest("{\"agent_version\":\"0." + text));
    const auto offer = read_manifest("{\"agent_file\":\"a\",\"agent_version\":\"1" + text + "\"}");
    if (offer) {
      EXPECT_EQ(offer->version.front(), '1');
    }
  }
}

// Runs `work` against a server that answers one request with these bytes and then closes the connection.
// Returns the result of `work`, and the first line of the request in `line`.
template <typename Work>
auto served(std::string_view response, std::string& line, Work work) {
  const TestAuthority authority;
  ScriptedServer server(authority);
  auto result = std::async(std::launch::async, [&] { return work(std::uint32_t{server.port()}); });
  const auto connection = server.accept();
  EXPECT_TRUE(connection->handshake());
  line = connection->read_request();
  line.resize(line.find('\r'));
  connection->send(response);
  connection->close();
  return result.get();
}

TEST(UpdateTest, UpdateCheckReadsTheServersManifest) {
  std::string line;
  const auto check = [](std::uint32_t port) { return check_for_update("localhost", port); };
  const auto offer =
      served("HTTP/1.1 200 OK\r\n\r\n{\"agent_version\":\"0.2\",\"agent_file\":\"a.exe\"}\n", line, check);
  EXPECT_EQ(line, "GET /version.json HTTP/1.1");
  ASSERT_TRUE(offer);
  EXPECT_EQ(offer->version, "0.2");
  EXPECT_EQ(offer->file, "a.exe");
}

TEST(UpdateTest, FailedUpdateChecksOfferNothingAndAreNotLogged) {
  setenv("VLK_DEBUG_INPUT", "1", 1);
  const LogFolder log;
  std::string line;
  const auto check = [](std::uint32_t port) { return check_for_update("localhost", port); };
  EXPECT_FALSE(served("HTTP/1.1 404 No\r\n\r\n{\"agent_version\":\"9\",\"agent_file\":\"a\"}", line, check));
  EXPECT_FALSE(served("", line, check));
  EXPECT_EQ(log.text(), "") << "only a completed download of the manifest is logged";
  EXPECT_FALSE(served("HTTP/1.1 200 OK\r\n\r\n", line, check));
  EXPECT_EQ(log.text(), "update: manifest agent_version= current=0.1.6 newer=0 file=\n");
  unsetenv("VLK_DEBUG_INPUT");
}

TEST(UpdateTest, InstallerIsTheResponsesBodyAndEmptyOnFailure) {
  std::string line;
  const auto fetch = [](std::uint32_t port) { return fetch_installer("localhost", port, "a b/../c.exe"); };
  EXPECT_EQ(served(std::string_view("HTTP/1.1 200 OK\r\n\r\nMZ\0\1", 23), line, fetch),
            std::string("MZ\0\1", 4));
  EXPECT_EQ(line, "GET /download/a b/../c.exe HTTP/1.1");
  EXPECT_EQ(served("HTTP/1.1 500 Oh\r\n\r\nMZ", line, fetch), "");
  EXPECT_EQ(served("HTTP/1.1 200 OK\r\n\r\n", line, fetch), "");
}

}  // namespace
}  // namespace vlk::agent
