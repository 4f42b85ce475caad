// Clipboard payloads: reading valid, truncated and inconsistent file lists, and packing.
#include "clipboard/payload.h"

#include <cstring>
#include <limits>
#include <memory>

#include <gtest/gtest.h>

#include "support/bytes/clip_bytes.h"

namespace vlk::agent {
namespace {

using vantelink_test::number;
using vantelink_test::record;
using Bytes = std::vector<std::uint8_t>;
using Names = std::vector<std::string>;

struct Read {
  std::string name, data;
  bool operator==(const Read&) const = default;
};

// Reads a copy in memory of exactly its size, so that a sanitizer reports a read past the end.
std::vector<Read> read(std::string_view content) {
  const auto copy = std::make_unique<std::uint8_t[]>(content.size());
  std::memcpy(copy.get(), content.data(), content.size());
  std::vector<Read> files;
  for (const ClipFile& file : ReadClipFiles(copy.get(), content.size()))
    files.push_back({file.name, std::string(reinterpret_cast<const char*>(file.data), file.size)});
  return files;
}

Bytes bytes(std::string_view text) {
  return {text.begin(), text.end()};
}

TEST(ClipFiles, FilesAreReadInOrder) {
  EXPECT_EQ(
      read(number(3, 4) + record("a.txt", "alpha") + record("Þýðing 😀.bin", std::string("\0\xFF", 2)) +
           record("empty", "")),
      (std::vector<Read>{{"a.txt", "alpha"}, {"Þýðing 😀.bin", std::string("\0\xFF", 2)}, {"empty", ""}}));
}

TEST(ClipFiles, CountOfZeroAndIncompleteCountGiveNoFiles) {
  EXPECT_TRUE(read("").empty());
  EXPECT_TRUE(read(std::string(3, '\0')).empty());
  EXPECT_TRUE(read(number(0, 4) + record("a", "b")).empty());
}

TEST(ClipFiles, AllRecordsAreReadIfTheCountIsTooHigh) {
  EXPECT_EQ(read(number(2, 4) + record("a", "b")), (std::vector<Read>{{"a", "b"}}));
  EXPECT_EQ(read(number(0xFFFFFFFF, 4) + record("a", "b")), (std::vector<Read>{{"a", "b"}}));
}

TEST(ClipFiles, RecordsBeyondTheCountAreIgnored) {
  EXPECT_EQ(read(number(1, 4) + record("a", "1") + record("b", "2")), (std::vector<Read>{{"a", "1"}}));
}

TEST(ClipFiles, TruncatedListGivesItsCompleteFiles) {
  const std::string first = number(3, 4) + record("one", "1");
  const std::string second = first + record("two", "22");
  const std::string whole = second + record("three", "333");
  for (std::size_t length = 0; length <= whole.size(); ++length) {
    const std::size_t complete = length == whole.size()    ? 3
                                 : length >= second.size() ? 2
                                 : length >= first.size()  ? 1
                                                           : 0;
    EXPECT_EQ(read(whole.substr(0, length)).size(), complete) << length;
  }
}

TEST(ClipFiles, LengthsBeyondThePayloadEndTheList) {
  for (const std::uint64_t size :
       {std::uint64_t{2}, std::uint64_t{0x7FFFFFFF}, std::uint64_t{0xFFFFFFFF}, std::uint64_t{1} << 32,
        (std::uint64_t{1} << 32) + 1, std::uint64_t{1} << 63, std::numeric_limits<std::uint64_t>::max() - 1,
        std::numeric_limits<std::uint64_t>::max()}) {
    EXPECT_EQ(read(number(9, 4) + record("a", "b") + number(1, 4) + "c" + number(size, 8) + "d"),
              (std::vector<Read>{{"a", "b"}}))
        << size;
  }
  for (const std::uint64_t length : {std::uint64_t{10}, std::uint64_t{0x7FFFFFFF}, std::uint64_t{0xFFFFFFFF}})
    EXPECT_EQ(read(number(9, 4) + record("a", "b") + number(length, 4) + "c" + number(0, 8)),
              (std::vector<Read>{{"a", "b"}}))
        << length;
}

TEST(ClipFiles, RecordWithoutAUsableNameIsSkipped) {
  for (const char* name : {"..", ".", "", "a/", "a\\", "/", "..\\..\\..", "x/.."}) {
    EXPECT_EQ(read(number(3, 4) + record("a", "1") + record(name, "lost") + record("b", "2")),
              (std::vector<Read>{{"a", "1"}, {"b", "2"}}))
        << name;
  }
}

TEST(ClipFiles, FilesWithTheSameNameAreBothRead) {
  EXPECT_EQ(read(number(2, 4) + record("a", "1") + record("a", "2")),
            (std::vector<Read>{{"a", "1"}, {"a", "2"}}));
}

TEST(SafeClipFileName, IsThePartAfterTheLastSeparator) {
  EXPECT_EQ(SafeClipFileName("plain.txt"), "plain.txt");
  EXPECT_EQ(SafeClipFileName("../../evil.txt"), "evil.txt");
  EXPECT_EQ(SafeClipFileName("sub\\a.txt"), "a.txt");
  EXPECT_EQ(SafeClipFileName("C:\\Windows/System32\\x"), "x");
  EXPECT_EQ(SafeClipFileName("a\\b/c"), "c");
  EXPECT_EQ(SafeClipFileName("//server/share"), "share");
}

TEST(SafeClipFileName, IsEmptyIfTheLastPartIsNotUsable) {
  for (const char* name : {"", ".", "..", "a/", "a\\", "/.", "\\..", "a/.."})
    EXPECT_EQ(SafeClipFileName(name), "") << name;
}

TEST(SafeClipFileName, KeepsNamesThatWindowsForbidsForOtherReasons) {
  using namespace std::string_literals;
  for (const std::string& name :
       {"..."s, ".. "s, "CON"s, "NUL.txt"s, "C:"s, "a:stream"s, "a\0b"s, "\xFF\xC0"s, "\xC0\xAF"s, "*?\"<>|"s,
        " "s, std::string(5000, 'n'), "þ"s, "\0"s})
    EXPECT_EQ(SafeClipFileName(name), name);
}

TEST(SafeClipFileName, NeverContainsASeparator) {
  std::uint32_t state = 7;
  for (int i = 0; i < 20000; ++i) {
    std::string name;
    for (std::uint32_t length = (state = state * 1664525u + 1013904223u) >> 28; length > 0; --length)
      name += "./\\a:\0\xC0\xAF"[(state = state * 1664525u + 1013904223u) >> 29];
    const std::string safe = SafeClipFileName(name);
    EXPECT_EQ(safe.find_first_of("/\\"), std::string::npos);
    EXPECT_NE(safe, ".");
    EXPECT_NE(safe, "..");
  }
}

TEST(PackClip, ReturnsTheKindFollowedByTheContent) {
  EXPECT_EQ(PackClip(ClipboardKind::Text, "þ"), (Bytes{1, 0xC3, 0xBE}));
  EXPECT_EQ(PackClip(ClipboardKind::Text, ""), (Bytes{1}));
  EXPECT_EQ(PackClip(ClipboardKind::Image, std::string("\x89P\0", 3)), (Bytes{2, 0x89, 'P', 0}));
}

TEST(ClipFilePacker, PayloadIsEmptyWithoutFiles) {
  EXPECT_TRUE(ClipFilePacker().payload().empty());
}

TEST(ClipFilePacker, RecordsAreBigEndianAndFollowTheCount) {
  ClipFilePacker packer;
  packer.add("C:\\folder\\a.txt", bytes("xyz"));
  packer.add("empty", {});
  EXPECT_EQ(packer.payload(), (Bytes{3, 0, 0, 0, 2,                                  //
                                     0, 0, 0, 5, 'a', '.', 't', 'x', 't',            //
                                     0, 0, 0, 0, 0,   0,   0,   3,   'x', 'y', 'z',  //
                                     0, 0, 0, 5, 'e', 'm', 'p', 't', 'y',            //
                                     0, 0, 0, 0, 0,   0,   0,   0}));
}

TEST(ClipFilePacker, NameIsTheLastPartOfThePath) {
  for (const auto& [path, name] : {std::pair("C:\\a/b\\þ.txt", "þ.txt"), std::pair("/x/y", "y"),
                                   std::pair("plain", "plain"), std::pair("C:\\", "")}) {
    ClipFilePacker packer;
    packer.add(path, {});
    const Bytes payload = packer.payload();
    EXPECT_EQ(std::string(payload.begin() + 5, payload.end()), record(name, "")) << path;
  }
}

TEST(ClipFilePacker, PackedFilesCanBeRead) {
  ClipFilePacker packer;
  packer.add("x\\long name", Bytes(70000, 0xA5));
  packer.add("b", bytes("2"));
  const Bytes payload = packer.payload();
  EXPECT_EQ(payload[0], 3);
  EXPECT_EQ(read({reinterpret_cast<const char*>(payload.data()) + 1, payload.size() - 1}),
            (std::vector<Read>{{"long name", std::string(70000, '\xA5')}, {"b", "2"}}));
}

TEST(ClipFilePacker, TotalSizeOfTheFilesIsLimitedTo64Mebibytes) {
  constexpr std::uint64_t kLimit = 0x4000000;
  ClipFilePacker packer;
  EXPECT_TRUE(packer.fits(kLimit));
  EXPECT_FALSE(packer.fits(kLimit + 1));
  EXPECT_FALSE(packer.fits(std::numeric_limits<std::uint64_t>::max()));
  packer.add("a", Bytes(kLimit / 2));
  EXPECT_TRUE(packer.fits(kLimit / 2)) << "two files of 32 MiB";
  EXPECT_FALSE(packer.fits(kLimit / 2 + 1));
  packer.add("b", Bytes(kLimit / 2));
  EXPECT_TRUE(packer.fits(0));
  EXPECT_FALSE(packer.fits(1));
  EXPECT_EQ(packer.payload().size(), 5 + 2 * (4 + 1 + 8) + kLimit);
}

TEST(ClipFilePacker, FileNamesDoNotCountTowardsTheTotalSize) {
  ClipFilePacker packer;
  packer.add(std::string(1000, 'n'), {});
  EXPECT_TRUE(packer.fits(0x4000000));
}

}  // namespace
}  // namespace vlk::agent
