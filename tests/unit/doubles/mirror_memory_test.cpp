// The memory of the mirrored desktop: copies equal the published pictures, also while the next ones are
// written.
#include "tests/doubles/mirror_memory.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "support/temp_folder.h"
#include "tests/doubles/mirror/picture_file.h"

namespace {

using namespace vantelink_doubles;
using Bytes = std::vector<std::uint8_t>;

constexpr std::int32_t kWidth = 320, kHeight = 200;
constexpr std::size_t kRowSize = kWidth * kMirrorPixelSize;

class MirrorMemory : public testing::Test {
 protected:
  MirrorMemory() : writer_(path_, 1) {
    const int file = ::open(path_.c_str(), O_RDONLY | O_CLOEXEC);
    void* const view = ::mmap(nullptr, kMirrorFileSize, PROT_READ, MAP_SHARED, file, 0);
    ::close(file);
    if (view == MAP_FAILED) throw std::runtime_error("cannot map " + path_);
    memory_ = static_cast<std::uint8_t*>(view);
  }
  ~MirrorMemory() override { ::munmap(memory_, kMirrorFileSize); }

  // Publishes a picture in which these rectangles have this value, and notes what the whole picture then is.
  void publish(const std::vector<Rectangle>& changes, std::uint8_t value) {
    ASSERT_TRUE(writer_.publish(kWidth, kHeight, changes, [&](std::uint8_t* pixels) {
      for (const Rectangle& one : changes) {
        fill(pixels, one, value);
        fill(expected_.data(), one, value);
      }
      return true;
    }));
  }
  static void fill(std::uint8_t* pixels, const Rectangle& area, std::uint8_t value) {
    for (std::int32_t row = area.top; row < area.bottom; ++row)
      std::memset(pixels + static_cast<std::size_t>(row) * kRowSize +
                      static_cast<std::size_t>(area.left) * kMirrorPixelSize,
                  value, static_cast<std::size_t>(area.right - area.left) * kMirrorPixelSize);
  }

  void expect_equal() {
    ASSERT_TRUE(update_copy(memory_, copy_));
    EXPECT_EQ(copy_.number, mirror_header(memory_).published);
    for (std::size_t row = 0; row < kHeight; ++row)
      ASSERT_EQ(std::memcmp(copied_.data() + row * kPitch, expected_.data() + row * kRowSize, kRowSize), 0)
          << "row " << row << " of picture " << copy_.number;
  }

  static constexpr std::size_t kPitch = kRowSize + 64;
  static constexpr Rectangle kWhole = {0, 0, kWidth, kHeight};
  const vantelink_test::TempFolder folder_;
  const std::string path_ = folder_.path() / "mirror";
  PictureFile writer_;
  std::uint8_t* memory_;
  Bytes expected_ = Bytes(kRowSize * kHeight), copied_ = Bytes(kPitch * kHeight);
  PictureCopy copy_ = {copied_.data(), kPitch, kWidth, kHeight, 0};
};

TEST_F(MirrorMemory, ThereIsNoCopyBeforeTheFirstPicture) {
  EXPECT_FALSE(update_copy(memory_, copy_));
  EXPECT_EQ(copy_.number, 0);
}

TEST_F(MirrorMemory, CopyFollowsEachPicture) {
  publish({kWhole}, 9);
  expect_equal();
  publish({{10, 20, 30, 40}, {100, 0, 320, 3}}, 50);
  expect_equal();
  publish({{300, 190, 320, 200}}, 51);
  expect_equal();
  publish({kWhole}, 52);
  expect_equal();
  publish({{0, 0, 1, 1}}, 53);
  expect_equal();
}

TEST_F(MirrorMemory, CopyThatMissedPicturesContainsTheirChanges) {
  publish({kWhole}, 9);
  expect_equal();
  publish({{10, 20, 30, 40}}, 50);
  publish({{200, 20, 210, 40}}, 51);
  expect_equal();
  for (std::uint8_t i = 0; i < 5; ++i)
    publish({{i * 20, i * 10, i * 20 + 15, i * 10 + 5}}, static_cast<std::uint8_t>(60 + i));
  expect_equal();
}

TEST_F(MirrorMemory, CopyOfAnotherSizeIsRefused) {
  publish({kWhole}, 9);
  copy_.width = kWidth - 1;
  EXPECT_FALSE(update_copy(memory_, copy_));
  EXPECT_EQ(copied_, Bytes(copied_.size()));
}

TEST_F(MirrorMemory, PictureOfANewSizeIsWhole) {
  publish({kWhole}, 9);
  const std::int32_t width = kWidth / 2;
  ASSERT_TRUE(writer_.publish(width, kHeight, {{0, 0, width, kHeight}}, [](std::uint8_t* pixels) {
    std::memset(pixels, 77, kRowSize / 2 * kHeight);
    return true;
  }));
  PictureCopy narrow = {copied_.data(), kRowSize / 2, width, kHeight, 0};
  ASSERT_TRUE(update_copy(memory_, narrow));
  EXPECT_EQ(std::count(copied_.begin(), copied_.end(), 77), std::ptrdiff_t{kRowSize / 2 * kHeight});
}

TEST_F(MirrorMemory, PictureThatCouldNotBeDrawnIsNotPublished) {
  publish({kWhole}, 9);
  EXPECT_FALSE(writer_.publish(kWidth, kHeight, {kWhole}, [](std::uint8_t* pixels) {
    std::memset(pixels, 1, kRowSize * kHeight);
    return false;
  }));
  expect_equal();
  publish({kWhole}, 10);
  expect_equal();
}

TEST_F(MirrorMemory, PictureIsIntactUntilTheOneAfterTheNextIsBegun) {
  publish({kWhole}, 1);
  const auto begun_during = [&](std::int64_t number) {
    bool intact = false;
    writer_.publish(kWidth, kHeight, {kWhole}, [&](std::uint8_t*) {
      intact = picture_intact(memory_, number);
      return true;
    });
    return intact;
  };
  EXPECT_TRUE(begun_during(1));   // picture 2 is in the other slot
  EXPECT_FALSE(begun_during(1));  // picture 3 replaces picture 1
}

// Each picture has one value only, so a copy with two values is made of two pictures.
TEST_F(MirrorMemory, CopyIsNeverMadeOfTwoPictures) {
  publish({kWhole}, 1);
  std::atomic<bool> ends = false;
  std::thread writing([&] {
    for (std::uint8_t value = 2; !ends; ++value)
      writer_.publish(kWidth, kHeight, {kWhole}, [&](std::uint8_t* pixels) {
        // Takes longer than a copy, or hardly any copy would succeed.
        for (int i = 0; i < 2; ++i)
          std::memset(pixels, value, kRowSize * kHeight);
        return true;
      });
  });
  for (int i = 0; i < 300; ++i) {
    copy_.number = 0;
    const bool copied = update_copy(memory_, copy_);
    EXPECT_TRUE(copied);
    std::size_t torn = 0;
    for (std::size_t row = 0; row < kHeight; ++row)
      torn += static_cast<std::size_t>(
          std::count_if(copied_.begin() + static_cast<std::ptrdiff_t>(row * kPitch),
                        copied_.begin() + static_cast<std::ptrdiff_t>(row * kPitch + kRowSize),
                        [&](std::uint8_t value) { return value != copied_.front(); }));
    EXPECT_EQ(torn, 0u) << "in copy " << i;
  }
  ends = true;
  writing.join();
}

}  // namespace
