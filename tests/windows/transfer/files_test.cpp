// Directory listings, downloads and uploads on the real file system, with the Windows calls recorded.
#include <condition_variable>
#include <filesystem>
#include <fstream>
#include <mutex>

#include <gtest/gtest.h>

#include "platform/files/file_system.h"
#include "platform/text.h"
#include "platform/win32/paths_win32.h"
#include "support/bytes/file_bytes.h"
#include "tests/windows/support/seam.h"
#include "transfer/directory.h"
#include "transfer/file_transfer.h"
#include "wire/json.h"

namespace {

std::vector<std::wstring> created;   // arguments of CreateDirectoryW
std::vector<std::wstring> opened;    // path and mode given to _wfopen, with a blank between them
std::vector<std::wstring> searched;  // arguments of FindFirstFileW
int open_searches = 0;
bool security_given = false;
DWORD drives = 0;  // 0 means the system's own drives

BOOL WINAPI create_directory(LPCWSTR path, LPSECURITY_ATTRIBUTES security) {
  static auto* const system = vlk::test::real<decltype(create_directory)>("kernel32.dll", "CreateDirectoryW");
  created.push_back(path);
  security_given |= security != nullptr;
  return system(path, security);
}

FILE* __cdecl wfopen(const wchar_t* path, const wchar_t* mode) {
  static auto* const system = vlk::test::real<decltype(wfopen)>("msvcrt.dll", "_wfopen");
  opened.push_back(std::wstring(path) + L' ' + mode);
  return system(path, mode);
}

HANDLE WINAPI find_first(LPCWSTR pattern, LPWIN32_FIND_DATAW data) {
  static auto* const system = vlk::test::real<decltype(find_first)>("kernel32.dll", "FindFirstFileW");
  searched.push_back(pattern);
  const HANDLE handle = system(pattern, data);
  if (handle != INVALID_HANDLE_VALUE) ++open_searches;
  return handle;
}

BOOL WINAPI find_close(HANDLE handle) {
  static auto* const system = vlk::test::real<decltype(find_close)>("kernel32.dll", "FindClose");
  --open_searches;
  return system(handle);
}

DWORD WINAPI logical_drives() {
  static auto* const system = vlk::test::real<decltype(logical_drives)>("kernel32.dll", "GetLogicalDrives");
  return drives == 0 ? system() : drives;
}

}  // namespace

extern "C" {
void* __imp_CreateDirectoryW = reinterpret_cast<void*>(create_directory);
void* __imp__wfopen = reinterpret_cast<void*>(wfopen);
void* __imp_FindFirstFileW = reinterpret_cast<void*>(find_first);
void* __imp_FindClose = reinterpret_cast<void*>(find_close);
void* __imp_GetLogicalDrives = reinterpret_cast<void*>(logical_drives);
}

namespace vlk::agent {
namespace {

using Lines = std::vector<std::wstring>;

class Files : public testing::Test {
 protected:
  void SetUp() override {
    // Each test has a folder of its own, because a folder with an open file cannot be removed.
    static int number = 0;
    root_ = temporary_folder() + L"vlk-files-" + std::to_wstring(++number);
    std::filesystem::create_directory(root_);
    drives = 0;
    forget();
  }
  void TearDown() override {
    std::error_code ignored;
    std::filesystem::remove_all(root_, ignored);
  }
  static void forget() {
    created.clear();
    opened.clear();
    searched.clear();
  }

  std::wstring below(const wchar_t* name) const { return root_ + L'\\' + name; }
  std::string utf8(const wchar_t* name) const { return WideToUtf8(below(name)); }
  void write(const wchar_t* name, const std::string& bytes) const {
    std::ofstream(std::filesystem::path(below(name)), std::ios::binary) << bytes;
  }
  std::string read(const wchar_t* name) const { return vantelink_test::file_bytes(below(name)); }
  std::string list() const { return ListDirectory(WideToUtf8(root_)); }

  std::wstring root_;
};

void put(std::uint32_t id, const std::string& bytes) {
  WriteUploadChunk(id, reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
}

TEST_F(Files, DrivesReportedByTheSystemAreListed) {
  drives = 1u << 2 | 1u << 4;
  EXPECT_EQ(ListDirectory(""),
            R"({"path":"","parent":"","entries":[{"name":"C:","path":"C:\\","dir":true,"size":0,"mtime":0},)"
            R"({"name":"E:","path":"E:\\","dir":true,"size":0,"mtime":0}]})");
  drives = 0;
  EXPECT_NE(ListDirectory("").find(R"("path":"C:\\")"), std::string::npos);
}

TEST_F(Files, ListingOfAnEmptyFolderHasAnEmptyArrayAndTheSearchIsClosed) {
  EXPECT_NE(list().find("\"entries\":[]}"), std::string::npos);
  EXPECT_EQ(searched, Lines({root_ + L"\\*"}));
  EXPECT_EQ(open_searches, 0);
}

TEST_F(Files, SearchPatternIsThePathWithOneBackslashAndAStar) {
  ListDirectory("C:");
  ListDirectory("C:\\");
  ListDirectory("C:/temp/");
  ListDirectory("x");
  EXPECT_EQ(searched, Lines({L"C:\\*", L"C:\\*", L"C:/temp/\\*", L"x\\*"}));
  EXPECT_EQ(open_searches, 0);
}

TEST_F(Files, EntriesHaveNameKindSizeAndTime) {
  write(L"h\u00f6fn's \U0001F600.txt", "12345");
  std::filesystem::create_directory(below(L"inner"));
  const HANDLE file = CreateFileW(below(L"old").c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr);
  ASSERT_NE(file, INVALID_HANDLE_VALUE);
  LARGE_INTEGER size;
  size.QuadPart = 0x1'2345'6789;
  EXPECT_TRUE(SetFilePointerEx(file, size, nullptr, FILE_BEGIN) && SetEndOfFile(file));
  // Almost two seconds after the start of 1970.
  const std::uint64_t ticks = 0x19DB1DED53E8000 + 19'999'999;
  const FILETIME time = {static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
  EXPECT_TRUE(SetFileTime(file, nullptr, nullptr, &time));
  CloseHandle(file);
  const std::string text = list();
  EXPECT_NE(text.find("{\"name\":\"höfn's 😀.txt\",\"path\":\""), std::string::npos) << text;
  EXPECT_NE(text.find("\\\\höfn's 😀.txt\",\"dir\":false,\"size\":5,"), std::string::npos) << text;
  EXPECT_NE(text.find("\\\\inner\",\"dir\":true,\"size\":0,"), std::string::npos) << text;
  EXPECT_NE(text.find("\\\\old\",\"dir\":false,\"size\":4886718345,\"mtime\":1}"), std::string::npos) << text;
  EXPECT_EQ(text.find("\"name\":\".\""), std::string::npos);
  EXPECT_EQ(text.find("\"name\":\"..\""), std::string::npos);
}

TEST_F(Files, HiddenAndSystemFilesAreListed) {
  write(L"hidden", "");
  SetFileAttributesW(below(L"hidden").c_str(), FILE_ATTRIBUTE_HIDDEN | FILE_ATTRIBUTE_SYSTEM);
  EXPECT_NE(list().find("\"name\":\"hidden\""), std::string::npos);
}

TEST_F(Files, PathThatIsNotAFolderIsListedAsEmpty) {
  write(L"file", "x");
  for (const std::string& path :
       {utf8(L"missing"), utf8(L"file"), std::string("Q:\\"), std::string("\\\\srv\\share\\d"),
        utf8(L"a<b|c"), std::string("\xFF\xFE"), std::string(40'000, 'y')}) {
    const std::string text = ListDirectory(path);
    EXPECT_NE(text.find("\"entries\":[]}"), std::string::npos) << path.substr(0, 80);
    EXPECT_EQ(read_string(text, "path").value, path);
  }
  EXPECT_EQ(open_searches, 0);
}

TEST_F(Files, UploadCreatesEachFolderFromTheTop) {
  BeginUpload(1, utf8(L"new\\sub\\f.txt"), 3);
  put(1, "a\nb\r\n\x1A");
  EndUpload(1);
  EXPECT_EQ(opened, Lines({below(L"new\\sub\\f.txt") + L" wb"}));
  EXPECT_EQ(read(L"new\\sub\\f.txt"), "a\nb\r\n\x1A") << "bytes must be written unchanged";
  ASSERT_GE(created.size(), 2u);
  EXPECT_EQ(Lines(created.end() - 2, created.end()), Lines({below(L"new"), below(L"new\\sub")}));
  EXPECT_EQ(created.front().size(), root_.find(L'\\', 3)) << "the root itself is not created";
  EXPECT_FALSE(security_given);
}

TEST_F(Files, ParentFoldersOfAPathAreCreatedInOrder) {
  EnsureParentDirectories(L"Q:\\new\\sub\\f.txt");
  EXPECT_EQ(created, Lines({L"Q:\\new", L"Q:\\new\\sub"}));
  forget();
  EnsureParentDirectories(L"Q:\\");
  EnsureParentDirectories(L"Q:\\f");
  EnsureParentDirectories(L"Q:/new/sub/f.txt");
  EXPECT_TRUE(created.empty());
  EnsureParentDirectories(L"Q:\\d\\");
  EXPECT_EQ(created, Lines({L"Q:\\d"}));
}

TEST_F(Files, UploadToAPathThatCannotBeOpenedFailsSilently) {
  std::filesystem::create_directory(below(L"folder"));
  for (const std::string& path : {utf8(L"folder"), utf8(L"a<b"), std::string("Q:\\x"), std::string()}) {
    BeginUpload(2, path, 1);
    put(2, "x");
    EndUpload(2);
  }
  EXPECT_EQ(opened.size(), 4u);
}

TEST_F(Files, InvalidUtf8InAPathIsReplaced) {
  BeginUpload(2, WideToUtf8(root_) + "\\sub\xC3\\\xFFz", 1);
  put(2, "x");
  EndUpload(2);
  EXPECT_EQ(read(L"sub\uFFFD\\\uFFFDz"), "x");
}

TEST_F(Files, SecondUploadWithTheSameIdLeavesTheFirstFileOpen) {
  BeginUpload(1, utf8(L"first"), 0);
  put(1, "one");
  BeginUpload(1, utf8(L"second"), 0);
  put(1, "two");
  EndUpload(1);
  EXPECT_EQ(read(L"second"), "two");
  EXPECT_EQ(read(L"first"), "") << "its bytes are still in the file's buffer";
}

TEST_F(Files, DownloadSendsEveryByteAndTheEndMessage) {
  std::string bytes(262145, '\0');
  for (std::size_t i = 0; i < bytes.size(); ++i)
    bytes[i] = static_cast<char>(i * 31 >> 3);
  const std::wstring name = std::wstring(199, L'n') + L'\u00fe';
  write(name.c_str(), bytes);
  forget();
  // Static, because the download's thread may use them after the test ends.
  static std::mutex lock;
  static std::condition_variable changed;
  static std::string received, end;
  StartDownload(1, 7, utf8(name.c_str()),
                [](Msg type, unsigned int, const unsigned char* data, std::size_t size, unsigned char) {
                  const std::lock_guard<std::mutex> guard(lock);
                  const std::string text(reinterpret_cast<const char*>(data), size);
                  if (type == Msg::FileChunk) received += text.substr(8);
                  if (type == Msg::FileTransferEnd) end = text;
                  changed.notify_all();
                  return true;
                });
  std::unique_lock<std::mutex> guard(lock);
  ASSERT_TRUE(changed.wait_for(guard, std::chrono::seconds(30), [] { return !end.empty(); }));
  EXPECT_EQ(end, R"({"transfer_id":7,"ok":true})");
  EXPECT_TRUE(received == bytes);
  EXPECT_EQ(opened, Lines({below(name.c_str()) + L" rb"}));
}

}  // namespace
}  // namespace vlk::agent
