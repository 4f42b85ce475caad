// Random operations on three spools, compared with a model that keeps every message in memory.
#include <array>
#include <deque>
#include <map>
#include <random>

#include "relay/storage/spool/spool_fixture.h"

namespace vlk::relay {
namespace {

constexpr SpoolLimits kLimits{.session = 40 * kSlotBytes, .all = 144 * kSlotBytes};
constexpr int kSteps = 10'000;
constexpr unsigned kSeed = 20261;

class SpoolModelTest : public SpoolTest {
 protected:
  // A spool and what it should have.
  struct Model {
    std::unique_ptr<Spool> spool;
    std::map<Spool::Place, Message> messages;
    std::deque<std::string> expected;  // callbacks that have to come, in their order
    std::uint64_t room = 0;
    std::size_t unwritten = 0;
  };

  static std::uint64_t room_of(std::size_t size) {
    return (size + kSealBytes + kSlotBytes - 1) / kSlotBytes * kSlotBytes;
  }
  std::size_t random(std::size_t most) {
    return std::uniform_int_distribution<std::size_t>(0, most)(random_);
  }

  static void called(Model& model, const std::string& what) {
    ASSERT_FALSE(model.expected.empty());
    EXPECT_EQ(model.expected.front(), what);
    model.expected.pop_front();
  }

  void write(Model& model) {
    const std::size_t size = random(3) == 0 ? random(300 * 1024) : random(70'000);
    const Message bytes = message(size, static_cast<std::uint8_t>(random(255)));
    const std::uint64_t room = room_of(size);
    std::uint64_t all = room;
    for (const Model& each : models_)
      all += each.room;
    const bool fits = model.room + room <= kLimits.session && model.room + room + all <= kLimits.all;
    const std::string name = "write " + std::to_string(++operations_);
    const auto place = model.spool->write(bytes, [&model, size, name](bool good) {
      model.unwritten -= size;
      EXPECT_EQ(model.spool->unwritten(), model.unwritten);
      EXPECT_TRUE(good);
      called(model, name);
    });
    ASSERT_EQ(place.has_value(), fits);
    if (!fits) return static_cast<void>(++refused_);
    EXPECT_TRUE(model.messages.emplace(*place, bytes).second) << "the place was given twice";
    model.expected.push_back(name);
    model.room += room;
    model.unwritten += size;
  }

  auto any_message(Model& model) {
    return std::next(model.messages.begin(), static_cast<std::ptrdiff_t>(random(model.messages.size() - 1)));
  }

  void read(Model& model) {
    if (model.messages.empty()) return;
    const auto [place, bytes] = *any_message(model);
    const std::string name = "read " + std::to_string(++operations_);
    model.expected.push_back(name);
    model.spool->read(place, [&model, bytes = bytes, name](const Message& got) {
      EXPECT_TRUE(got && *got == *bytes) << name;
      called(model, name);
    });
  }

  void release(Model& model) {
    if (model.messages.empty()) return;
    const auto found = any_message(model);
    model.spool->release(found->first);
    model.room -= room_of(found->second->size());
    model.messages.erase(found);
  }

  void open_again(Model& model) {
    model.spool.reset();
    model = {};
    model.spool = spools_->open();
  }

  void step() {
    Model& model = models_.at(random(models_.size() - 1));
    const std::size_t kind = random(999);
    if (kind < 420) {
      write(model);
    } else if (kind < 650) {
      read(model);
    } else if (kind < 950) {
      release(model);
    } else if (kind < 953) {
      open_again(model);
    } else if (kind < 963) {
      settle();
    } else {
      loop_.poll();
    }
  }

  void compare() {
    std::uint64_t all = 0;
    for (const Model& model : models_) {
      EXPECT_EQ(model.spool->used(), model.room);
      EXPECT_EQ(model.spool->unwritten(), model.unwritten);
      all += model.room;
    }
    EXPECT_EQ(spools_->used(), all);
  }

  std::mt19937 random_{kSeed};
  std::array<Model, 3> models_;
  std::size_t operations_ = 0;
  std::size_t refused_ = 0;
};

TEST_F(SpoolModelTest, RandomOperationsGiveWhatTheModelGives) {
  start(kLimits);
  for (Model& model : models_)
    model.spool = spools_->open();
  for (int i = 0; i < kSteps && !HasFailure(); ++i) {
    const testing::ScopedTrace trace(__FILE__, __LINE__, "step " + std::to_string(i));
    step();
    compare();
  }
  EXPECT_GT(refused_, 10u) << "the limits were hardly reached";
  EXPECT_LT(refused_, operations_ / 4) << "most writes found no room";
  settle();
  for (Model& model : models_) {
    EXPECT_TRUE(model.expected.empty());
    for (const auto& [place, bytes] : model.messages)
      EXPECT_TRUE(holds(*model.spool, place, bytes)) << place;
    model.spool.reset();
  }
  EXPECT_EQ(spools_->used(), 0u);
}

}  // namespace
}  // namespace vlk::relay
