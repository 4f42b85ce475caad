// Spools in an empty folder on a loop that the test runs by hand, and the files that the spools have open.
#pragma once

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <gtest/gtest.h>
#include <sodium.h>

#include "relay/base/secrets.h"
#include "relay/storage/spool/spools.h"
#include "support/temp_folder.h"
#include "support/waiting.h"

namespace vlk::relay {

class SpoolTest : public testing::Test {
 protected:
  using Message = std::shared_ptr<const Bytes>;
  static constexpr std::size_t kSealBytes = 16;

  static void SetUpTestSuite() { start_sodium(); }

  void start(const SpoolLimits& limits = {}) {
    spools_ = std::make_unique<Spools>(folder_, loop_.get_executor(), limits);
  }

  // A message of bytes that depend on its size and on `seed`.
  static Message message(std::size_t size, std::uint8_t seed = 0) {
    Bytes bytes(size);
    const std::vector<unsigned char> seeds(randombytes_SEEDBYTES, seed);
    if (size > 0) randombytes_buf_deterministic(bytes.data(), bytes.size(), seeds.data());
    return std::make_shared<const Bytes>(std::move(bytes));
  }

  // Runs callbacks until the condition is true.
  template <class Condition>
  [[nodiscard]] testing::AssertionResult run_until(Condition condition) {
    while (!condition()) {
      if (loop_.run_one_for(vantelink_test::kPatience) == 0)
        return testing::AssertionFailure() << "the callback was not called";
    }
    return testing::AssertionSuccess();
  }

  // Stores the message and waits for the disk. Returns what `written` reported.
  bool store(Spool& spool, const Message& bytes, Spool::Place* place = nullptr) {
    std::optional<bool> result;
    const auto got = spool.write(bytes, [&](bool good) { result = good; });
    if (!got) {
      ADD_FAILURE() << "there is no room";
      return false;
    }
    if (place != nullptr) *place = *got;
    EXPECT_TRUE(run_until([&] { return result.has_value(); }));
    return result.value_or(false);
  }
  Spool::Place stored(Spool& spool, const Message& bytes) {
    Spool::Place place = 0;
    EXPECT_TRUE(store(spool, bytes, &place));
    return place;
  }

  Message fetch(Spool& spool, Spool::Place place) {
    std::optional<Message> result;
    spool.read(place, [&](Message bytes) { result = std::move(bytes); });
    EXPECT_TRUE(run_until([&] { return result.has_value(); }));
    return result.value_or(nullptr);
  }
  // Says whether the place has exactly these bytes.
  testing::AssertionResult holds(Spool& spool, Spool::Place place, const Message& bytes) {
    const Message got = fetch(spool, place);
    if (!got) return testing::AssertionFailure() << "the read failed";
    if (*got != *bytes) return testing::AssertionFailure() << "the read gave other bytes";
    return testing::AssertionSuccess();
  }

  // Waits until the disk has done all that was asked of it, and runs the callbacks up to then.
  void settle() {
    const auto last = spools_->open();
    EXPECT_EQ(fetch(*last, 0), nullptr);
  }

  // The paths under which the open files of the spools can be opened although they have no name.
  std::vector<std::string> open_files() const {
    std::vector<std::string> files;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
      std::error_code error;
      const std::string target = std::filesystem::read_symlink(entry.path(), error).string();
      if (target.starts_with((folder_ / "").string())) files.push_back(entry.path().string());
    }
    return files;
  }
  // The one open file.
  std::string open_file() const {
    const auto files = open_files();
    EXPECT_EQ(files.size(), 1u);
    return files.empty() ? std::string() : files.front();
  }
  static struct stat status(const std::string& file) {
    struct stat result {};
    EXPECT_EQ(::stat(file.c_str(), &result), 0);
    return result;
  }
  static std::string content(const std::string& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
  }
  static void overwrite(const std::string& file, std::size_t offset, const std::string& bytes) {
    std::fstream stream(file, std::ios::binary | std::ios::in | std::ios::out);
    stream.seekp(static_cast<std::streamoff>(offset));
    stream << bytes;
    EXPECT_TRUE(stream.flush());
  }

  const vantelink_test::TempFolder temporary_;
  const std::filesystem::path folder_ = temporary_.path() / "spool";
  boost::asio::io_context loop_{1};
  const boost::asio::executor_work_guard<boost::asio::io_context::executor_type> work_{loop_.get_executor()};
  std::unique_ptr<Spools> spools_;
};

}  // namespace vlk::relay
