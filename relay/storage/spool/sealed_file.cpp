// Seals messages, and writes and reads them in the slots of a file.
#include "relay/storage/spool/sealed_file.h"

#include <fcntl.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "relay/storage/spool/folder.h"

namespace vlk::relay {
namespace {

using Nonce = std::array<std::uint8_t, crypto_aead_xchacha20poly1305_ietf_NPUBBYTES>;

// The number as a nonce. The key is the file's own, so a counter is enough.
Nonce nonce_of(std::uint64_t number) {
  Nonce nonce{};
  for (std::size_t i = 0; i < sizeof number; ++i)
    nonce.at(i) = static_cast<std::uint8_t>(number >> (8 * i));
  return nonce;
}

// Calls `transfer`, a pread or pwrite of the bytes from `done` on, until `size` bytes are transferred.
template <class Transfer>
bool transfer_all(std::size_t size, Transfer transfer) {
  for (std::size_t done = 0; done < size;) {
    const ssize_t count = transfer(done);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return false;
    done += static_cast<std::size_t>(count);
  }
  return true;
}

off_t offset_of(std::uint64_t slot) {
  return static_cast<off_t>(slot * kSlotBytes);
}

// Removes from the start of `rest` the part that lies in `run`, and returns this part.
template <class Byte>
std::span<Byte> take_part(std::span<Byte>& rest, const SlotRun& run) {
  const auto size = static_cast<std::size_t>(std::min<std::uint64_t>(rest.size(), run.count * kSlotBytes));
  const std::span<Byte> part = rest.first(size);
  rest = rest.subspan(size);
  return part;
}

}  // namespace

SealedFile::SealedFile(std::filesystem::path folder, std::uint64_t free)
    : folder_(std::move(folder)), free_(free) {
  crypto_aead_xchacha20poly1305_ietf_keygen(key_.data());
}

SealedFile::~SealedFile() {
  sodium_memzero(key_.data(), key_.size());
  if (descriptor_ >= 0) ::close(descriptor_);
}

bool SealedFile::write(const StoredMessage& stored, std::span<const std::uint8_t> message) {
  if (descriptor_ < 0) descriptor_ = make_nameless_file(folder_);
  if (descriptor_ < 0 || !leaves_enough(message.size())) return false;
  Bytes sealed(message.size() + crypto_aead_xchacha20poly1305_ietf_ABYTES);
  const Nonce nonce = nonce_of(stored.number);
  crypto_aead_xchacha20poly1305_ietf_encrypt(sealed.data(), nullptr, message.data(), message.size(), nullptr,
                                             0, nullptr, nonce.data(), key_.data());
  return put(stored.runs, sealed);
}

std::shared_ptr<const Bytes> SealedFile::read(const StoredMessage& stored) {
  const auto bytes = std::make_shared<Bytes>(stored.size + crypto_aead_xchacha20poly1305_ietf_ABYTES);
  if (descriptor_ < 0 || !get(stored.runs, *bytes)) return nullptr;
  const Nonce nonce = nonce_of(stored.number);
  // The message may take the place of its sealed bytes.
  if (crypto_aead_xchacha20poly1305_ietf_decrypt(bytes->data(), nullptr, nullptr, bytes->data(),
                                                 bytes->size(), nullptr, 0, nonce.data(), key_.data()) != 0)
    return nullptr;
  bytes->resize(stored.size);
  return bytes;
}

void SealedFile::free(const StoredMessage& stored, std::uint64_t end) {
  if (descriptor_ < 0) return;
  // The space within the file goes back too. Otherwise one message that stays at the end would keep the
  // session's peak on the disk, although its room is counted as free.
  for (const SlotRun& run : stored.runs) {
    const std::uint64_t run_end = std::min<std::uint64_t>(std::uint64_t{run.first} + run.count, end);
    if (run.first >= run_end) continue;
    [[maybe_unused]] const int punched = ::fallocate(descriptor_, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE,
                                                     offset_of(run.first), offset_of(run_end - run.first));
  }
  if (end < length_ && ::ftruncate(descriptor_, offset_of(end)) == 0) length_ = end;
}

// The database would fail on a full disk, and with it every session.
bool SealedFile::leaves_enough(std::size_t bytes) const {
  struct statvfs disk {};
  if (::fstatvfs(descriptor_, &disk) != 0) return false;
  const std::uint64_t left = std::uint64_t{disk.f_bavail} * disk.f_frsize;
  return left >= bytes && left - bytes >= free_;
}

bool SealedFile::put(const std::vector<SlotRun>& runs, std::span<const std::uint8_t> sealed) {
  for (const SlotRun& run : runs) {
    const std::span<const std::uint8_t> part = take_part(sealed, run);
    length_ = std::max<std::uint64_t>(length_, std::uint64_t{run.first} + run.count);
    const auto transfer = [&](std::size_t done) {
      return ::pwrite(descriptor_, part.data() + done, part.size() - done,
                      offset_of(run.first) + static_cast<off_t>(done));
    };
    if (!transfer_all(part.size(), transfer)) return false;
  }
  return true;
}

bool SealedFile::get(const std::vector<SlotRun>& runs, std::span<std::uint8_t> sealed) const {
  for (const SlotRun& run : runs) {
    const std::span<std::uint8_t> part = take_part(sealed, run);
    const auto transfer = [&](std::size_t done) {
      return ::pread(descriptor_, part.data() + done, part.size() - done,
                     offset_of(run.first) + static_cast<off_t>(done));
    };
    if (!transfer_all(part.size(), transfer)) return false;
  }
  return true;
}

}  // namespace vlk::relay
