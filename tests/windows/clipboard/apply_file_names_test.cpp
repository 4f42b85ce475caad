// Names of received files: whatever a name contains, its file appears in the scratch folder or nowhere.
#include <filesystem>

#include "platform/win32/paths_win32.h"
#include "tests/windows/clipboard/apply_fixture.h"

namespace vlk::agent {
namespace {

namespace fs = std::filesystem;

using vantelink_test::record;

TEST_F(ApplyTest, OnlyTheLastPartOfAFileNameIsUsed) {
  apply_files(list(2, record("../../evil.txt", "e"), record("sub\\a.txt", "a")));
  EXPECT_EQ(names_in(scratch()), std::vector<std::wstring>({L"a.txt", L"evil.txt"}));
  EXPECT_EQ(held(CF_HDROP), drop({L"evil.txt", L"a.txt"}));
}

TEST_F(ApplyTest, FilesWithUnusableNamesAreSkipped) {
  for (const std::string name : {"..", ".", "", "a/", "a\\", "..\\.."}) {
    apply_files(list(2, record(name, "its bytes"), record("next", "n")));
    EXPECT_EQ(held(CF_HDROP), drop({L"next"})) << name;
    EXPECT_EQ(names_in(scratch()), std::vector<std::wstring>({L"next"})) << name;
  }
}

TEST_F(ApplyTest, FileNameEndsAtItsFirstZeroCharacter) {
  apply_files(list(1, record(std::string_view("a\0b", 3), "1")));
  EXPECT_EQ(names_in(scratch()), std::vector<std::wstring>({L"a"}));
}

using namespace std::string_literals;

// Names that would lead out of the scratch folder, or would not name a file, if they were used unchecked.
const std::string kHostileNames[] = {"CON"s,
                                     "NUL"s,
                                     "nul.txt"s,
                                     "COM1"s,
                                     "LPT9"s,
                                     "PRN"s,
                                     "AUX"s,
                                     "CONIN$"s,
                                     "C:"s,
                                     "C:evil"s,
                                     "a:stream"s,
                                     "...."s,
                                     ".. "s,
                                     ".. ."s,
                                     "..\0"s,
                                     "..\0x"s,
                                     "a\0..\\b"s,
                                     "\0"s,
                                     "\\\\?\\C:\\evil"s,
                                     "//srv/share/evil"s,
                                     "C:\\evil"s,
                                     "\xC0\xAE\xC0\xAE\xC0\xAF"
                                     "evil"s,
                                     "\xFF\xFE"s,
                                     "\xEF\xBC\x8F..\xEF\xBC\x8F"
                                     "evil"s,
                                     " "s,
                                     "evil "s,
                                     "evil."s,
                                     std::string(300, 'n'),
                                     std::string(70'000, 'n'),
                                     "*"s,
                                     "?"s,
                                     "\""s,
                                     "\n"s,
                                     "%TEMP%"s,
                                     "~"s,
                                     "$(evil)"s};

// Every path in the folder and in all folders above it, without those that the agent writes on purpose.
std::vector<fs::path> paths_around(const fs::path& here) {
  std::vector<fs::path> names;
  for (fs::path folder = here;; folder = folder.parent_path()) {
    for (const auto& found : fs::directory_iterator(folder)) {
      const fs::path name = found.path().filename();
      if (name != L"VlkClip" && name != L"vlkagent.log") names.push_back(found.path());
    }
    if (folder == folder.root_path()) return names;
  }
}

TEST_F(ApplyTest, FilesAreNeverWrittenOutsideTheScratchFolder) {
  const fs::path here = temporary_folder() + L"clip-test";
  fs::create_directory(here);
  const fs::path before_here = fs::current_path();
  fs::current_path(here);
  const std::vector<fs::path> before = paths_around(here);
  for (const std::string& name : kHostileNames) {
    apply_files(list(2, record(name, "contents"), record("after", "a")));
    EXPECT_EQ(read(scratch() + L"after"), "a") << name;
    EXPECT_TRUE(guard_is_set()) << name;
  }
  EXPECT_EQ(paths_around(here), before);
  fs::current_path(before_here);
  fs::remove(here);
}

}  // namespace
}  // namespace vlk::agent
