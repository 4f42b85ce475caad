// Calls of the shipped executable to Windows, as Wine's trace shows them: what happens to the objects of GDI+
// at the end, and which threads use files.
#include <filesystem>
#include <fstream>
#include <regex>
#include <set>

#include "e2e/support/shell_fixture.h"

namespace vantelink_test {
namespace {

namespace fs = std::filesystem;
using vlk::Msg;

constexpr std::uint32_t kSession = 4;
constexpr char kShutdown[] = "GdiplusShutdown";
constexpr unsigned kQuit = 0x0012;  // WM_QUIT

// One line of the trace: the beginning or the end of a call.
struct Call {
  std::string thread;  // Wine's number of the thread
  bool ended = false;
  std::string function;  // without the library's name
  std::string values;    // the arguments, or after "retval=" the result
};

class SystemCallsTest : public ShellTest {
 protected:
  static void SetUpTestSuite() {
    ShellTest::SetUpTestSuite();
    // Some functions of kernel32.dll are those of kernelbase.dll, and the trace names either library.
    std::string traced = "gdiplus.*";
    for (const char* const library : {"kernel32", "kernelbase"})
      for (const char* const function : {"SetThreadErrorMode", "SetErrorMode", "CreateFileA", "CreateFileW",
                                         "FindFirstFileW", "FindFirstFileExW"})
        traced += std::string(";") + library + '.' + function;
    EXPECT_EQ(
        desk->exec({"reg", "add", R"(HKCU\Software\Wine\Debug)", "/v", "RelayInclude", "/d", traced, "/f"}),
        0);
  }

  std::unique_ptr<ServerConnection> start_traced() {
    earlier_.clear();
    for (const auto& file : outputs())
      earlier_.insert(file);
    auto peer = start({}, {"WINEDEBUG=+relay"});
    peer->read_until(Msg::Enroll);
    return peer;
  }

  // The calls of the program that start_traced started.
  std::vector<Call> calls() const {
    static const std::regex kLine(R"(([0-9a-f]{4}):(Call|Ret ) +\w+\.(\w+)\((.*))");
    std::vector<Call> found;
    for (const auto& file : outputs()) {
      if (earlier_.contains(file)) continue;
      std::ifstream trace(file);
      std::smatch parts;
      for (std::string text; std::getline(trace, text);)
        if (std::regex_match(text, parts, kLine))
          found.push_back({parts[1], parts[2] == "Ret ", parts[3], parts[4]});
    }
    return found;
  }

 private:
  static std::vector<std::string> outputs() {
    std::vector<std::string> files;
    for (const auto& folder : fs::directory_iterator(desk->folder() + "/out"))
      files.push_back(folder.path() / "stderr");
    return files;
  }

  std::set<std::string> earlier_;
};

// Counts the objects of GDI+ in a trace.
class GdiPlusObjects {
 public:
  void follow(const Call& call) {
    if (!call.function.starts_with("Gdip")) return;
    const bool creates =
        call.function.starts_with("GdipCreate") || call.function.starts_with("GdipLoadImage");
    if (creates && call.ended && call.values.find("retval=00000000") != std::string::npos) {
      ++live_;
      ++created_;
    }
    if (!call.ended && (call.function == "GdipDisposeImage" || call.function.starts_with("GdipDelete")))
      --live_;
  }
  int live() const { return live_; }
  int created() const { return created_; }

 private:
  int live_ = 0;
  int created_ = 0;
};

TEST_F(SystemCallsTest, NoObjectOfGdiPlusExistsAtItsShutdown) {
  for (const bool by_quit : {false, true}) {
    const auto peer = start_traced();
    peer->send_envelope(Msg::StreamStart, kSession, R"({"max_fps":10})");
    peer->read_until(Msg::StreamFrame);
    settle();
    // A message loop ends at WM_QUIT, also if the window still exists and a stream runs.
    post(*desk, by_quit ? kQuit : kCommand, by_quit ? 0 : kMenuExit, 0);
    ASSERT_TRUE(ends());

    GdiPlusObjects objects;
    int at_shutdown = -1;
    for (const Call& call : calls()) {
      EXPECT_FALSE(at_shutdown >= 0 && call.function.starts_with("Gdip") && call.function != kShutdown)
          << call.function << " after the shutdown";
      objects.follow(call);
      if (call.function == kShutdown) at_shutdown = objects.live();
    }
    EXPECT_EQ(at_shutdown, 0) << (by_quit ? "ended by WM_QUIT" : "ended by the tray menu");
    EXPECT_GE(objects.created(), 3) << "the logo, what draws it, and a picture of the stream";
  }
}

TEST_F(SystemCallsTest, FileErrorsOfEachThreadThatUsesFilesShowNoMessageBoxes) {
  const auto peer = start_traced();
  peer->send_envelope(Msg::DirListRequest, kSession, R"({"path":"C:\\windows"})");
  peer->read_until(Msg::DirListResult);
  peer->send_envelope(Msg::DownloadRequest, kSession, R"({"path":"C:\\windows\\win.ini","transfer_id":1})");
  peer->read_until(Msg::FileTransferEnd);
  peer->send_envelope(Msg::StreamStart, kSession, R"({"max_fps":10})");  // writes to the debug log
  peer->read_until(Msg::StreamFrame);
  post(*desk, kCommand, kMenuExit, 0);
  ASSERT_TRUE(ends());

  std::set<std::string> quiet, users;
  for (const Call& call : calls()) {
    EXPECT_NE(call.function, "SetErrorMode") << "programs that the agent starts inherit the process's mode";
    if (call.ended) continue;
    if (call.function == "SetThreadErrorMode") {
      EXPECT_TRUE(call.values.starts_with("00008001,00000000)")) << call.values;
      quiet.insert(call.thread);
    } else if (call.function.starts_with("CreateFile") || call.function.starts_with("FindFirstFile")) {
      EXPECT_TRUE(quiet.contains(call.thread)) << call.function << '(' << call.values;
      users.insert(call.thread);
    }
  }
  EXPECT_GE(users.size(), 4u) << "the window's, the connection's, the download's and the stream's thread";
  EXPECT_GT(quiet.size(), users.size()) << "the update check's thread, which uses no file, is prepared too";
}

}  // namespace
}  // namespace vantelink_test
