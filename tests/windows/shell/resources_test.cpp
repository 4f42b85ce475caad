// The resources of the executable, read from its file: icon, logo, manifest, version record.
#include <windows.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "platform/win32/handles_win32.h"
#include "resources/resource.h"
#include "windows/support/agent_file.h"

namespace {

constexpr std::string_view kPngSignature = "\x89PNG\r\n\x1a\n";

class ResourcesTest : public testing::Test {
 protected:
  ResourcesTest()
      : file_(LoadLibraryExW(vlk::test::agent_file().c_str(), nullptr, LOAD_LIBRARY_AS_DATAFILE)) {}

  std::string resource(const wchar_t* id, const wchar_t* type) const {
    const HRSRC found = FindResourceW(file_.get(), id, type);
    if (found == nullptr) return {};
    return {static_cast<const char*>(LockResource(LoadResource(file_.get(), found))),
            SizeofResource(file_.get(), found)};
  }

  const vlk::UniqueLibrary file_;
};

std::uint32_t big_endian(std::string_view bytes, std::size_t at) {
  std::uint32_t value = 0;
  for (std::size_t i = at; i < at + 4; ++i)
    value = value << 8 | static_cast<std::uint8_t>(bytes[i]);
  return value;
}

// Width and height of a PNG from its first chunk; 0 for other data.
std::pair<std::uint32_t, std::uint32_t> png_size(std::string_view bytes) {
  if (bytes.size() < 24 || bytes.substr(0, 8) != kPngSignature) return {0, 0};
  return {big_endian(bytes, 16), big_endian(bytes, 20)};
}

TEST_F(ResourcesTest, LogoIsAPngOf2058By755Pixels) {
  ASSERT_TRUE(file_);
  EXPECT_EQ(png_size(resource(MAKEINTRESOURCEW(IDR_LOGO), MAKEINTRESOURCEW(10))), std::pair(2058u, 755u));
  EXPECT_EQ(IDR_LOGO, 101);
}

TEST_F(ResourcesTest, IconContainsSevenPngImages) {
  // An icon group has three 16-bit words, of which the last is the count, and then 14 bytes for each image,
  // of which the last two are its resource id.
  const std::string group = resource(MAKEINTRESOURCEW(IDI_AGENT), MAKEINTRESOURCEW(14));
  EXPECT_EQ(IDI_AGENT, 100);
  ASSERT_EQ(group.size(), 6u + 7 * 14);
  std::vector<std::uint32_t> sizes;
  for (std::size_t image = 0; image < 7; ++image) {
    std::uint16_t id = 0;
    std::memcpy(&id, &group[6 + image * 14 + 12], sizeof id);
    const auto [width, height] = png_size(resource(MAKEINTRESOURCEW(id), MAKEINTRESOURCEW(3)));
    EXPECT_EQ(width, height);
    sizes.push_back(width);
  }
  EXPECT_EQ(sizes, (std::vector<std::uint32_t>{16, 24, 32, 48, 64, 128, 256}));
}

TEST_F(ResourcesTest, ManifestRequestsTheCommonControlsAndNoElevation) {
  const std::string manifest = resource(MAKEINTRESOURCEW(1), MAKEINTRESOURCEW(24));
  EXPECT_NE(manifest.find(R"(level="asInvoker" uiAccess="false")"), std::string::npos);
  const std::size_t controls = manifest.find("Microsoft.Windows.Common-Controls");
  ASSERT_NE(controls, std::string::npos);
  EXPECT_NE(manifest.find(R"(version="6.0.0.0")", controls), std::string::npos);
}

TEST_F(ResourcesTest, FileVersionIs0110) {
  const std::string record = resource(MAKEINTRESOURCEW(1), MAKEINTRESOURCEW(16));
  constexpr std::uint32_t kSignature = 0xFEEF04BD;  // of VS_FIXEDFILEINFO
  const std::size_t at =
      record.find(std::string_view(reinterpret_cast<const char*>(&kSignature), sizeof kSignature));
  ASSERT_NE(at, std::string::npos);
  VS_FIXEDFILEINFO info = {};
  ASSERT_GE(record.size(), at + sizeof info);
  std::memcpy(&info, &record[at], sizeof info);
  EXPECT_EQ(info.dwFileVersionMS, 0x00000001u);
  EXPECT_EQ(info.dwFileVersionLS, 0x00010000u);
}

}  // namespace
