// The choice of a clipboard format.
#include "clipboard/formats.h"

#include <set>

#include <gtest/gtest.h>

namespace vlk::agent {
namespace {

std::optional<ClipboardKind> choose(std::set<std::uint32_t> formats) {
  return ChooseClipboardKind([&](std::uint32_t format) { return formats.contains(format); });
}

TEST(ClipboardChoice, FilesArePreferredToTextAndTextToAnImage) {
  EXPECT_EQ(choose({8, 13, 15}), ClipboardKind::Files);
  EXPECT_EQ(choose({13, 15}), ClipboardKind::Files);
  EXPECT_EQ(choose({8, 15}), ClipboardKind::Files);
  EXPECT_EQ(choose({8, 13}), ClipboardKind::Text);
  EXPECT_EQ(choose({8}), ClipboardKind::Image);
}

TEST(ClipboardChoice, FormatsOtherThanFilesTextAndImagesAreNotSent) {
  EXPECT_EQ(choose({}), std::nullopt);
  EXPECT_EQ(choose({1, 2, 7, 16, 17, 0xC009}), std::nullopt);
}

}  // namespace
}  // namespace vlk::agent
