// Received files on a real clipboard: where they are written, how they are listed, and every bad payload.
#include <filesystem>

#include "clipboard/apply_win32.h"
#include "tests/windows/clipboard/apply_fixture.h"

namespace vlk::agent {
namespace {

using clip::Lines;
using clip::script;
using vantelink_test::number;
using vantelink_test::record;

TEST_F(ApplyTest, ReceivedFilesAreWrittenToTheFolderAndListedOnTheClipboard) {
  apply_files(list(2, record("a.txt", "alpha"), record("Þýðing 😀.bin", std::string_view("\0\xFF", 2))));
  EXPECT_EQ(read(scratch() + L"a.txt"), "alpha");
  EXPECT_EQ(read(scratch() + L"Þýðing 😀.bin"), std::string("\0\xFF", 2));
  EXPECT_EQ(held(CF_HDROP), drop({L"a.txt", L"Þýðing 😀.bin"}));
  EXPECT_EQ(script.calls,
            Lines({"open", "empty", "folder", "file a.txt 0x40000000 0 2 128", "write 5",
                   "file Þýðing 😀.bin 0x40000000 0 2 128", "write 2", "set 15", "close", "tick"}));
  EXPECT_EQ(script.memory_flags, unsigned{GMEM_MOVEABLE});
}

TEST_F(ApplyTest, ClipboardStaysEmptyIfMemoryCannotBeAllocated) {
  script.refuse_memory = 8;
  apply_text("abc");
  EXPECT_EQ(script.calls, Lines({"open", "empty", "close", "tick"}));
  EXPECT_TRUE(holds_nothing());
  script.refuse_memory = drop({L"a"}).size();
  apply_files(list(1, record("a", "1")));
  EXPECT_TRUE(holds_nothing());
  EXPECT_EQ(read(scratch() + L"a"), "1") << "files are written before the memory is allocated";
}

TEST_F(ApplyTest, MemoryIsFreedIfTheClipboardRefusesTheFiles) {
  script.refuse_set = true;
  apply_files(list(1, record("a", "1")));
  EXPECT_TRUE(script.memory.empty());
}

TEST_F(ApplyTest, TruncatedListPublishesItsCompleteFiles) {
  apply_files(list(2, record("whole", "1")));
  EXPECT_EQ(held(CF_HDROP), drop({L"whole"}));
  const std::string both = list(2, record("one", "1"), record("two", "2"));
  apply_files(both.substr(0, both.size() - 1));
  EXPECT_EQ(held(CF_HDROP), drop({L"one"}));
  EXPECT_EQ(names_in(scratch()), std::vector<std::wstring>({L"one", L"whole"}));
}

TEST_F(ApplyTest, FileCountOfZeroCreatesTheFolderAndEmptiesTheClipboard) {
  apply_files(list(0));
  EXPECT_TRUE(std::filesystem::is_directory(scratch()));
  EXPECT_TRUE(holds_nothing());
  EXPECT_TRUE(guard_is_set());
}

TEST_F(ApplyTest, PayloadOfFewerThanFourBytesCreatesNoFolder) {
  for (std::size_t size = 0; size < 4; ++size) {
    apply_files(std::string(size, '\1'));
    EXPECT_TRUE(holds_nothing());
    EXPECT_FALSE(std::filesystem::exists(scratch()));
    EXPECT_TRUE(guard_is_set());
  }
}

TEST_F(ApplyTest, EmptyFileIsCreatedAndListed) {
  apply_files(list(1, record("empty", "")));
  EXPECT_EQ(script.calls,
            Lines({"open", "empty", "folder", "file empty 0x40000000 0 2 128", "set 15", "close", "tick"}))
      << "no bytes are written to an empty file";
  EXPECT_TRUE(std::filesystem::is_empty(scratch() + L"empty"));
  EXPECT_EQ(held(CF_HDROP), drop({L"empty"}));
}

TEST_F(ApplyTest, SecondFileOfTheSameNameOverwritesTheFirstAndBothAreListed) {
  apply_files(list(2, record("a", "the longer first"), record("a", "second")));
  EXPECT_EQ(read(scratch() + L"a"), "second");
  EXPECT_EQ(held(CF_HDROP), drop({L"a", L"a"}));
}

TEST_F(ApplyTest, LaterPayloadReplacesAFileOfTheSameName) {
  apply_files(list(2, record("kept", "1"), record("a", "something longer")));
  apply_files(list(1, record("a", "new")));
  EXPECT_EQ(read(scratch() + L"a"), "new");
  EXPECT_EQ(read(scratch() + L"kept"), "1") << "earlier files stay in the folder";
  EXPECT_EQ(held(CF_HDROP), drop({L"a"}));
}

TEST_F(ApplyTest, FileThatCannotBeCreatedIsLeftOut) {
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

TEST_F(ApplyTest, EveryTruncationOfAFileListAndEveryWrongLengthIsHarmless) {
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

}  // namespace
}  // namespace vlk::agent
