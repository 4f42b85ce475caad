// The slots of a spool's file: which ones are taken, and which ones a message gets.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace vlk::relay {

// Four slots have room for an agent's chunk of 256 KiB with its headers and its seal.
inline constexpr std::uint64_t kSlotBytes = 68 * 1024;

// Neighbouring slots of a file, counted from the file's start.
struct SlotRun {
  std::uint32_t first = 0;
  std::uint32_t count = 0;
};

// Remembers one bit for each slot, so a session of 2 GiB needs 4 KiB for it. Used by one thread.
class Slots {
 public:
  // Takes the lowest free slots, so that the file stays short and its end becomes free again. The slots of a
  // message are neighbours where the lowest free ones are.
  [[nodiscard]] std::vector<SlotRun> take(std::uint64_t count);
  // The runs come from take() and are given back once.
  void give_back(const std::vector<SlotRun>& runs);
  [[nodiscard]] std::uint64_t taken() const { return taken_; }
  // The number of slots up to the last one that is taken, i.e. the length that the file needs.
  [[nodiscard]] std::uint64_t end() const { return bits_.size(); }

 private:
  std::vector<bool> bits_;  // true: taken; the last one is always taken
  std::size_t lowest_ = 0;  // every slot below is taken
  std::uint64_t taken_ = 0;
};

}  // namespace vlk::relay
