// The signed updates that the relay offers to agents.
#include <fstream>

#include "relay/http/update_signer.h"
#include "relay/net/strangers/raw_peer.h"
#include "relay/relay_fixture.h"
#include "update/update.h"

namespace vlk::relay {
namespace {

constexpr char kVersionJson[] = "{\"agent_version\":\"9.9\",\"agent_file\":\"setup-9.9.exe\"}\n";

class UpdatesTest : public RelayTest {
 protected:
  void SetUp() override {
    RelayTest::SetUp();
    stop();
    std::filesystem::create_directory(folder_ / "updates");
    update_key_ = folder_ / "update-key.pub.pem";
    signer_.write_public_key(update_key_);
  }
  void put(const std::string& file, const std::string& bytes) {
    const std::filesystem::path path = folder_ / "updates" / file;
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << bytes;
  }
  // Puts an update into the folder. The installer is the last file to change.
  void release(const std::string& installer) {
    put("version.json", kVersionJson);
    put("version.json.signed",
        signer_.signed_list("9.9", {{"version.json", kVersionJson}, {"setup-9.9.exe", installer}}));
    put("setup-9.9.exe", installer);
  }
  Browser::Answer get(const std::string& target, const std::string& method = "GET") {
    return Browser(port_).request(method, target);
  }
  Json report() { return Browser(port_).request("GET", "/api/updates", {}, log_in()).body; }
  // Waits until the relay offers this installer; an empty text means nothing.
  bool offers(const std::string& installer) {
    return eventually([&] {
      const auto answer = get("/download/setup-9.9.exe");
      return installer.empty() ? answer.status == 404 : answer.text == installer;
    });
  }

  const UpdateSigner signer_{};
};

TEST_F(UpdatesTest, NothingIsOfferedWithoutAnUpdate) {
  std::filesystem::remove(folder_ / "updates");
  start();
  EXPECT_EQ(get("/version.json").status, 404u);
  EXPECT_EQ(get("/download/setup-9.9.exe").status, 404u);
  EXPECT_EQ(report(), (Json{{"offered", Json::array()}, {"problem", nullptr}}));
}

TEST_F(UpdatesTest, SignedFilesAreServedUnchanged) {
  std::string installer("MZ\0\xff\r\n\r\n", 8);
  for (int i = 0; i < 3'000'000; ++i)
    installer.push_back(static_cast<char>(i * 7 >> 3));
  release(installer);
  start();
  EXPECT_EQ(get("/version.json").text, kVersionJson);
  EXPECT_TRUE(get("/download/setup-9.9.exe").text == installer);
  const std::string head = Browser(port_).raw(
      "HEAD /download/setup-9.9.exe HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n");
  EXPECT_NE(head.find("\r\nContent-Length: 3000008\r\n"), std::string::npos) << head;
  EXPECT_TRUE(head.ends_with("\r\n\r\n")) << head.size();
  EXPECT_EQ(get("/version.json", "POST").status, 405u);
  EXPECT_TRUE(
      logged("the update 9.9 is offered to agents: setup-9.9.exe, SHA-256 " + sha256_text(installer)));
}

TEST_F(UpdatesTest, NothingIsOfferedWithoutAKey) {
  release("installer");
  update_key_.clear();
  start();
  EXPECT_EQ(get("/version.json").status, 404u);
  EXPECT_EQ(get("/download/setup-9.9.exe").status, 404u);
  EXPECT_EQ(report()["problem"], "the relay was started without --update-key");
  EXPECT_TRUE(logged("no update is offered to agents, because the relay was started without --update-key"));
}

TEST_F(UpdatesTest, NothingIsOfferedIfTheListOrAFileIsNotWhatWasSigned) {
  const UpdateSigner other;
  const std::vector<UpdateSigner::File> files = {{"version.json", kVersionJson},
                                                 {"setup-9.9.exe", "installer"}};
  const std::string good = signer_.signed_list("9.9", files);
  const std::string of_other = other.signed_list("9.9", files);
  struct Case {
    const char* name;
    std::string file, content, problem;
  };
  const Case cases[] = {
      {"another installer", "setup-9.9.exe", "installeR", "setup-9.9.exe is not the file that was signed"},
      {"a shorter installer", "setup-9.9.exe", "installe", "setup-9.9.exe is not the file that was signed"},
      {"a longer installer", "setup-9.9.exe", "installer!", "setup-9.9.exe is too large"},
      {"another version", "version.json",
       R"({"agent_version":"9.8","agent_file":"setup-9.9.exe"})"
       "\n",
       "version.json is not the file that was signed"},
      {"another key", "version.json.signed", of_other,
       "the signature of the manifest is not made with the update key"},
      {"a changed list", "version.json.signed", "{" + good,
       "the signature of the manifest is not made with the update key"},
      {"no signature", "version.json.signed", good.substr(0, good.find('\n') + 1),
       "the signature of the manifest is not made with the update key"},
      {"no second line", "version.json.signed", good.substr(0, good.find('\n')),
       "the signed manifest has no signature"},
      {"no list", "version.json.signed", "", "the signed manifest has no signature"},
      {"a list of another version", "version.json.signed", signer_.signed_list("9.8", files),
       "version.json does not name the version of the signed manifest"},
      {"a list without the installer", "version.json.signed", signer_.signed_list("9.9", {files[0]}),
       "version.json names an installer that is not in the signed manifest"},
      {"a list without the manifest", "version.json.signed", signer_.signed_list("9.9", {files[1]}),
       "the signed manifest does not list version.json"},
      {"another signed text", "version.json.signed", signer_.signed_line("{}"),
       "the signed manifest is not one of this relay's format"},
      {"a path", "version.json.signed", signer_.signed_list("9.9", {{"../relay-key.pem", ""}}),
       "the signed manifest has a file without a name, size or hash"},
      {"a large list", "version.json.signed", std::string(70'000, ' '), "version.json.signed is too large"},
  };
  for (const Case& one : cases) {
    release("installer");
    put(one.file, one.content);
    start();
    EXPECT_EQ(get("/version.json").status, 404u) << one.name;
    EXPECT_EQ(get("/download/setup-9.9.exe").status, 404u) << one.name;
    EXPECT_EQ(report(), (Json{{"offered", Json::array()}, {"problem", one.problem}})) << one.name;
    EXPECT_TRUE(logged("no update is offered to agents, because " + one.problem)) << one.name;
    stop();
  }
}

TEST_F(UpdatesTest, ChangesOfTheFolderAreVerifiedWhileTheRelayRuns) {
  start();
  EXPECT_TRUE(offers(""));
  release("first");
  EXPECT_TRUE(offers("first"));
  put("setup-9.9.exe", "wrong");
  EXPECT_TRUE(offers(""));
  EXPECT_TRUE(logged("setup-9.9.exe is not the file that was signed"));
  release("second");
  EXPECT_TRUE(offers("second"));
  std::filesystem::remove(folder_ / "updates/version.json.signed");
  EXPECT_TRUE(offers(""));
  EXPECT_EQ(report()["problem"], "version.json.signed is missing");
}

TEST_F(UpdatesTest, ReportNamesTheOfferAndWhoFetchedIt) {
  release("installer");
  start();
  EXPECT_EQ(get("/version.json").status, 200u);
  const std::string head =
      Browser(port_).raw("HEAD /download/setup-9.9.exe HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n");
  EXPECT_TRUE(head.starts_with("HTTP/1.1 200 ")) << head;
  EXPECT_EQ(report()["offered"][0]["fetched"], Json::array());
  for (int i = 0; i < 3; ++i)
    EXPECT_EQ(get("/download/setup-9.9.exe").status, 200u);
  Json offered = report()["offered"];
  ASSERT_EQ(offered.size(), 1u);
  ASSERT_EQ(offered[0]["fetched"].size(), 1u);
  EXPECT_GT(offered[0]["fetched"][0]["time"], 1'500'000'000);
  offered[0]["fetched"][0].erase("time");
  EXPECT_EQ(offered[0], (Json{{"version", "9.9"},
                              {"file", "setup-9.9.exe"},
                              {"sha256", sha256_text("installer")},
                              {"bytes", 9},
                              {"downloads", 3},
                              {"fetched", {{{"address", "127.0.0.1"}, {"count", 3}}}}}));
  EXPECT_EQ(get("/api/updates").status, 401u);
}

TEST_F(UpdatesTest, OfferRefusalAndTheFirstFetchOfAnAddressAreRecorded) {
  release("installer");
  start();
  for (int i = 0; i < 3; ++i)
    EXPECT_EQ(get("/download/setup-9.9.exe").status, 200u);
  put("setup-9.9.exe", "INSTALLER");
  EXPECT_TRUE(offers(""));
  const auto rows = [this] {
    return stored("SELECT code || ' ' || address || ' ' || fields FROM trail WHERE code GLOB 'update.*'");
  };
  const std::string folder = (folder_ / "updates").string();
  const std::multiset<std::string> expected = {
      R"(update.offered  {"version":"9.9","file":"setup-9.9.exe","sha256":")" + sha256_text("installer") +
          "\"}",
      R"(update.fetched 127.0.0.1 {"version":"9.9","file":"setup-9.9.exe"})",
      R"(update.refused  {"file":")" + folder +
          R"(","reason":"setup-9.9.exe is not the file that was signed"})",
  };
  EXPECT_TRUE(eventually([&] { return rows() == expected; }));
  EXPECT_EQ(rows(), expected);
}

TEST_F(UpdatesTest, ReportNamesTheLastAddressOfAnIpv6Host) {
  release("installer");
  trusted_proxies_ = {*parse_network("127.0.0.1")};
  proxy_header_ = "X-Forwarded-For";
  start();
  for (const char* address : {"2001:db8::1", "2001:db8::2"}) {
    RawPeer proxy(port_);
    proxy.start_tls();
    EXPECT_EQ(proxy.request("GET", "/download/setup-9.9.exe", {},
                            "X-Forwarded-For: " + std::string(address) + "\r\n"),
              200u);
  }
  const Json fetched = report()["offered"][0]["fetched"];
  ASSERT_EQ(fetched.size(), 1u) << "one host has all of the 64 bits";
  EXPECT_EQ(fetched[0]["address"], "2001:db8::2");
  EXPECT_EQ(fetched[0]["count"], 2);
}

// Anybody may request a large file and read it slowly.
TEST_F(UpdatesTest, SlowReadersOfAnInstallerShareItsBytes) {
  release(std::string(24 << 20, 'i'));
  start();
  const std::size_t before = settled_heap();
  std::vector<std::unique_ptr<Browser>> readers;
  for (int i = 0; i < 8; ++i) {
    readers.push_back(std::make_unique<Browser>(port_));
    readers.back()->send_and_hold("GET /download/setup-9.9.exe HTTP/1.1\r\nHost: localhost\r\n\r\n");
  }
  EXPECT_TRUE(eventually([&] { return report()["offered"][0]["downloads"] == 8; }));
  EXPECT_LT(settled_heap(), before + (8u << 20));
}

TEST_F(UpdatesTest, ConnectionIsClosedAfterTheReplyIfTheClientAsksForIt) {
  release("the body");
  start();
  const std::string reply = Browser(port_).raw(
      "GET /download/setup-9.9.exe HTTP/1.1\r\nHost: localhost\r\nUser-Agent: Vantelink\r\nConnection: "
      "close\r\n\r\n");
  EXPECT_TRUE(reply.starts_with("HTTP/1.1 200 ")) << reply;
  EXPECT_TRUE(reply.ends_with("\r\n\r\nthe body")) << reply;
  EXPECT_EQ(reply.find("chunked"), std::string::npos);
}

TEST_F(UpdatesTest, AgentsUpdateClientFetchesTheOfferAndTheInstaller) {
  const std::string installer(500'000, 'i');
  release(installer);
  start();
  const auto offer = agent::check_for_update("localhost", port_);
  ASSERT_TRUE(offer);
  EXPECT_EQ(offer->version, "9.9");
  EXPECT_TRUE(agent::fetch_installer("localhost", port_, offer->file) == installer);
  EXPECT_EQ(agent::fetch_installer("localhost", port_, "none.exe"), "");
}

TEST_F(UpdatesTest, OnlyTheInstallerCanBeDownloaded) {
  release("installer");
  put("other.exe", "other");
  put("deeper/b.exe", "b");
  put(".hidden", "c");
  start();
  for (const char* name : {"",
                           "..",
                           ".",
                           "other.exe",
                           "version.json",
                           "version.json.signed",
                           "../relay-key.pem",
                           "..%2frelay-key.pem",
                           "%2e%2e/relay-key.pem",
                           "..\\relay-key.pem",
                           "/setup-9.9.exe",
                           "setup-9.9.exe/",
                           "./setup-9.9.exe",
                           "deeper/../setup-9.9.exe",
                           "deeper/b.exe",
                           "deeper",
                           ".hidden",
                           "setup-9.9.exe%00",
                           "setup-9%2e9.exe",
                           "//etc/passwd"}) {
    EXPECT_EQ(get(std::string("/download/") + name).status, 404u) << name;
  }
  EXPECT_EQ(get("/download").status, 404u);
  EXPECT_EQ(get("/version.json/").status, 404u);
  EXPECT_EQ(get("/download/../version.json").status, 404u);
  EXPECT_EQ(get("/download/setup-9.9.exe?x=/../..").text, "installer");
}

}  // namespace
}  // namespace vlk::relay
