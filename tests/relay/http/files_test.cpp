// The console's files, which the relay reads once at its start.
#include "relay/http/files.h"

#include <fstream>
#include <stdexcept>

#include "relay/relay_fixture.h"
#include "support/temp_folder.h"

namespace vlk::relay {
namespace {

namespace http = boost::beast::http;

class FilesTest : public testing::Test {
 protected:
  FilesTest() { folder_.write("index.html", "the console"); }

  void put(const std::string& file, const std::string& bytes) {
    const auto path = folder_.path() / file;
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << bytes;
  }
  [[nodiscard]] ConsoleFiles files() const { return ConsoleFiles(folder_.path()); }
  static Reply get(const ConsoleFiles& files, const std::string& target, const std::string& known = {},
                   http::verb method = http::verb::get) {
    Request request(method, target, 11);
    if (!known.empty()) request.set(http::field::if_none_match, known);
    return files.answer(request);
  }

  const vantelink_test::TempFolder folder_;
};

TEST_F(FilesTest, HiddenFilesAndFilesOutsideTheFolderAreNotServed) {
  std::ofstream(folder_.path().string() + "-secret.html") << "secret";
  put(".hidden.html", "secret");
  put(".git/page.html", "secret");
  put("relay.db", "secret");
  put("deeper/page.html", "deeper");
  const ConsoleFiles all = files();
  for (const char* target : {"/../secret.html", "/..%2fsecret.html", "/%2e%2e/secret.html", "/./index.html",
                             "//etc/passwd", "", "/relay.db", "/.hidden.html", "/.git/page.html",
                             "/a\\..\\b.html", "/deeper", "/index.html%00.html"}) {
    const Reply reply = get(all, target);
    EXPECT_EQ(reply.result_int(), 404u) << target;
    EXPECT_EQ(reply.body().bytes().find("secret"), std::string::npos);
  }
  for (const char* target : {"/", "/index.html", "/index.html?x=/../.."})
    EXPECT_EQ(get(all, target).body().bytes(), "the console") << target;
  EXPECT_EQ(get(all, "/deeper/page.html").body().bytes(), "deeper");
  std::filesystem::remove(folder_.path().string() + "-secret.html");
}

TEST_F(FilesTest, FilesAreReadOnceAndHaveTheirContentTypes) {
  put("a.js", "one");
  put("b.css", "");
  put("c.svg", "<svg/>");
  const ConsoleFiles all = files();
  put("a.js", "two");
  std::filesystem::remove(folder_.path() / "b.css");
  EXPECT_EQ(get(all, "/a.js").body().bytes(), "one");
  EXPECT_EQ(get(all, "/a.js")[http::field::content_type], "text/javascript; charset=utf-8");
  EXPECT_EQ(get(all, "/b.css").result_int(), 200u);
  EXPECT_EQ(get(all, "/b.css")[http::field::content_type], "text/css; charset=utf-8");
  EXPECT_EQ(get(all, "/c.svg")[http::field::content_type], "image/svg+xml");
}

TEST_F(FilesTest, BrowserThatHasTheFileAlreadyGetsOnlyTheHeaders) {
  put("a.js", "one");
  const ConsoleFiles all = files();
  const std::string tag(get(all, "/a.js")[http::field::etag]);
  ASSERT_EQ(tag.size(), 34u) << tag;
  for (const std::string& known : {tag, "W/" + tag, "\"other\", " + tag, std::string("*")}) {
    const Reply reply = get(all, "/a.js", known);
    EXPECT_EQ(reply.result_int(), 304u) << known;
    EXPECT_EQ(reply[http::field::etag], tag);
    EXPECT_EQ(reply[http::field::cache_control], "no-cache");
    EXPECT_EQ(reply.body().bytes(), "");
  }
  for (const std::string& known : {std::string("\"other\""), tag.substr(1), tag.substr(0, 33), "x" + tag})
    EXPECT_EQ(get(all, "/a.js", known).result_int(), 200u) << known;
  put("a.js", "two");
  EXPECT_EQ(get(files(), "/a.js", tag).result_int(), 200u) << "another content has another tag";
}

TEST_F(FilesTest, FilesCanOnlyBeRead) {
  const ConsoleFiles all = files();
  const Reply refused = get(all, "/", {}, http::verb::post);
  EXPECT_EQ(refused.result_int(), 405u);
  EXPECT_EQ(refused[http::field::allow], "GET, HEAD");
  const Reply head = get(all, "/", {}, http::verb::head);
  EXPECT_EQ(head.result_int(), 200u);
  EXPECT_EQ(head[http::field::content_length], "11");
}

TEST_F(FilesTest, FolderWithTooManyBytesIsRefusedAtTheStart) {
  put("large.js", "");
  std::filesystem::resize_file(folder_.path() / "large.js", 33u << 20);
  EXPECT_THROW((void)files(), std::runtime_error);
}

TEST_F(FilesTest, FolderWithoutTheFirstPageIsRefusedAtTheStart) {
  std::filesystem::remove(folder_.path() / "index.html");
  EXPECT_THROW((void)files(), std::runtime_error);
  EXPECT_THROW((void)ConsoleFiles(folder_.path() / "none"), std::runtime_error);
}

using ServedFilesTest = RelayTest;

TEST_F(ServedFilesTest, ConnectionGoesOnAfterReplyWithoutABody) {
  const std::string host = " HTTP/1.1\r\nHost: x\r\n";
  const std::string first = Browser(port_).raw("HEAD /" + host + "Connection: close\r\n\r\n");
  EXPECT_NE(first.find("Content-Length: 11\r\n"), std::string::npos) << first;
  EXPECT_TRUE(first.ends_with("\r\n\r\n")) << first;
  const std::string both = Browser(port_).raw("GET /" + host + "If-None-Match: *\r\n\r\nGET /" + host +
                                              "Connection: close\r\n\r\n");
  EXPECT_TRUE(both.starts_with("HTTP/1.1 304 ")) << both;
  EXPECT_NE(both.find("\r\n\r\nHTTP/1.1 200 "), std::string::npos) << both;
  EXPECT_TRUE(both.ends_with("\r\n\r\nthe console")) << both;
}

}  // namespace
}  // namespace vlk::relay
