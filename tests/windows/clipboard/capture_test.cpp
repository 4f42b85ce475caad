// What is sent of a real clipboard's content: the choice of a format, every limit, what is skipped in
// silence, and the guard against sending back what was just applied.
#include "clipboard/png_win32.h"
#include "tests/windows/clipboard/clipboard_seam.h"

namespace vlk::agent {
namespace {

using clip::Lines;
using clip::script;

constexpr std::size_t kMebibyte = 1 << 20;

// What a message holds, in words: "text ...", "image", or "files" with each name and size.
std::string told(const std::vector<std::uint8_t>& payload) {
  const std::string content(payload.begin() + 1, payload.end());
  if (payload[0] == 1) return "text " + content;
  if (payload[0] == 2) return content.starts_with("\x89PNG\r\n\x1A\n") ? "image" : "no image";
  std::string text = "files " + std::to_string(payload[4]);
  for (const ClipFile& file : ReadClipFiles(payload.data() + 1, payload.size() - 1))
    text += ' ' + file.name + ' ' + std::to_string(file.size);
  return text;
}

class CaptureTest : public ClipboardTest {
 protected:
  void SetUp() override {
    ClipboardTest::SetUp();
    folder_ = temporary_folder() + L"vlk-capture\\";
    std::filesystem::remove_all(folder_);
    std::filesystem::create_directory(folder_);
  }
  void TearDown() override { std::filesystem::remove_all(folder_); }

  // A file of zeros that takes no room.
  std::wstring file_of(const wchar_t* name, std::uint64_t size) const {
    write(folder_ + name, "");
    std::filesystem::resize_file(folder_ + name, size);
    return folder_ + name;
  }
  // What one change of the clipboard sends; empty for nothing.
  static std::string update() {
    sent_.clear();
    OnClipboardUpdate();
    EXPECT_LE(sent_.size(), 1u);
    return sent_.empty() ? "" : told(sent_[0]);
  }
  static void put_bitmap(const std::string& block) { put(CF_DIB, block.data(), block.size()); }
  static bool opened() {
    return std::find(script.calls.begin(), script.calls.end(), "open") != script.calls.end();
  }

  std::wstring folder_;
};

// A bitmap's block: header, colours, pixels.
std::string dib(LONG width, LONG height, WORD bits, DWORD compression, std::vector<std::uint32_t> colours,
                const std::string& pixels) {
  BITMAPINFOHEADER header = {};
  header.biSize = sizeof header;
  header.biWidth = width;
  header.biHeight = height;
  header.biPlanes = 1;
  header.biBitCount = bits;
  header.biCompression = compression;
  return std::string(reinterpret_cast<const char*>(&header), sizeof header) +
         std::string(reinterpret_cast<const char*>(colours.data()), colours.size() * 4) + pixels;
}

const std::string kTwoPixels = dib(2, -1, 32, BI_RGB, {}, std::string("\x01\x02\x03\xFF\x04\x05\x06\xFF", 8));

// Puts a bitmap there and returns its pixels as they went out: blue, green, red and alpha from the upper
// left; empty when nothing was sent.
class CaptureImageTest : public CaptureTest {
 protected:
  static std::vector<Gdiplus::ARGB> sent_pixels(const std::string& block) {
    namespace gdip = Gdiplus::DllExports;
    on_clipboard([&] {
      EmptyClipboard();
      put_bitmap(block);
    });
    if (update() != "image") return {};
    const auto stream = stream_over_copy(sent_[0].data() + 1, sent_[0].size() - 1);
    Gdiplus::GpBitmap* bitmap = nullptr;
    if (gdip::GdipCreateBitmapFromStream(stream.Get(), &bitmap) != Gdiplus::Ok) return {};
    const UniqueImage owner(bitmap);
    UINT width = 0;
    UINT height = 0;
    gdip::GdipGetImageWidth(bitmap, &width);
    gdip::GdipGetImageHeight(bitmap, &height);
    std::vector<Gdiplus::ARGB> pixels(std::size_t{width} * height);
    for (UINT i = 0; i < pixels.size(); ++i)
      gdip::GdipBitmapGetPixel(bitmap, static_cast<INT>(i % width), static_cast<INT>(i / width), &pixels[i]);
    return pixels;
  }
  using Pixels = std::vector<Gdiplus::ARGB>;
};

TEST_F(CaptureTest, FilesGoBeforeTextAndTextBeforeAnImage) {
  const std::wstring file = file_of(L"a", 3);
  on_clipboard([&] {
    put_bitmap(kTwoPixels);
    put_text(L"words");
    put_files({file});
  });
  EXPECT_EQ(update(), "files 1 a 3");
  on_clipboard([] {
    EmptyClipboard();
    put_bitmap(kTwoPixels);
    put_text(L"words");
  });
  EXPECT_EQ(update(), "text words");
  on_clipboard([] {
    EmptyClipboard();
    put_bitmap(kTwoPixels);
  });
  EXPECT_EQ(update(), "image");
}

TEST_F(CaptureTest, OtherFormatsAndNoneSendNothing) {
  EXPECT_EQ(update(), "");
  on_clipboard([] { put(RegisterClipboardFormatW(L"HTML Format"), "<b>", 4); });
  EXPECT_EQ(update(), "");
  EXPECT_EQ(script.calls, Lines({"tick", "open", "close", "tick", "open", "close"}));
}

TEST_F(CaptureTest, TextIsSentWhenTheClipboardIsClosedAgain) {
  on_clipboard([] { put_text(L"Þú 😀\r\n\U0001F4A9"); });
  EXPECT_EQ(update(), "text Þú 😀\r\n💩");
  EXPECT_EQ(script.calls, Lines({"tick", "open", "get 13", "close", "sink"}));
}

TEST_F(CaptureTest, EmptyTextIsSentAsItsKindAlone) {
  on_clipboard([] { put_text(L""); });
  EXPECT_EQ(update(), "text ");
  EXPECT_EQ(sent_[0], Bytes({1}));
}

TEST_F(CaptureTest, TextEndsAtItsFirstZero) {
  on_clipboard([] { put_text(std::wstring_view(L"seen\0hidden", 11)); });
  EXPECT_EQ(update(), "text seen");
}

TEST_F(CaptureTest, BrokenSurrogatesAreReplaced) {
  on_clipboard([] { put_text(std::wstring(L"a") + static_cast<wchar_t>(0xD800) + L"z"); });
  EXPECT_EQ(update(), "text a\uFFFDz");
}

TEST_F(CaptureTest, TextHasNoLimit) {
  const std::wstring text(9 * kMebibyte, L'x');
  on_clipboard([&] { put_text(text); });
  EXPECT_TRUE(update() == "text " + std::string(text.size(), 'x'));
}

TEST_F(CaptureTest, SameTextTwiceIsSentTwice) {
  on_clipboard([] { put_text(L"again"); });
  EXPECT_EQ(update(), "text again");
  EXPECT_EQ(update(), "text again");
}

TEST_F(CaptureTest, FormatThatGivesNoDataSendsNothingAndNoOtherIsTried) {
  on_clipboard([] { put_text(L"words"); });
  script.refuse_data = true;
  EXPECT_EQ(update(), "");
  EXPECT_EQ(script.calls, Lines({"tick", "open", "get 13", "close"}));
  on_clipboard([&] { put_files({L"C:\\x"}); });
  EXPECT_EQ(update(), "");
  on_clipboard([] {
    EmptyClipboard();
    put_bitmap(kTwoPixels);
  });
  EXPECT_EQ(update(), "");
}

TEST_F(CaptureTest, FilesAreReadWholeWhileTheClipboardIsOpen) {
  write(folder_ + L"höfn's 😀 .txt", "contents");
  on_clipboard([&] { put_files({folder_ + L"höfn's 😀 .txt", file_of(L"empty", 0)}); });
  EXPECT_EQ(update(), "files 2 höfn's 😀 .txt 8 empty 0");
  EXPECT_EQ(script.calls, Lines({"tick", "open", "get 15", "file höfn's 😀 .txt 0x80000000 1 3 128", "read 8",
                                 "file empty 0x80000000 1 3 128", "close", "sink"}));
  const std::vector<ClipFile> files = ReadClipFiles(sent_[0].data() + 1, sent_[0].size() - 1);
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(files[0].data), files[0].size), "contents");
}

TEST_F(CaptureTest, FolderAloneSendsNothingEvenBesideText) {
  on_clipboard([&] {
    put_files({folder_});
    put_text(L"words");
  });
  EXPECT_EQ(update(), "");
}

TEST_F(CaptureTest, FoldersAndWhatCannotBeReadAreSkipped) {
  std::filesystem::create_directory(folder_ + L"inner");
  write(folder_ + L"inner\\below", "never walked");
  const std::wstring locked = file_of(L"locked", 1);
  const vlk::UniqueKernelHandle in_use(
      CreateFileW(locked.c_str(), GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr));
  on_clipboard([&] {
    put_files({folder_ + L"inner", folder_ + L"missing", locked, folder_ + std::wstring(300, L'n'),
               L"C:\\a<b|c", file_of(L"good", 2)});
  });
  EXPECT_EQ(update(), "files 1 good 2");
}

TEST_F(CaptureTest, FilesBehindTheOneThatIsTooLargeAreNotTried) {
  on_clipboard([&] {
    put_files({file_of(L"a", 40 * kMebibyte), file_of(L"b", 40 * kMebibyte), file_of(L"c", 1024)});
  });
  script.calls.clear();
  EXPECT_EQ(update(), "files 1 a 41943040");
  EXPECT_EQ(script.calls, Lines({"tick", "open", "get 15", "file a 0x80000000 1 3 128", "read 41943040",
                                 "file b 0x80000000 1 3 128", "close", "sink"}));
}

TEST_F(CaptureTest, TwoFilesMayReachTheLimitTogether) {
  on_clipboard([&] {
    put_files({file_of(L"a", 32 * kMebibyte), file_of(L"b", 32 * kMebibyte), file_of(L"c", 0),
               file_of(L"d", 1), file_of(L"e", 0)});
  });
  EXPECT_EQ(update(), "files 3 a 33554432 b 33554432 c 0")
      << "what follows d is not tried, though it would fit";
}

TEST_F(CaptureTest, FirstFileThatIsTooLargeSendsNothing) {
  on_clipboard([&] { put_files({file_of(L"a", 64 * kMebibyte + 1), file_of(L"b", 1)}); });
  EXPECT_EQ(update(), "");
  on_clipboard([&] {
    EmptyClipboard();
    put_files({file_of(L"a", 5ull << 32)});
  });
  EXPECT_EQ(update(), "");
}

TEST_F(CaptureTest, ShortReadSendsTheShorterSize) {
  script.most_read = 5;
  on_clipboard([&] { put_files({file_of(L"a", 8), file_of(L"b", 3)}); });
  EXPECT_EQ(update(), "files 2 a 5 b 3");
  script.refuse_read = true;
  EXPECT_EQ(update(), "files 2 a 0 b 0");
}

TEST_F(CaptureTest, OnlyAnActiveSessionSends) {
  on_clipboard([] { put_text(L"before the stream"); });
  SetClipboardSessionActive(false);
  EXPECT_EQ(update(), "");
  EXPECT_TRUE(script.calls.empty()) << "the clipboard is not even opened";
  SetClipboardSessionActive(true);
  EXPECT_TRUE(sent_.empty()) << "what was there before is never sent by itself";
  EXPECT_EQ(update(), "text before the stream");
}

TEST_F(CaptureTest, WithoutASinkNothingIsOpened) {
  StartClipboardWatch(window_, nullptr);
  EXPECT_EQ(script.calls, Lines({"listen"}));
  script.calls.clear();
  on_clipboard([] { put_text(L"x"); });
  EXPECT_EQ(update(), "");
  EXPECT_TRUE(script.calls.empty());
  StartClipboardWatch(window_, sink());
}

TEST_F(CaptureTest, ClipboardThatIsInUseDropsTheUpdate) {
  on_clipboard([] { put_text(L"x"); });
  script.refuse_open = true;
  EXPECT_EQ(update(), "");
  EXPECT_EQ(script.calls, Lines({"tick", "open"})) << "no second try";
}

TEST_F(CaptureTest, OwnContentIsDroppedAndTheUsersCopyLaterIsSent) {
  ApplyClipboard(PackClip(ClipboardKind::Text, "from the representative"));
  script.calls.clear();
  script.tick += 100;
  EXPECT_EQ(update(), "");
  EXPECT_FALSE(opened());
  script.tick += 500;
  EXPECT_TRUE(sent_.empty()) << "what was dropped is not made up for";
  on_clipboard([] { put_text(L"the user's own"); });
  EXPECT_EQ(update(), "text the user's own");
}

TEST_F(CaptureTest, GuardEndsHalfASecondAfterTheContentWasApplied) {
  ApplyClipboard(PackClip(ClipboardKind::Text, "x"));
  script.tick += 499;
  EXPECT_EQ(update(), "");
  script.tick += 1;
  EXPECT_EQ(update(), "text x");
}

TEST_F(CaptureTest, UnusableContentSetsTheGuardToo) {
  ApplyClipboard({7});
  on_clipboard([] { put_text(L"x"); });
  EXPECT_EQ(update(), "");
}

TEST_F(CaptureTest, GuardThatWrapsLetsTheUpdateThrough) {
  script.tick = 0xFFFFFFFF - 200;
  ApplyClipboard(PackClip(ClipboardKind::Text, "echo"));
  EXPECT_EQ(ClipboardEchoGuardUntil, 299u);
  script.tick += 100;
  EXPECT_EQ(update(), "text echo");
}

TEST_F(CaptureImageTest, PaletteOfABitmapIsSteppedOver) {
  EXPECT_EQ(sent_pixels(dib(2, 1, 1, BI_RGB, {0x112233, 0x445566}, std::string("\x40\0\0\0", 4))),
            Pixels({0xFF112233, 0xFF445566}));
  EXPECT_EQ(script.pixel_offset, 40 + 2 * 4) << "two colours, although their number says 0";
  std::vector<std::uint32_t> colours(256);
  colours[7] = 0x010203;
  colours[200] = 0x0A0B0C;
  EXPECT_EQ(sent_pixels(dib(2, 1, 8, BI_RGB, colours, std::string("\x07\xC8\0\0", 4))),
            Pixels({0xFF010203, 0xFF0A0B0C}));
  EXPECT_EQ(script.pixel_offset, 40 + 256 * 4);
}

TEST_F(CaptureImageTest, MasksOfABitmapAreSteppedOver) {
  const Pixels pixels = sent_pixels(dib(2, 1, 32, BI_BITFIELDS, {0xFF0000, 0xFF00, 0xFF},
                                        std::string("\x01\x02\x03\xFF\x04\x05\x06\xFF", 8)));
  EXPECT_EQ(script.pixel_offset, 40 + 3 * 4);
  ASSERT_EQ(pixels.size(), 2u);
  EXPECT_EQ(pixels[0] & 0xFFFFFF, 0x030201u);
  EXPECT_EQ(pixels[1] & 0xFFFFFF, 0x060504u);
}

TEST_F(CaptureImageTest, RowsMayRunEitherWay) {
  const std::string rows("\1\1\1\0\2\2\2\0\3\3\3\0\4\4\4\0", 16);
  const Pixels down = sent_pixels(dib(2, -2, 32, BI_RGB, {}, rows));
  const Pixels up = sent_pixels(dib(2, 2, 32, BI_RGB, {}, rows));
  ASSERT_EQ(down.size(), 4u);
  ASSERT_EQ(up.size(), 4u);
  for (std::size_t i = 0; i < 4; ++i) {
    EXPECT_EQ(down[i] & 0xFFFFFF, 0x010101 * (i + 1));
    EXPECT_EQ(up[i] & 0xFFFFFF, 0x010101 * ((i ^ 2) + 1));
  }
  EXPECT_EQ(script.pixel_offset, 40);
}

TEST_F(CaptureImageTest, RowsOfThreeBytesAPixelArePadded) {
  const Pixels pixels = sent_pixels(dib(1, -2, 24, BI_RGB, {}, std::string("\1\2\3\0\4\5\6\0", 8)));
  EXPECT_EQ(pixels, Pixels({0xFF030201, 0xFF060504}));
}

TEST_F(CaptureImageTest, BitmapThatCannotBeDecodedSendsNothing) {
  EXPECT_TRUE(sent_pixels(dib(0, 0, 32, BI_RGB, {}, std::string(8, 'x'))).empty());
  EXPECT_TRUE(sent_pixels(dib(1, 1, 77, BI_RGB, {}, std::string(8, 'x'))).empty());
  EXPECT_TRUE(sent_.empty());
}

TEST_F(CaptureImageTest, WithoutAStreamOrItsSizeOrAnEncoderNothingIsSent) {
  for (bool clip::Script::*const missing :
       {&clip::Script::refuse_stream, &clip::Script::refuse_size, &clip::Script::no_encoders}) {
    script.*missing = true;
    EXPECT_TRUE(sent_pixels(kTwoPixels).empty());
    EXPECT_TRUE(sent_.empty());
    EXPECT_EQ(script.calls.back(), "close");
    script = {};
  }
}

}  // namespace
}  // namespace vlk::agent
