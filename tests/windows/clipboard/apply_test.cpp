// Received content on a real clipboard: the order of the calls, what they are given, every bad payload, and
// that nothing is written outside the scratch folder.
#include "support/bytes/png.h"
#include "tests/windows/clipboard/clipboard_seam.h"

namespace vlk::agent {
namespace {

using clip::Lines;
using clip::script;
using vantelink_test::number;
using vantelink_test::record;

template <typename... Records>
std::string list(std::uint32_t count, const Records&... records) {
  return number(count, 4) + (std::string() + ... + records);
}

class ApplyTest : public ClipboardTest {
 protected:
  void SetUp() override {
    ClipboardTest::SetUp();
    on_clipboard([] { put_text(L"what was there before"); });
  }

  static void apply(ClipboardKind kind, std::string_view content) { ApplyClipboard(payload(kind, content)); }
  static void apply_text(std::string_view text) { apply(ClipboardKind::Text, text); }
  static void apply_files(std::string_view content) { apply(ClipboardKind::Files, content); }

  // The whole block of CF_HDROP for files of these names in the scratch folder.
  static std::string drop(const std::vector<std::wstring>& names) {
    std::vector<std::wstring> paths;
    for (const std::wstring& name : names)
      paths.push_back(scratch() + name);
    return drop_block(paths);
  }
  static bool guard_is_set() { return ClipboardEchoGuardUntil == script.tick + 500; }
  // The names of the files in a folder and all below it.
  static std::vector<std::wstring> names_in(const std::filesystem::path& folder) {
    std::vector<std::wstring> names;
    std::error_code missing;
    for (const auto& found : std::filesystem::recursive_directory_iterator(folder, missing))
      names.push_back(found.path().lexically_relative(folder).wstring());
    std::sort(names.begin(), names.end());
    return names;
  }
};

TEST_F(ApplyTest, TextTakesThePlaceOfWhatWasThere) {
  apply_text("Þórður á 😀\n");
  EXPECT_EQ(held(CF_UNICODETEXT), wide_bytes(std::wstring(L"Þórður á 😀\n") + L'\0'));
  EXPECT_EQ(script.calls, Lines({"open", "empty", "set 13", "close", "tick"}))
      << "the guard begins when the clipboard is closed";
  EXPECT_EQ(script.memory_flags, unsigned{GMEM_MOVEABLE});
  EXPECT_TRUE(guard_is_set());
}

TEST_F(ApplyTest, EmptyPayloadDoesNothingAtAll) {
  ApplyClipboard({});
  EXPECT_TRUE(script.calls.empty());
  EXPECT_EQ(ClipboardEchoGuardUntil, 0u);
  EXPECT_FALSE(holds_nothing());
}

TEST_F(ApplyTest, KindOfTextAloneIsAnEmptyText) {
  ApplyClipboard({1});
  ASSERT_EQ(script.memory.size(), 1u);
  EXPECT_EQ(script.memory.begin()->second, 2u) << "bytes";
  EXPECT_EQ(held(CF_UNICODETEXT), std::string(2, '\0'));
  EXPECT_TRUE(guard_is_set());
}

TEST_F(ApplyTest, UnknownKindsEmptyTheClipboard) {
  for (const int kind : {0, 4, 7, 255}) {
    on_clipboard([] { put_text(L"before"); });
    for (const std::string content : {"", "some content"}) {
      ClipboardEchoGuardUntil = 0;
      script.calls.clear();
      apply(static_cast<ClipboardKind>(kind), content);
      EXPECT_EQ(script.calls, Lines({"open", "empty", "close", "tick"})) << kind;
      EXPECT_TRUE(holds_nothing());
      EXPECT_TRUE(guard_is_set());
    }
  }
}

TEST_F(ApplyTest, ZerosInATextSurvive) {
  apply_text(std::string_view("a\0b\0", 4));
  EXPECT_EQ(held(CF_UNICODETEXT), wide_bytes(std::wstring_view(L"a\0b\0\0", 5)));
}

TEST_F(ApplyTest, MalformedTextIsReplacedByTheSystemsRule) {
  for (const std::string text : {"a\xFFz", "\xC3", "\xED\xA0\x80", "\xC0\xAF", "\xF0\x9F\x98"}) {
    apply_text(text);
    EXPECT_EQ(held(CF_UNICODETEXT), wide_bytes(Utf8ToWide(text) + L'\0'));
    EXPECT_NE(Utf8ToWide(text).find(L'\uFFFD'), std::wstring::npos);
  }
}

TEST_F(ApplyTest, TextOfAMebibyteArrivesWhole) {
  std::string text;
  while (text.size() < 1 << 20)
    text += "línan " + std::to_string(text.size()) + '\n';
  apply_text(text);
  EXPECT_TRUE(held(CF_UNICODETEXT) == wide_bytes(Utf8ToWide(text) + L'\0'));
}

TEST_F(ApplyTest, ClipboardThatIsInUseLosesTheContentAndLeavesALine) {
  script.refuse_open = true;
  apply_text("lost");
  EXPECT_EQ(script.calls, Lines({"open"})) << "no second try";
  EXPECT_EQ(ClipboardEchoGuardUntil, 0u);
  EXPECT_EQ(held(CF_UNICODETEXT), wide_bytes(std::wstring(L"what was there before") + L'\0'));
}

TEST_F(ApplyTest, MemoryOfATextThatIsNotTakenIsNotFreed) {
  script.refuse_set = true;
  apply_text("abc");
  EXPECT_EQ(script.memory.size(), 1u);
  EXPECT_TRUE(guard_is_set());
}

TEST_F(ApplyTest, WithoutMemoryNothingIsSet) {
  script.refuse_memory = 8;
  apply_text("abc");
  EXPECT_EQ(script.calls, Lines({"open", "empty", "close", "tick"}));
  EXPECT_TRUE(holds_nothing());
  script.refuse_memory = drop({L"a"}).size();
  apply_files(list(1, record("a", "1")));
  EXPECT_TRUE(holds_nothing());
  EXPECT_EQ(read(scratch() + L"a"), "1") << "written before";
}

TEST_F(ApplyTest, FilesAreWrittenAndListedInOneBlock) {
  apply_files(list(2, record("a.txt", "alpha"), record("Þýðing 😀.bin", std::string_view("\0\xFF", 2))));
  EXPECT_EQ(read(scratch() + L"a.txt"), "alpha");
  EXPECT_EQ(read(scratch() + L"Þýðing 😀.bin"), std::string("\0\xFF", 2));
  EXPECT_EQ(held(CF_HDROP), drop({L"a.txt", L"Þýðing 😀.bin"}));
  EXPECT_EQ(script.calls,
            Lines({"open", "empty", "folder", "file a.txt 0x40000000 0 2 128", "write 5",
                   "file Þýðing 😀.bin 0x40000000 0 2 128", "write 2", "set 15", "close", "tick"}));
  EXPECT_EQ(script.memory_flags, unsigned{GMEM_MOVEABLE});
}

TEST_F(ApplyTest, MemoryOfFilesThatAreNotTakenIsFreed) {
  script.refuse_set = true;
  apply_files(list(1, record("a", "1")));
  EXPECT_TRUE(script.memory.empty());
}

TEST_F(ApplyTest, ListThatIsCutShortPublishesTheCompleteFiles) {
  apply_files(list(2, record("whole", "1")));
  EXPECT_EQ(held(CF_HDROP), drop({L"whole"}));
  const std::string both = list(2, record("one", "1"), record("two", "2"));
  apply_files(both.substr(0, both.size() - 1));
  EXPECT_EQ(held(CF_HDROP), drop({L"one"}));
  EXPECT_EQ(names_in(scratch()), std::vector<std::wstring>({L"one", L"whole"}));
}

TEST_F(ApplyTest, CountOfZeroMakesTheFolderAndEmptiesTheClipboard) {
  apply_files(list(0));
  EXPECT_TRUE(std::filesystem::is_directory(scratch()));
  EXPECT_TRUE(holds_nothing());
  EXPECT_TRUE(guard_is_set());
}

TEST_F(ApplyTest, FewerThanFourBytesDoNotEvenMakeTheFolder) {
  for (std::size_t size = 0; size < 4; ++size) {
    apply_files(std::string(size, '\1'));
    EXPECT_TRUE(holds_nothing());
    EXPECT_FALSE(std::filesystem::exists(scratch()));
    EXPECT_TRUE(guard_is_set());
  }
}

TEST_F(ApplyTest, NamesAreCutToTheirLastPart) {
  apply_files(list(2, record("../../evil.txt", "e"), record("sub\\a.txt", "a")));
  EXPECT_EQ(names_in(scratch()), std::vector<std::wstring>({L"a.txt", L"evil.txt"}));
  EXPECT_EQ(held(CF_HDROP), drop({L"evil.txt", L"a.txt"}));
}

TEST_F(ApplyTest, NamesOfNoUseAreSteppedOver) {
  for (const std::string name : {"..", ".", "", "a/", "a\\", "..\\.."}) {
    apply_files(list(2, record(name, "its bytes"), record("next", "n")));
    EXPECT_EQ(held(CF_HDROP), drop({L"next"})) << name;
    EXPECT_EQ(names_in(scratch()), std::vector<std::wstring>({L"next"})) << name;
  }
}

TEST_F(ApplyTest, EmptyFileIsMadeAndListed) {
  apply_files(list(1, record("empty", "")));
  EXPECT_EQ(script.calls,
            Lines({"open", "empty", "folder", "file empty 0x40000000 0 2 128", "set 15", "close", "tick"}))
      << "nothing is written";
  EXPECT_TRUE(std::filesystem::is_empty(scratch() + L"empty"));
  EXPECT_EQ(held(CF_HDROP), drop({L"empty"}));
}

TEST_F(ApplyTest, SecondFileOfANameOverwritesTheFirstAndBothAreListed) {
  apply_files(list(2, record("a", "the longer first"), record("a", "second")));
  EXPECT_EQ(read(scratch() + L"a"), "second");
  EXPECT_EQ(held(CF_HDROP), drop({L"a", L"a"}));
}

TEST_F(ApplyTest, LaterClipReplacesAFileOfTheSameName) {
  apply_files(list(2, record("kept", "1"), record("a", "something longer")));
  apply_files(list(1, record("a", "new")));
  EXPECT_EQ(read(scratch() + L"a"), "new");
  EXPECT_EQ(read(scratch() + L"kept"), "1") << "nothing cleans the folder";
  EXPECT_EQ(held(CF_HDROP), drop({L"a"}));
}

TEST_F(ApplyTest, FileThatCannotBeMadeIsLeftOut) {
  apply_files(list(0));
  std::filesystem::create_directory(scratch() + L"taken");
  apply_files(
      list(4, record("taken", "t"), record("que?stion", "q"), record("a<b|c", "p"), record("b", "2")));
  EXPECT_EQ(held(CF_HDROP), drop({L"b"}));
  const HANDLE in_use =
      CreateFileW((scratch() + L"b").c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr);
  apply_files(list(1, record("b", "3")));
  CloseHandle(in_use);
  EXPECT_TRUE(holds_nothing());
  EXPECT_EQ(read(scratch() + L"b"), "2");
}

TEST_F(ApplyTest, EveryTruncationAndEveryLyingLengthIsHarmless) {
  const std::string whole = list(2, record("one", "11"), record("two", "22"));
  for (std::size_t size = 0; size < whole.size(); ++size) {
    apply_files(std::string_view(whole).substr(0, size));
    EXPECT_EQ(held(CF_HDROP), size < whole.size() - 17 ? "" : drop({L"one"})) << size;
  }
  for (const std::uint64_t size : {std::uint64_t{3}, std::uint64_t{0xFFFFFFFF}, std::uint64_t{1} << 32,
                                   std::uint64_t{1} << 63, ~std::uint64_t{0}}) {
    apply_files(list(0xFFFFFFFF, record("one", "1"), number(3, 4), std::string("bad"), number(size, 8),
                     std::string("22")));
    EXPECT_EQ(held(CF_HDROP), drop({L"one"})) << size;
  }
  EXPECT_EQ(names_in(scratch()), std::vector<std::wstring>({L"one"}));
}

// Whatever a name holds, files appear in the scratch folder or nowhere.
TEST_F(ApplyTest, NothingIsWrittenOutsideTheScratchFolder) {
  namespace fs = std::filesystem;
  const fs::path here = temporary_folder() + L"clip-test";
  fs::create_directory(here);
  const fs::path before_here = fs::current_path();
  fs::current_path(here);
  // The current folder, that of temporary files and all above it.
  const auto outside = [&] {
    std::vector<fs::path> names;
    for (fs::path folder = here;; folder = folder.parent_path()) {
      for (const auto& found : fs::directory_iterator(folder)) {
        const fs::path name = found.path().filename();
        if (name != L"VlkClip" && name != L"vlkagent.log") names.push_back(found.path());
      }
      if (folder == folder.root_path()) return names;
    }
  };
  const std::vector<fs::path> before = outside();
  using namespace std::string_literals;
  for (const std::string& name : {"CON"s,
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
                                  "$(evil)"s}) {
    apply_files(list(2, record(name, "contents"), record("after", "a")));
    EXPECT_EQ(read(scratch() + L"after"), "a") << name;
    EXPECT_TRUE(guard_is_set()) << name;
  }
  EXPECT_EQ(outside(), before);
  fs::current_path(before_here);
  fs::remove(here);
}

TEST_F(ApplyTest, NameEndsForTheSystemAtItsFirstZero) {
  apply_files(list(1, record(std::string_view("a\0b", 3), "1")));
  EXPECT_EQ(names_in(scratch()), std::vector<std::wstring>({L"a"}));
}

// Pixels of a formula, red, green, blue, alpha.
std::string pixels(std::uint32_t width, std::uint32_t height) {
  std::string bytes;
  for (std::uint32_t y = 0; y < height; ++y) {
    for (std::uint32_t x = 0; x < width; ++x) {
      for (const std::uint32_t part : {x * 7 + y, x + y * 5, x * 3 + y * 11, x * 13 + y * 29})
        bytes += static_cast<char>(part);
    }
  }
  return bytes;
}

// The same as the clipboard should hold them: the header, then blue, green, red, alpha.
std::string bitmap(std::uint32_t width, std::uint32_t height, std::string bytes) {
  for (std::size_t at = 0; at < bytes.size(); at += 4)
    std::swap(bytes[at], bytes[at + 2]);
  BITMAPINFOHEADER header = {};
  header.biSize = 40;
  header.biWidth = static_cast<LONG>(width);
  header.biHeight = -static_cast<LONG>(height);
  header.biPlanes = 1;
  header.biBitCount = 32;
  return std::string(reinterpret_cast<const char*>(&header), sizeof header) + bytes;
}

void apply_png(std::string_view file) {
  ApplyClipboard(PackClip(ClipboardKind::Image, file));
}

TEST_F(ApplyTest, ImageBecomesATopDownBitmapWithItsAlpha) {
  for (const auto& [width, height] : {std::pair(3u, 2u), std::pair(1u, 1u), std::pair(65u, 33u)}) {
    script.calls.clear();
    apply_png(vantelink_test::make_png(width, height, pixels(width, height)));
    EXPECT_EQ(held(CF_DIB), bitmap(width, height, pixels(width, height))) << width;
    EXPECT_EQ(script.calls, Lines({"open", "empty", "stream", "set 8", "close", "tick"}));
    EXPECT_EQ(script.memory_flags, unsigned{GMEM_MOVEABLE});
    EXPECT_TRUE(guard_is_set());
  }
}

TEST_F(ApplyTest, UndecodableImagesLeaveTheClipboardEmpty) {
  const std::string good = vantelink_test::make_png(3, 2, pixels(3, 2));
  std::string broken_header = good;
  broken_header[18] = '\x7F';
  for (const std::string& file :
       {std::string(), std::string("\x89PNG"), std::string(1000, 'x'), good.substr(0, 20), broken_header}) {
    on_clipboard([] { put_text(L"before"); });
    ClipboardEchoGuardUntil = 0;
    apply_png(file);
    EXPECT_TRUE(holds_nothing());
    EXPECT_TRUE(guard_is_set());
  }
}

TEST_F(ApplyTest, EveryTruncationOfAnImageIsHarmless) {
  const std::string good = vantelink_test::make_png(3, 2, pixels(3, 2));
  for (std::size_t size = 0; size < good.size(); ++size) {
    apply_png(std::string_view(good).substr(0, size));
    EXPECT_TRUE(guard_is_set());
  }
}

TEST_F(ApplyTest, ImageWithoutMemoryOrStreamOrTakerIsLetGo) {
  const std::string file = vantelink_test::make_png(3, 2, pixels(3, 2));
  const std::size_t bitmap_size = bitmap(3, 2, pixels(3, 2)).size();
  script.refuse_stream = true;
  apply_png(file);
  EXPECT_TRUE(script.memory.empty()) << "the file's copy is freed";
  EXPECT_TRUE(holds_nothing());
  script.refuse_stream = false;
  script.refuse_memory = file.size();
  apply_png(file);
  EXPECT_TRUE(holds_nothing());
  script.refuse_memory = bitmap_size;
  apply_png(file);
  EXPECT_TRUE(holds_nothing());
  script.refuse_memory = ~std::size_t{0};
  script.refuse_set = true;
  apply_png(file);
  for (const auto& [memory, size] : script.memory)
    EXPECT_NE(size, bitmap_size) << "the bitmap is freed; the file's copy was its stream's to free";
}

TEST_F(ApplyTest, ImageWhosePixelsCannotBeHadLeavesTheClipboardEmpty) {
  script.refuse_pixels = true;
  apply_png(vantelink_test::make_png(3, 2, pixels(3, 2)));
  EXPECT_EQ(script.calls, Lines({"open", "empty", "stream", "close", "tick"}));
  EXPECT_TRUE(holds_nothing());
  EXPECT_TRUE(guard_is_set());
}

TEST_F(ApplyTest, AppliesWithoutASessionToo) {
  SetClipboardSessionActive(false);
  apply_text("x");
  EXPECT_EQ(held(CF_UNICODETEXT), wide_bytes(std::wstring_view(L"x\0", 2)));
}

TEST_F(ApplyTest, LogTellsWhatWasAppliedAndWhatCouldNotBe) {
  // The gate is looked at once per process; the variable is set before main.
  test::remove_debug_log();
  apply_text("abc");
  ApplyClipboard({7});
  script.refuse_open = true;
  ApplyClipboard({3, 0});
  EXPECT_EQ(test::debug_log(),
            "clipboard: apply kind=1 len=3 OpenClipboard OK\n"
            "clipboard: apply kind=7 len=0 OpenClipboard OK\n"
            "clipboard: apply kind=3 OpenClipboard FAILED err=5\n");
  test::remove_debug_log();
}

// Before any test, as the module asks only once.
[[maybe_unused]] const int log_requested = _putenv("VLK_DEBUG_INPUT=1");

}  // namespace
}  // namespace vlk::agent
