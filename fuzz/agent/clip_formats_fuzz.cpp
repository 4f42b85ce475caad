// Chooses among any clipboard formats, finds the pixels of any bitmap and packs any content. The first bytes
// are the fields of the bitmap and the ticks of the echo guard.
#include <algorithm>
#include <cstring>
#include <string_view>

#include "clipboard/bitmap_layout.h"
#include "clipboard/echo_guard.h"
#include "clipboard/formats.h"
#include "require.h"

using namespace vlk::agent;

namespace {

constexpr std::uint32_t kFormats = 32;
constexpr std::uint32_t kMasks = 3;                 // of a bitmap whose colours are bit fields
constexpr std::uint64_t kLargestTotal = 64u << 20;  // bytes of all files of a message

struct Fields {
  std::uint32_t available = 0;  // bit n: the clipboard has format n
  BitmapLayout bitmap;
  std::uint32_t now = 0, later = 0;
  std::uint64_t file_size = 0;
};

template <class T>
void read(T& value, const std::uint8_t*& data, std::size_t& size) {
  const std::size_t count = std::min(sizeof value, size);
  std::memcpy(&value, data, count);
  data += count;
  size -= count;
}

void check_choice(std::uint32_t available) {
  std::uint32_t asked = 0;
  const auto kind = ChooseClipboardKind([&](std::uint32_t format) {
    REQUIRE(format < kFormats);
    asked |= 1u << format;
    return (available >> format & 1) != 0;
  });
  // Only the three formats are asked for, and the first that is available ends the search.
  REQUIRE((asked & ~(1u << kFormatFiles | 1u << kFormatText | 1u << kFormatBitmap)) == 0);
  const bool files = (available >> kFormatFiles & 1) != 0;
  const bool text = (available >> kFormatText & 1) != 0;
  const bool bitmap = (available >> kFormatBitmap & 1) != 0;
  REQUIRE(kind.has_value() == (files || text || bitmap));
  if (files) {
    REQUIRE(kind == ClipboardKind::Files);
  } else if (text) {
    REQUIRE(kind == ClipboardKind::Text);
  } else if (bitmap) {
    REQUIRE(kind == ClipboardKind::Image);
  }
}

void check_bitmap(const BitmapLayout& bitmap) {
  const std::size_t offset = BitmapPixelOffset(bitmap);
  REQUIRE(offset >= bitmap.header_size && (offset - bitmap.header_size) % 4 == 0);
  const std::size_t colours = (offset - bitmap.header_size) / 4;
  if (bitmap.compression == kMasks) {
    REQUIRE(colours == kMasks);
  } else if (bitmap.bit_count > 8) {
    REQUIRE(colours == 0);
  } else if (bitmap.colours_used == 0) {
    REQUIRE(colours >= 1 && colours <= 256 && (colours & (colours - 1)) == 0);
  } else {
    REQUIRE(colours == bitmap.colours_used);
  }
}

void check_packing(std::string_view content, std::uint64_t file_size) {
  for (const ClipboardKind kind : {ClipboardKind::Text, ClipboardKind::Image, ClipboardKind::Files}) {
    const std::vector<std::uint8_t> payload = PackClip(kind, content);
    REQUIRE(payload.size() == content.size() + 1 && payload[0] == static_cast<std::uint8_t>(kind));
    REQUIRE(
        std::equal(content.begin(), content.end(), payload.begin() + 1,
                   [](char left, std::uint8_t right) { return static_cast<std::uint8_t>(left) == right; }));
  }
  ClipFilePacker packer;
  REQUIRE(packer.fits(file_size) == (file_size <= kLargestTotal));
  packer.add(content, std::vector<std::uint8_t>(content.begin(), content.end()));
  REQUIRE(packer.fits(file_size) == (file_size <= kLargestTotal - content.size()));
  const std::vector<std::uint8_t> payload = packer.payload();
  const std::vector<ClipFile> files = ReadClipFiles(payload.data() + 1, payload.size() - 1);
  const std::string name = SafeClipFileName(content);
  REQUIRE(files.size() == (name.empty() ? 0u : 1u));
  if (!files.empty()) REQUIRE(files[0].name == name && files[0].size == content.size());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Fields fields;
  read(fields.available, data, size);
  read(fields.bitmap.header_size, data, size);
  read(fields.bitmap.bit_count, data, size);
  read(fields.bitmap.compression, data, size);
  read(fields.bitmap.colours_used, data, size);
  read(fields.now, data, size);
  read(fields.later, data, size);
  read(fields.file_size, data, size);
  check_choice(fields.available);
  check_bitmap(fields.bitmap);
  const std::uint32_t until = EchoGuardUntil(fields.now);
  REQUIRE(until - fields.now == kEchoGuardTime);
  if (until > fields.now) REQUIRE(EchoGuardHolds(fields.now, until));
  REQUIRE(!EchoGuardHolds(until, until) && !(EchoGuardHolds(fields.later, until) && fields.later > until));
  check_packing({reinterpret_cast<const char*>(data), size}, fields.file_size);
  return 0;
}
