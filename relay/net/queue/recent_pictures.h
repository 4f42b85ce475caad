// The pictures of a stream that a new viewer needs in order to see the present picture at once.
#pragma once

#include <cstddef>
#include <memory>
#include <utility>
#include <vector>

#include "relay/base/bytes.h"
#include "relay/base/memory/memory_budget.h"
#include "relay/net/queue/picture_gate.h"

namespace vlk::relay {

// Keeps the stream's settings and its last picture that needs no other, with all pictures since. Used on the
// relay's one thread.
class RecentPictures {
 public:
  struct Message {
    std::shared_ptr<const Bytes> bytes{};
    PictureKind kind = PictureKind::Complete;
    MemoryBudget::Claim claim{};
  };

  // Keeps a message of the stream. `memory` is shared by all streams. When it is used up, or this stream has
  // kMostBytes, nothing is kept until the next picture that needs no other.
  void add(const std::shared_ptr<const Bytes>& bytes, PictureKind kind, MemoryBudget& memory) {
    if (kind == PictureKind::Settings) {
      clear();
      if (bytes->size() <= kMostSettings) settings_ = bytes;
      return;
    }
    if (kind != PictureKind::Delta) drop_pictures();
    if (kind == PictureKind::Delta && pictures_.empty()) return;
    MemoryBudget::Claim claim =
        bytes_ + bytes->size() > kMostBytes ? MemoryBudget::Claim{} : memory.claim(bytes->size());
    if (!claim) return drop_pictures();
    bytes_ += bytes->size();
    pictures_.push_back({bytes, kind, std::move(claim)});
  }
  // Forgets the stream, for instance when it has ended.
  void clear() {
    settings_.reset();
    drop_pictures();
  }

  // True if a viewer who gets the settings and then the pictures sees the present picture.
  [[nodiscard]] bool complete() const { return settings_ && !pictures_.empty(); }
  [[nodiscard]] const std::shared_ptr<const Bytes>& settings() const { return settings_; }
  // In the order of their arrival.
  [[nodiscard]] const std::vector<Message>& pictures() const { return pictures_; }

  static constexpr std::size_t kMostBytes = std::size_t{4} << 20;
  // A machine's settings have about a hundred bytes. Longer ones are not kept: they do not count in `memory`.
  static constexpr std::size_t kMostSettings = 4096;

 private:
  void drop_pictures() {
    pictures_.clear();
    bytes_ = 0;
  }

  std::shared_ptr<const Bytes> settings_;
  std::vector<Message> pictures_;
  std::size_t bytes_ = 0;
};

}  // namespace vlk::relay
