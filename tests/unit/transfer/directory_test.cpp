// Listings of real folders, and the parts of a listing that need no folder.
#include "transfer/directory.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "support/temp_folder.h"
#include "wire/json.h"

namespace vlk::agent {
namespace {

using vantelink_test::TempFolder;

std::string escaped(const std::string& path) {
  std::string text;
  for (const char c : path)
    text += c == '\\' ? std::string("\\\\") : std::string(1, c);
  return text;
}

std::string entry(const std::string& folder, const std::string& name, const char* dir, const char* size,
                  const char* mtime) {
  return "{\"name\":\"" + name + "\",\"path\":\"" + escaped(folder) + "\\\\" + name + "\",\"dir\":" + dir +
         ",\"size\":" + size + ",\"mtime\":" + mtime + '}';
}

void set_time(const std::filesystem::path& path, time_t seconds) {
  const timespec times[2] = {{seconds, 0}, {seconds, 999'999'999}};
  ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
}

std::size_t count_of(const std::string& text, const std::string& part) {
  std::size_t count = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size()))
    ++count;
  return count;
}

TEST(Directory, DrivesAreListedInOrderWithoutSizeOrTime) {
  EXPECT_EQ(DriveEntries(1u << 2 | 1u << 4), R"([{"name":"C:","path":"C:\\","dir":true,"size":0,"mtime":0},)"
                                             R"({"name":"E:","path":"E:\\","dir":true,"size":0,"mtime":0}])");
  EXPECT_EQ(DriveEntries(0), "[]");
  EXPECT_EQ(count_of(DriveEntries(0xFFFFFFFF), "\"name\""), 26u);
  EXPECT_EQ(
      ListDirectory(""),
      R"({"path":"","parent":"","entries":[{"name":"C:","path":"C:\\","dir":true,"size":0,"mtime":0}]})");
}

TEST(Directory, ParentFolderIsThePartOfThePathBeforeTheLastBackslash) {
  const struct {
    const char *path, *parent;
  } rows[] = {{"", ""},
              {"C:\\Users\\Bob", "C:\\Users"},
              {"C:\\Users\\Bob\\", "C:\\Users"},
              {"C:\\Users", "C:"},
              {"C:\\", ""},
              {"C:", ""},
              {"x", ""},
              {"\\", ""},
              {"\\x", ""},
              {"a\\x", ""},
              {"\\\\srv", ""},
              {"\\\\srv\\share", "\\\\srv"},
              {"\\\\srv\\share\\d", "\\\\srv\\share"},
              {"C:\\a\\\\", "C:\\a"},
              {"C:/temp/", ""},
              {"ab\\c", "ab"}};
  for (const auto& row : rows)
    EXPECT_EQ(ParentPath(row.path), row.parent) << row.path;
}

TEST(Directory, TimesBefore1970WrapAround) {
  EXPECT_EQ(UnixSeconds(0x19DB1DED53E8000), 0u);
  EXPECT_EQ(UnixSeconds(0x19DB1DED53E8000 + 19'999'999), 1u);
  EXPECT_EQ(UnixSeconds(0x19DB1DED53E8000 - 10'000'000), (~std::uint64_t{0} - 9'999'999) / 10'000'000);
  EXPECT_EQ(UnixSeconds(0), (~std::uint64_t{0} - 0x19DB1DED53E7FFF) / 10'000'000);
}

TEST(Directory, ListingOfAnEmptyFolderHasAnEmptyArray) {
  const TempFolder folder;
  const std::string path = folder.windows_path();
  EXPECT_EQ(ListDirectory(path), "{\"path\":\"" + escaped(path) + "\",\"parent\":\"" +
                                     escaped(ParentPath(path)) + "\",\"entries\":[]}");
}

TEST(Directory, EntriesHaveNamePathKindSizeAndTime) {
  const TempFolder folder;
  folder.write("höfn's 😀.txt", "12345");
  std::filesystem::create_directory(folder.path() / "inner");
  set_time(folder.path() / "höfn's 😀.txt", 1'700'000'000);
  set_time(folder.path() / "inner", 86400);
  // The path is listed with and without a backslash at its end. The entries' paths are the same.
  for (const std::string& path : {folder.windows_path(), folder.windows_path() + '\\'}) {
    const std::string text = ListDirectory(path);
    EXPECT_NE(text.find(entry(folder.windows_path(), "höfn's 😀.txt", "false", "5", "1700000000")),
              std::string::npos)
        << text;
    EXPECT_NE(text.find(entry(folder.windows_path(), "inner", "true", "0", "86400")), std::string::npos)
        << text;
    EXPECT_EQ(count_of(text, "\"name\""), 2u);
    EXPECT_NE(text.find("},{"), std::string::npos);
  }
}

TEST(Directory, SizesOfMoreThan32BitsAreListed) {
  const TempFolder folder;
  folder.write("large", "");
  ASSERT_EQ(::truncate((folder.path() / "large").c_str(), 0x1'2345'6789), 0);
  EXPECT_NE(ListDirectory(folder.windows_path()).find("\"size\":4886718345,"), std::string::npos);
}

TEST(Directory, PathThatIsNotAFolderIsListedAsEmpty) {
  const TempFolder folder;
  folder.write("file", "x");
  std::filesystem::create_directory(folder.path() / "locked");
  folder.write("locked/hidden", "x");
  std::filesystem::permissions(folder.path() / "locked", std::filesystem::perms::none);
  std::vector<std::string> paths = {folder.windows_path("missing"), folder.windows_path("file"), "x",
                                    std::string(100'000, 'y')};
  if (::geteuid() != 0) paths.push_back(folder.windows_path("locked"));
  for (const std::string& path : paths) {
    EXPECT_NE(ListDirectory(path).find("\"entries\":[]}"), std::string::npos) << path.substr(0, 100);
  }
  std::filesystem::permissions(folder.path() / "locked", std::filesystem::perms::owner_all);
}

TEST(Directory, BackslashIsAppendedToAPathThatEndsWithASlash) {
  const TempFolder folder;
  folder.write("file", "x");
  const std::string path = folder.windows_path() + '/';
  const std::string text = ListDirectory(path);
  EXPECT_NE(text.find("/\\\\file\""), std::string::npos) << text;
  EXPECT_EQ(read_string(text, "path").value, path);
}

TEST(Directory, PathThatIsNotUtf8IsReturnedUnchanged) {
  const TempFolder folder;
  folder.write("file", "x");
  for (const std::string bad : {"\xFF\xFE", "\xC3", "\xED\xA0\x80", "\x01\x02"}) {
    const std::string path = folder.windows_path(bad);
    const std::string text = ListDirectory(path);
    EXPECT_EQ(read_string(text, "path").value, path);
    EXPECT_NE(text.find("\"entries\":[]}"), std::string::npos);
  }
  // The system ends the path at its first zero character, but the listing returns the whole path.
  const std::string cut = folder.windows_path() + std::string("\0junk", 5);
  EXPECT_EQ(read_string(ListDirectory(cut), "path").value, cut);
}

TEST(Directory, NamesWithQuotesAndTabsAreEscaped) {
  const TempFolder folder;
  folder.write("a\"b\tc\nd", "");
  EXPECT_NE(ListDirectory(folder.windows_path()).find("\"name\":\"a\\\"b\\tc\\nd\""), std::string::npos);
}

TEST(Directory, TwentyThousandEntriesAreListedInTheSystemsOrder) {
  const TempFolder folder;
  for (int i = 0; i < 20'000; ++i)
    folder.write(std::to_string(i), "");
  std::string expected;
  for (const auto& found : std::filesystem::directory_iterator(folder.path()))
    expected += found.path().filename().string() + ' ';
  const std::string text = ListDirectory(folder.windows_path());
  std::string names;
  const std::string key = "{\"name\":\"";
  for (std::size_t at = text.find(key); at != std::string::npos; at = text.find(key, at + 1)) {
    const std::size_t start = at + key.size();
    names += text.substr(start, text.find('"', start) - start) + ' ';
  }
  EXPECT_EQ(names, expected);
}

}  // namespace
}  // namespace vlk::agent
