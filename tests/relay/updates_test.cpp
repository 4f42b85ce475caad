// The manifest and the installers that the relay serves to agents.
#include <fstream>

#include "relay/relay_fixture.h"
#include "update/update.h"

namespace vlk::relay {
namespace {

class UpdatesTest : public RelayTest {
 protected:
  void put(const std::string& file, const std::string& bytes) {
    const std::filesystem::path path = folder_ / "updates" / file;
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << bytes;
  }
  Browser::Answer get(const std::string& target, const std::string& method = "GET") {
    return Browser(port_).request(method, target);
  }
};

TEST_F(UpdatesTest, RequestsForUpdatesAreAnsweredWith404WithoutAnUpdatesFolder) {
  EXPECT_EQ(get("/version.json").status, 404u);
  EXPECT_EQ(get("/download/setup.exe").status, 404u);
}

TEST_F(UpdatesTest, ManifestAndFilesAreServedUnchanged) {
  const std::string manifest = "{\"agent_version\":\"9.9\",\"agent_file\":\"setup-9.9.exe\"}\n";
  std::string installer("MZ\0\xff\r\n\r\n", 8);
  for (int i = 0; i < 3'000'000; ++i)
    installer.push_back(static_cast<char>(i * 7 >> 3));
  put("version.json", manifest);
  put("setup-9.9.exe", installer);
  EXPECT_EQ(get("/version.json").text, manifest);
  EXPECT_TRUE(get("/download/setup-9.9.exe").text == installer);
  const std::string head = Browser(port_).raw(
      "HEAD /download/setup-9.9.exe HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n");
  EXPECT_NE(head.find("\r\nContent-Length: 3000008\r\n"), std::string::npos) << head;
  EXPECT_TRUE(head.ends_with("\r\n\r\n")) << head.size();
  EXPECT_EQ(get("/version.json", "POST").status, 405u);
  put("version.json", "changed");
  EXPECT_EQ(get("/version.json").text, "changed") << "the relay reads the file at each request";
}

// A file in memory would be dangerous, because anybody may request a large file and read it slowly.
TEST_F(UpdatesTest, LargeFileIsServedWithoutBeingHeldInMemory) {
  put("large.exe", "");
  const auto path = folder_ / "updates/large.exe";
  std::filesystem::resize_file(path, 192u << 20);
  const std::size_t before = heap_bytes();
  Browser browser(port_);
  browser.send_and_hold("GET /download/large.exe HTTP/1.1\r\nHost: localhost\r\n\r\n");
  EXPECT_TRUE(eventually([&] { return is_open(path); }));
  EXPECT_LT(settled_heap(), before + (24u << 20));
}

TEST_F(UpdatesTest, ConnectionIsClosedAfterTheReplyIfTheClientAsksForIt) {
  put("a.exe", "the body");
  const std::string reply = Browser(port_).raw(
      "GET /download/a.exe HTTP/1.1\r\nHost: localhost\r\nUser-Agent: Vantelink\r\nConnection: "
      "close\r\n\r\n");
  EXPECT_TRUE(reply.starts_with("HTTP/1.1 200 ")) << reply;
  EXPECT_TRUE(reply.ends_with("\r\n\r\nthe body")) << reply;
  EXPECT_EQ(reply.find("chunked"), std::string::npos);
}

TEST_F(UpdatesTest, AgentsUpdateClientFetchesTheOfferAndTheInstaller) {
  const std::string installer(500'000, 'i');
  put("version.json", R"({"agent_version":"0.2","agent_file":"setup.exe"})");
  put("setup.exe", installer);
  const auto offer = agent::check_for_update("localhost", port_);
  ASSERT_TRUE(offer);
  EXPECT_EQ(offer->version, "0.2");
  EXPECT_TRUE(agent::fetch_installer("localhost", port_, offer->file) == installer);
  EXPECT_EQ(agent::fetch_installer("localhost", port_, "none.exe"), "");
}

TEST_F(UpdatesTest, DownloadNamesOtherThanAPlainFileNameAreRefused) {
  put("a.exe", "a");
  put("deeper/b.exe", "b");
  put(".hidden", "c");
  std::ofstream(folder_ / "secret.exe") << "secret";
  for (const char* name : {"",
                           "..",
                           ".",
                           "../secret.exe",
                           "..%2fsecret.exe",
                           "%2e%2e/secret.exe",
                           "..\\secret.exe",
                           "/a.exe",
                           "a.exe/",
                           "./a.exe",
                           "deeper/../a.exe",
                           "deeper/b.exe",
                           "deeper",
                           ".hidden",
                           "a.exe%00",
                           "a%2eexe",
                           "../relay.db",
                           "../relay-key.pem",
                           "/../../../../../../etc/passwd",
                           "//etc/passwd"}) {
    EXPECT_EQ(get(std::string("/download/") + name).status, 404u) << name;
  }
  EXPECT_EQ(get("/download").status, 404u);
  EXPECT_EQ(get("/version.json/").status, 404u);
  EXPECT_EQ(get("/download/../version.json").status, 404u);
  EXPECT_EQ(get("/download/a.exe?x=/../..").text, "a");
}

}  // namespace
}  // namespace vlk::relay
