// The encrypted file of one spool.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>
#include <vector>

#include <sodium.h>

#include "relay/base/bytes.h"
#include "relay/storage/spool/slots.h"

namespace vlk::relay {

// Where a message is in the file, and what opens it. Kept in memory only.
struct StoredMessage {
  std::vector<SlotRun> runs;
  std::uint64_t number = 0;  // becomes the nonce: no other message of the file ever has it
  std::size_t size = 0;      // in bytes, without the seal

  // The slots that a message of `size` bytes takes.
  [[nodiscard]] static std::uint64_t slots(std::uint64_t size) {
    return (size + crypto_aead_xchacha20poly1305_ietf_ABYTES + kSlotBytes - 1) / kSlotBytes;
  }
};

// Each message is sealed as a whole under a random key that only this object has. The file has no name and is
// gone with the object. Made by any thread, then used by one thread.
class SealedFile {
 public:
  // Makes no file yet; start_sodium() has been called. A write fails when fewer than `free` bytes of the file
  // system would be left.
  SealedFile(std::filesystem::path folder, std::uint64_t free);
  ~SealedFile();  // frees the file's space, which may take long
  SealedFile(const SealedFile&) = delete;
  SealedFile& operator=(const SealedFile&) = delete;

  // Seals `message` and writes it to its slots. Returns false if the disk is full or failed; then the next
  // call tries again, with a new file if none could be made. Needs memory for one more copy of the message.
  [[nodiscard]] bool write(const StoredMessage& stored, std::span<const std::uint8_t> message);
  // Returns the message, or null if the disk failed or the bytes in the slots are not those that were
  // written.
  [[nodiscard]] std::shared_ptr<const Bytes> read(const StoredMessage& stored);
  // Gives the space of a message back to the file system. `end` is the number of slots that the file needs
  // from now on. Failures are ignored: the slots can be used again all the same.
  void free(const StoredMessage& stored, std::uint64_t end);

 private:
  [[nodiscard]] bool put(const std::vector<SlotRun>& runs, std::span<const std::uint8_t> sealed);
  [[nodiscard]] bool get(const std::vector<SlotRun>& runs, std::span<std::uint8_t> sealed) const;

  [[nodiscard]] bool leaves_enough(std::size_t bytes) const;

  const std::filesystem::path folder_;
  const std::uint64_t free_;
  std::array<std::uint8_t, crypto_aead_xchacha20poly1305_ietf_KEYBYTES> key_{};
  int descriptor_ = -1;
  std::uint64_t length_ = 0;  // in slots; at least that of the file
};

}  // namespace vlk::relay
