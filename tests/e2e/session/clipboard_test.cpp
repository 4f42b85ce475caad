// The shared clipboard of the unmodified executable, with another Windows program at the same clipboard.
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
constexpr int kBitmap = 8, kText = 13, kFiles = 15;  // Windows' numbers of the formats
constexpr Milliseconds kGuarded{400};                // surely less than what the guard lasts
constexpr int kSide = 2048;                          // pixels of a picture of four megapixels

// UTF-16, little-endian, of text without characters beyond the first plane.
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

const std::string kZero(2, '\0');  // that ends a text

std::string mebibyte_of_text() {
  std::string text;
  while (text.size() < 1 << 20)
    text += "Línan " + std::to_string(text.size()) + " úr fjarlægri tölvu\r\n";
  return text;
}

// Flat areas with noise in between, so that it is small enough for a message and no two rows are the same.
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

// A top-down bitmap's block: header of 40 bytes, then blue, green, red and a fourth byte.
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

// What the block of CF_HDROP holds behind its header: each path with a zero, and one more zero.
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
  static bool becomes(int format, const std::string& block) {
    return eventually([&] { return clipboard_block(*desk, format) == block; });
  }
  std::string next_clip() {
    const vlk::Envelope envelope = peer_->read_until(Msg::ClipboardData);
    EXPECT_EQ(envelope.session_id, kSession);
    EXPECT_EQ(envelope.flags, 0);
    return text_of(envelope);
  }
  bool clip_comes_within(Milliseconds time) {
    try {
      peer_->read_until(Msg::ClipboardData, time);
      return true;
    } catch (const std::runtime_error&) {
      return false;
    }
  }
  // Until the agent has handled all that was asked of it, and its window all changes of the clipboard.
  void settle_all() {
    peer_->settle();
    settle();
    peer_->settle();
  }
  std::size_t clips() {
    settle_all();
    std::size_t count = 0;
    for (const vlk::Envelope& one : peer_->received())
      count += one.type == static_cast<std::uint8_t>(Msg::ClipboardData);
    return count;
  }
  // What is sent of the block. Copied again and again, as the guard of what was applied may still hold.
  std::string sent_copy(int format, const std::string& block) {
    const std::size_t before = clips();
    EXPECT_TRUE(eventually([&] {
      copy_to_clipboard(*desk, format, block);
      return clips() > before;
    }));
    for (auto one = peer_->received().rbegin(); one != peer_->received().rend(); ++one)
      if (one->type == static_cast<std::uint8_t>(Msg::ClipboardData)) return text_of(*one);
    return {};
  }

  std::unique_ptr<ServerConnection> peer_;
};

TEST_F(ClipboardTest, MebibyteOfTextGoesBothWays) {
  const std::string text = mebibyte_of_text();
  apply('\1' + text);
  EXPECT_TRUE(becomes(kText, utf16(text) + kZero));
  start_stream();
  EXPECT_TRUE(sent_copy(kText, utf16("!" + text) + kZero) == "\1!" + text);
}

TEST_F(ClipboardTest, FourMegapixelsArriveWithEveryPixelAndItsAlpha) {
  const PngPicture picture = four_megapixels();
  const std::string file = encode_png(picture);
  ASSERT_LT(file.size(), std::size_t{vlk::kMaxDecodedPayload});
  apply('\2' + file);
  EXPECT_TRUE(becomes(kBitmap, bitmap_block(picture)));
}

TEST_F(ClipboardTest, FourMegapixelsAreSentWithEveryPixel) {
  PngPicture picture = four_megapixels();
  start_stream();
  copy_to_clipboard(*desk, kBitmap, bitmap_block(picture));
  const std::string clip = next_clip();
  ASSERT_EQ(clip[0], '\2');
  const PngPicture sent = decode_png(clip.substr(1));
  EXPECT_EQ(sent.width, kSide);
  EXPECT_EQ(sent.height, kSide);
  // The fourth byte of such a bitmap is unused, and comes out as opaque.
  for (std::size_t at = 3; at < picture.pixels.size(); at += 4)
    picture.pixels[at] = '\xFF';
  EXPECT_TRUE(sent.pixels == picture.pixels);
}

TEST_F(ClipboardTest, ThreeFilesGoBothWaysByValue) {
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

TEST_F(ClipboardTest, WhatIsAppliedIsNotSentBack) {
  start_stream();
  apply("\1from the representative");
  // A window that was kept from its work for as long as the guard holds does send it back, rightly.
  EXPECT_FALSE(clip_comes_within(kGuarded));
  EXPECT_TRUE(becomes(kText, utf16("from the representative") + kZero));
  EXPECT_EQ(sent_copy(kText, utf16("the user's own") + kZero), "\1the user's own");
}

TEST_F(ClipboardTest, ChangesAreSentOnlyWhileAStreamRuns) {
  copy_to_clipboard(*desk, kText, utf16("too early") + kZero);
  EXPECT_EQ(clips(), 0u);
  start_stream();
  EXPECT_EQ(clips(), 0u) << "what was there before stays here";
  copy_to_clipboard(*desk, kText, utf16("in time") + kZero);
  EXPECT_EQ(next_clip(), "\1in time");
  peer_->send_envelope(Msg::StreamStop, kSession, "");
  settle_all();
  const std::size_t before = clips();  // one change may be told twice by the system
  copy_to_clipboard(*desk, kText, utf16("too late") + kZero);
  EXPECT_EQ(clips(), before);
}

TEST_F(ClipboardTest, BadClipsHarmNothing) {
  start_stream();
  const std::string good = '\3' + number(2, 4) + record("one", "1") + record("two", "2");
  for (std::size_t size = 0; size < good.size(); ++size)
    apply(good.substr(0, size));
  for (const std::uint64_t size : {std::uint64_t{2}, std::uint64_t{1} << 32, ~std::uint64_t{0}})
    apply('\3' + number(0xFFFFFFFF, 4) + number(1, 4) + 'n' + number(size, 8) + 'x');
  for (const std::string& clip : {std::string("\7"), std::string("\2\x89PNG"), std::string(1, '\0'),
                                  std::string("\1\xFF\xC3"), '\2' + std::string(100'000, 'x')})
    apply(clip);
  apply("\1still here");
  EXPECT_TRUE(becomes(kText, utf16("still here") + kZero));
  peer_->read_until(Msg::StreamFrame);
  EXPECT_TRUE(running());
}

}  // namespace
}  // namespace vantelink_test
