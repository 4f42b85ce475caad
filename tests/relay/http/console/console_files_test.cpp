// The console's files, which the relay reads once at its start, or has in its executable.
#include "relay/http/console/console_files.h"

#define ZLIB_CONST  // zlib does not change what it reads
#include <zlib.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <span>
#include <stdexcept>

#include "relay/base/source_file.h"
#include "relay/http/console/embedded_console.h"
#include "relay/relay_fixture.h"
#include "support/temp_folder.h"

namespace vlk::relay {
namespace {

namespace http = boost::beast::http;

std::string gunzip(const std::string& bytes) {
  z_stream stream{};
  EXPECT_EQ(inflateInit2(&stream, MAX_WBITS + 16), Z_OK);
  std::string text(1 << 20, '\0');
  stream.next_in = reinterpret_cast<const Bytef*>(bytes.data());
  stream.avail_in = static_cast<uInt>(bytes.size());
  stream.next_out = reinterpret_cast<Bytef*>(text.data());
  stream.avail_out = static_cast<uInt>(text.size());
  EXPECT_EQ(inflate(&stream, Z_FINISH), Z_STREAM_END);
  text.resize(stream.total_out);
  inflateEnd(&stream);
  return text;
}

// The folder of the paths that the first page names.
std::string prefix_in(const std::string& page) {
  const std::size_t at = page.find("\"/v/");
  return at == std::string::npos ? std::string() : page.substr(at + 1, page.find('/', at + 4) - at);
}

class FilesTest : public testing::Test {
 protected:
  FilesTest() { folder_.write("index.html", "the console"); }

  void put(const std::string& file, const std::string& bytes) {
    const auto path = folder_.path() / file;
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << bytes;
  }
  [[nodiscard]] ConsoleFiles files() const { return ConsoleFiles(console_files_in(folder_.path())); }
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
                             "/a\\..\\b.html", "/deeper", "xindex.html", "/index.html%00.html"}) {
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

TEST_F(FilesTest, FirstPageNamesFilesThatBrowsersKeepUntilOneOfThemChanges) {
  put("index.html", R"(<link href="/a.css"><script src="/deep/b.js"></script><a href="//x/">x</a>)");
  put("a.css", "one");
  put("deep/b.js", "one");
  const ConsoleFiles before = files();
  const std::string page = get(before, "/").body().bytes();
  const std::string prefix = prefix_in(page);
  EXPECT_EQ(prefix.size(), 36u) << page;
  EXPECT_NE(page.find("href=\"" + prefix + "a.css\""), std::string::npos) << page;
  EXPECT_NE(page.find("src=\"" + prefix + "deep/b.js\""), std::string::npos) << page;
  EXPECT_EQ(get(before, "/")[http::field::cache_control], "no-cache");
  const Reply kept = get(before, prefix + "deep/b.js");
  EXPECT_EQ(kept.body().bytes(), "one");
  EXPECT_EQ(kept[http::field::cache_control], "public, max-age=31536000, immutable");
  for (const std::string& target :
       {prefix, prefix + "index.html", prefix + "/a.css", std::string("/v/a.css"),
        std::string("/v/0123456789abcdef0123456789abcdef/a.css"), prefix + "../a.css"})
    EXPECT_EQ(get(before, target).result_int(), 404u) << target;
  put("a.css", "two");
  const ConsoleFiles after = files();
  EXPECT_NE(prefix_in(get(after, "/").body().bytes()), prefix);
  EXPECT_EQ(get(after, prefix + "a.css").result_int(), 404u) << "a browser would keep the wrong content";
}

TEST_F(FilesTest, BrowsersThatTakeGzipGetTheFilesCompressed) {
  const std::string text(5000, 'x');
  put("a.js", text);
  put("b.js", "x");
  const ConsoleFiles all = files();
  const auto get_gzip = [&](const std::string& target, const std::string& known = {}) {
    Request request(http::verb::get, target, 11);
    request.set(http::field::accept_encoding, "br, gzip");
    if (!known.empty()) request.set(http::field::if_none_match, known);
    return all.answer(request);
  };
  const Reply small = get_gzip("/a.js");
  EXPECT_EQ(small[http::field::content_encoding], "gzip");
  EXPECT_EQ(small[http::field::vary], "Accept-Encoding");
  EXPECT_LT(small.body().bytes().size(), 100u);
  EXPECT_EQ(gunzip(small.body().bytes()), text);
  const Reply plain = get(all, "/a.js");
  EXPECT_EQ(plain.body().bytes(), text);
  EXPECT_EQ(plain.count(http::field::content_encoding), 0u);
  EXPECT_EQ(plain[http::field::vary], "Accept-Encoding");
  EXPECT_NE(plain[http::field::etag], small[http::field::etag]);
  const Reply unchanged = get_gzip("/a.js", std::string(small[http::field::etag]));
  EXPECT_EQ(unchanged.result_int(), 304u);
  EXPECT_EQ(unchanged.count(http::field::content_encoding), 0u);
  EXPECT_EQ(get_gzip("/a.js", std::string(plain[http::field::etag])).result_int(), 200u);
  EXPECT_EQ(get_gzip("/b.js").body().bytes(), "x") << "it would be longer";
}

TEST_F(FilesTest, ProgramContainsTheWholeConsole) {
  const auto in_program = embedded_console();
  const auto in_tree = console_files_in(source_path("console"));
  ASSERT_EQ(in_program.size(), in_tree.size());
  for (const ConsoleFile& file : in_tree) {
    const auto same = [&](const ConsoleFile& other) { return other.path == file.path; };
    const auto found = std::ranges::find_if(in_program, same);
    ASSERT_NE(found, in_program.end()) << file.path;
    EXPECT_TRUE(found->content == file.content) << file.path;
  }
  EXPECT_NE(prefix_in(get(ConsoleFiles(in_program), "/").body().bytes()), "");
}

TEST_F(FilesTest, IncompletePackIsRefused) {
  const Bytes pack = {0, 0, 0, 1, 0, 0, 0, 1, 'a', 0, 0, 0, 2, 'x', 'y'};
  const auto files = unpacked_console(pack);
  ASSERT_EQ(files.size(), 1u);
  EXPECT_EQ(files[0].path, "a");
  EXPECT_EQ(files[0].content, "xy");
  for (std::size_t size = 0; size < pack.size(); ++size)
    EXPECT_THROW((void)unpacked_console(std::span(pack).first(size)), std::runtime_error) << size;
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
  EXPECT_THROW((void)console_files_in(folder_.path() / "none"), std::runtime_error);
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
