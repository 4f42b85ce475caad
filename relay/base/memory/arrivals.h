// The messages that arrive and hold memory of the common budget. When it is used up, the largest of them is
// cut.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <utility>

namespace vlk::relay {

// Used on the relay's one thread.
class Arrivals {
  // The largest message is last; of messages of the same size, the newest.
  using Cuts = std::map<std::pair<std::size_t, std::uint64_t>, std::function<void()>>;

 public:
  // A message that arrives, until the object's end. It may outlive its Arrivals.
  class Entry {
   public:
    Entry() = default;
    Entry(Entry&&) = default;
    Entry& operator=(Entry&& other) noexcept {
      std::swap(cuts_, other.cuts_);
      std::swap(key_, other.key_);
      return *this;
    }
    Entry(const Entry&) = delete;
    Entry& operator=(const Entry&) = delete;
    ~Entry() {
      if (cuts_) cuts_->erase(key_);
    }

   private:
    friend class Arrivals;
    Entry(std::shared_ptr<Cuts> cuts, Cuts::key_type key) : cuts_(std::move(cuts)), key_(std::move(key)) {}

    std::shared_ptr<Cuts> cuts_;
    Cuts::key_type key_{};
  };

  // `cut` ends the connection on which the message of `bytes` arrives. It is called at most once.
  [[nodiscard]] Entry add(std::size_t bytes, std::function<void()> cut) {
    const Cuts::key_type key(bytes, ++last_number_);
    cuts_->emplace(key, std::move(cut));
    return {cuts_, key};
  }
  // Cuts the largest message if it has more than `bytes`. Returns whether it did.
  bool cut_larger_than(std::size_t bytes) {
    if (cuts_->empty() || std::prev(cuts_->end())->first.first <= bytes) return false;
    auto largest = cuts_->extract(std::prev(cuts_->end()));
    largest.mapped()();
    return true;
  }

 private:
  const std::shared_ptr<Cuts> cuts_ = std::make_shared<Cuts>();
  std::uint64_t last_number_ = 0;
};

}  // namespace vlk::relay
