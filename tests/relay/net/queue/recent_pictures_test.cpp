// What is kept of a stream for a viewer who comes later.
#include "relay/net/queue/recent_pictures.h"

#include <string>

#include <gtest/gtest.h>

namespace vlk::relay {
namespace {

using enum PictureKind;

class RecentPicturesTest : public testing::Test {
 protected:
  void add(const std::string& content, PictureKind kind) {
    recent_.add(std::make_shared<const Bytes>(content.begin(), content.end()), kind, memory_);
  }
  std::string kept() const {
    if (!recent_.complete()) return "nothing";
    const auto text = [](const Bytes& bytes) { return std::string(bytes.begin(), bytes.end()); };
    std::string all = text(*recent_.settings());
    for (const RecentPictures::Message& picture : recent_.pictures())
      all += ' ' + text(*picture.bytes);
    return all;
  }

  MemoryBudget memory_{std::size_t{16} << 20};
  RecentPictures recent_;
};

TEST_F(RecentPicturesTest, SettingsAndTheLastGroupAreKept) {
  add("settings", Settings);
  EXPECT_EQ(kept(), "nothing");
  add("k1", Key);
  add("d1", Delta);
  EXPECT_EQ(kept(), "settings k1 d1");
  add("k2", Key);
  add("d2", Delta);
  add("d3", Delta);
  EXPECT_EQ(kept(), "settings k2 d2 d3");
}

TEST_F(RecentPicturesTest, OfCompletePicturesOnlyTheLastIsKept) {
  add("settings", Settings);
  add("a", Complete);
  add("b", Complete);
  EXPECT_EQ(kept(), "settings b");
}

TEST_F(RecentPicturesTest, NewStreamReplacesTheStreamBefore) {
  add("settings", Settings);
  add("k1", Key);
  add("others", Settings);
  EXPECT_EQ(kept(), "nothing");
  add("d", Delta);
  EXPECT_EQ(kept(), "nothing") << "the picture needs one that is missing";
  add("k", Key);
  EXPECT_EQ(kept(), "others k");
  recent_.clear();
  add("d", Delta);
  EXPECT_EQ(kept(), "nothing");
}

TEST_F(RecentPicturesTest, StreamWhoseSettingsAreTooLongIsNotKept) {
  add(std::string(RecentPictures::kMostSettings + 1, 's'), Settings);
  add("k", Key);
  EXPECT_EQ(kept(), "nothing");
  EXPECT_EQ(recent_.settings(), nullptr);
  add("settings", Settings);
  add("k", Key);
  EXPECT_EQ(kept(), "settings k");
}

TEST_F(RecentPicturesTest, GroupThatIsTooLargeIsGivenUpUntilTheNext) {
  add("settings", Settings);
  add("k", Key);
  add(std::string(RecentPictures::kMostBytes, 'x'), Delta);
  EXPECT_EQ(kept(), "nothing");
  EXPECT_EQ(memory_.used(), 0u);
  add("d", Delta);
  EXPECT_EQ(kept(), "nothing");
  add("k2", Key);
  EXPECT_EQ(kept(), "settings k2");
}

TEST_F(RecentPicturesTest, GroupThatFindsNoMemoryIsGivenUpUntilTheNext) {
  auto others = memory_.claim((std::size_t{16} << 20) - 10);
  add("settings", Settings);
  add("12345", Key);
  add("678901", Delta);
  EXPECT_EQ(kept(), "nothing");
  others = {};
  add("d", Delta);
  EXPECT_EQ(kept(), "nothing");
  add("k", Key);
  EXPECT_EQ(kept(), "settings k");
  EXPECT_EQ(memory_.used(), 1u);
}

}  // namespace
}  // namespace vlk::relay
