// Tests of the clipboard that a representative and the machine share, with the shipped executable. Another
// Windows program, the probe, copies and pastes on the machine.
#include <filesystem>

#include "e2e/support/png_codec.h"
#include "e2e/support/shell_fixture.h"
#include "support/bytes/clip_bytes.h"
#include "support/bytes/file_bytes.h"
#include "support/temp_folder.h"

namespace vantelink_test {
namespace {

namespace fs = std::filesystem;
using vlk::Msg;

constexpr std::uint32_t kSession = 21;
constexpr int kBitmap = 8, kText = 13, kFiles = 15;  // CF_DIB, CF_UNICODETEXT, CF_HDROP
constexpr int kSide = 2048;                          // the width and height of a picture of four megapixels
// A time shorter than that for which the agent ignores changes of the clipboard after it has set the
// clipboard.
constexpr Milliseconds kGuarded{400};

// Text as UTF-16, little-endian. Characters beyond U+07FF are not supported.
std::string utf16(const std::string& text) {
  std::string bytes;
  for (std::size_t i = 0; i < text.size(); ++i) {
    unsigned unit = static_cast<unsigned char>(text[i]);
    if (unit >= 0xC0) unit = (unit & 0x1F) << 6 | (static_cast<unsigned char>(text[++i]) & 0x3F);
    bytes += static_cast<char>(unit);
    bytes += static_cast<char>(unit >> 8);
  }
  return bytes;
}

const std::string kZero(2, '\0');  // the zero character that ends a text in UTF-16

std::string mebibyte_of_text() {
  std::string text;
  while (text.size() < 1 << 20)
    text += "Línan " + std::to_string(text.size()) + " úr fjarlægri tölvu\r\n";
  return text;
}

// Returns a picture of flat areas with some noise. Compressed, it fits in one message. No two rows are equal.
PngPicture four_megapixels() {
  PngPicture picture{kSide, kSide, {}};
  std::uint32_t state = 11;
  for (std::uint32_t y = 0; y < kSide; ++y) {
    for (std::uint32_t x = 0; x < kSide; ++x) {
      state = state * 1664525u + 1013904223u;
      const std::uint32_t noise = x % 64 == 0 ? state >> 24 : 0;
      for (const std::uint32_t part : {x / 8 + noise, y / 8, x / 64 * 3 + y / 64 * 5, y * 7 + noise})
        picture.pixels += static_cast<char>(part);
    }
  }
  return picture;
}

// The clipboard block of a top-down bitmap: a header of 40 bytes, then four bytes a pixel: blue, green,
// red and an unused one.
std::string bitmap_block(const PngPicture& picture) {
  const auto little = [](std::int32_t value) {
    const std::string bytes = number(static_cast<std::uint32_t>(value), 4);
    return std::string(bytes.rbegin(), bytes.rend());
  };
  std::string pixels = picture.pixels;
  for (std::size_t at = 0; at < pixels.size(); at += 4)
    std::swap(pixels[at], pixels[at + 2]);
  return little(40) + little(picture.width) + little(-picture.height) + std::string("\1\0\x20\0", 4) +
         std::string(24, '\0') + pixels;
}

// The clipboard block of a list of files: a header, each path with a zero character, and one more zero
// character.
std::string drop_block(const std::vector<std::string>& paths) {
  std::string list;
  for (const std::string& path : paths)
    list += utf16(path) + kZero;
  return kDropHeader + list + kZero;
}

class ClipboardTest : public ShellTest {
 protected:
  void SetUp() override {
    ShellTest::SetUp();
    copy_to_clipboard(*desk, kText, utf16("before") + kZero);
    peer_ = start();
    peer_->read_until(Msg::Hello);
  }
  void TearDown() override {
    peer_.reset();
    ShellTest::TearDown();
  }

  void start_stream() {
    peer_->send_envelope(Msg::StreamStart, kSession, R"({"max_fps":2})");
    peer_->read_until(Msg::StreamFrame);
  }
  void apply(const std::string& payload) { peer_->send_envelope(Msg::ClipboardData, kSession, payload, 0); }
  [[nodiscard]] static bool becomes(int format, const std::string& block) {
    return eventually([&] { return clipboard_block(*desk, format) == block; });
  }
  std::string next_clipboard() {
    const vlk::Envelope envelope = peer_->read_until(Msg::ClipboardData);
    EXPECT_EQ(envelope.session_id, kSession);
    EXPECT_EQ(envelope.flags, 0);
    return text_of(envelope);
  }
  [[nodiscard]] bool clipboard_comes_within(Milliseconds time) {
    try {
      peer_->read_until(Msg::ClipboardData, time);
      return true;
    } catch (const std::runtime_error&) {
      return false;
    }
  }
  // Returns when the agent has handled all messages from the server, and its window has handled all changes
  // of the clipboard.
  void settle_all() {
    peer_->settle();
    settle();
    peer_->settle();
  }
  // The number of clipboard messages that the agent has sent so far.
  std::size_t sent_count() {
    settle_all();
    std::size_t count = 0;
    for (const vlk::Envelope& one : peer_->received())
      count += one.type == static_cast<std::uint8_t>(Msg::ClipboardData);
    return count;
  }
  // Copies the block on the machine and returns the message in which the agent sends it. Repeats the copying,
  // since the agent ignores changes shortly after it has set the clipboard itself.
  std::string sent_copy(int format, const std::string& block) {
    const std::size_t before = sent_count();
    EXPECT_TRUE(eventually([&] {
      copy_to_clipboard(*desk, format, block);
      return sent_count() > before;
    }));
    for (auto one = peer_->received().rbegin(); one != peer_->received().rend(); ++one)
      if (one->type == static_cast<std::uint8_t>(Msg::ClipboardData)) return text_of(*one);
    return {};
  }

  std::unique_ptr<ServerConnection> peer_;
};

TEST_F(ClipboardTest, OneMebibyteOfTextIsCopiedInBothDirections) {
  const std::string text = mebibyte_of_text();
  apply('\1' + text);
  EXPECT_TRUE(becomes(kText, utf16(text) + kZero));
  start_stream();
  EXPECT_TRUE(sent_copy(kText, utf16("!" + text) + kZero) == "\1!" + text);
}

TEST_F(ClipboardTest, ReceivedPictureOfFourMegapixelsIsAppliedWithEveryPixelAndItsAlpha) {
  const PngPicture picture = four_megapixels();
  const std::string file = encode_png(picture);
  ASSERT_LT(file.size(), std::size_t{vlk::kMaxDecodedPayload});
  apply('\2' + file);
  EXPECT_TRUE(becomes(kBitmap, bitmap_block(picture)));
}

TEST_F(ClipboardTest, CopiedPictureOfFourMegapixelsIsSentWithEveryPixel) {
  PngPicture picture = four_megapixels();
  start_stream();
  copy_to_clipboard(*desk, kBitmap, bitmap_block(picture));
  const std::string message = next_clipboard();
  ASSERT_EQ(message[0], '\2');
  const PngPicture sent = decode_png(message.substr(1));
  EXPECT_EQ(sent.width, kSide);
  EXPECT_EQ(sent.height, kSide);
  // The fourth byte of each pixel is unused; the agent sends its pixels as opaque.
  for (std::size_t at = 3; at < picture.pixels.size(); at += 4)
    picture.pixels[at] = '\xFF';
  EXPECT_TRUE(sent.pixels == picture.pixels);
}

TEST_F(ClipboardTest, ThreeFilesAreCopiedWithTheirContentsInBothDirections) {
  const std::string binary("\0\xFF\r\n\x1A", 5);
  apply('\3' + number(3, 4) + record("../skýrsla.txt", "text") + record("empty", "") +
        record("b.bin", binary));
  std::string folder;
  for (const auto& found : fs::directory_iterator(desk->folder() + "/prefix/drive_c/users")) {
    if (fs::exists(found.path() / "Temp")) folder = found.path().filename();
  }
  const std::string windows = "C:\\users\\" + folder + "\\Temp\\VlkClip\\";
  EXPECT_TRUE(becomes(kFiles, drop_block({windows + "skýrsla.txt", windows + "empty", windows + "b.bin"})));
  const fs::path scratch = desk->folder() + "/prefix/drive_c/users/" + folder + "/Temp/VlkClip";
  EXPECT_EQ(file_bytes(scratch / "skýrsla.txt"), "text");
  EXPECT_EQ(file_bytes(scratch / "b.bin"), binary);
  EXPECT_TRUE(fs::is_empty(scratch / "empty"));

  start_stream();
  const TempFolder own;
  own.write("þrír.txt", "1");
  own.write("b c'd", binary);
  own.write("none", "");
  std::vector<std::string> paths;
  for (const char* const name : {"þrír.txt", "b c'd", "none"})
    paths.push_back(own.wine_path(name));
  EXPECT_EQ(sent_copy(kFiles, drop_block(paths)),
            '\3' + number(3, 4) + record("þrír.txt", "1") + record("b c'd", binary) + record("none", ""));
}

TEST_F(ClipboardTest, ClipboardTextFromTheRepresentativeIsNotSentBack) {
  start_stream();
  apply("\1from the representative");
  // Checks only while the agent ignores changes: a window that handles the change later does send it, as it
  // should.
  EXPECT_FALSE(clipboard_comes_within(kGuarded));
  EXPECT_TRUE(becomes(kText, utf16("from the representative") + kZero));
  EXPECT_EQ(sent_copy(kText, utf16("the user's own") + kZero), "\1the user's own");
}

TEST_F(ClipboardTest, ClipboardChangesAreSentOnlyWhileAStreamRuns) {
  copy_to_clipboard(*desk, kText, utf16("too early") + kZero);
  EXPECT_EQ(sent_count(), 0u);
  start_stream();
  EXPECT_EQ(sent_count(), 0u) << "the clipboard from before the stream was sent";
  copy_to_clipboard(*desk, kText, utf16("in time") + kZero);
  EXPECT_EQ(next_clipboard(), "\1in time");
  peer_->send_envelope(Msg::StreamStop, kSession, "");
  settle_all();
  const std::size_t before = sent_count();  // 1 or 2, because Windows may report one change twice
  copy_to_clipboard(*desk, kText, utf16("too late") + kZero);
  EXPECT_EQ(sent_count(), before);
}

TEST_F(ClipboardTest, ClipboardChangesDuringAStreamOfSessionZeroAreNotSent) {
  peer_->send_envelope(Msg::StreamStart, 0, R"({"max_fps":2})");
  peer_->read_until(Msg::StreamFrame);
  copy_to_clipboard(*desk, kText, utf16("for nobody") + kZero);
  EXPECT_EQ(sent_count(), 0u);
  start_stream();
  EXPECT_EQ(sent_copy(kText, utf16("for the session") + kZero), "\1for the session");
}

TEST_F(ClipboardTest, MalformedClipboardMessagesAreIgnored) {
  start_stream();
  const std::string good = '\3' + number(2, 4) + record("one", "1") + record("two", "2");
  for (std::size_t size = 0; size < good.size(); ++size)
    apply(good.substr(0, size));
  for (const std::uint64_t size : {std::uint64_t{2}, std::uint64_t{1} << 32, ~std::uint64_t{0}})
    apply('\3' + number(0xFFFFFFFF, 4) + number(1, 4) + 'n' + number(size, 8) + 'x');
  for (const std::string& message : {std::string("\7"), std::string("\2\x89PNG"), std::string(1, '\0'),
                                     std::string("\1\xFF\xC3"), '\2' + std::string(100'000, 'x')})
    apply(message);
  apply("\1still here");
  EXPECT_TRUE(becomes(kText, utf16("still here") + kZero));
  peer_->read_until(Msg::StreamFrame);
  EXPECT_TRUE(running());
}

}  // namespace
}  // namespace vantelink_test
