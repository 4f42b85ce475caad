// The bytes that OpenSSL has written for one connection, until the system takes them: several TLS records go
// to the system in one call.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include <openssl/bio.h>

#include "relay/base/bytes.h"

namespace vlk::relay {

// Used on one thread at a time. While nothing waits, it owns no memory: OpenSSL writes into a buffer that all
// connections of the thread share, and only what the system does not take is copied.
class OutgoingRecords {
 public:
  OutgoingRecords() = default;
  ~OutgoingRecords() { clear(); }
  OutgoingRecords(const OutgoingRecords&) = delete;
  OutgoingRecords& operator=(const OutgoingRecords&) = delete;

  // Returns a BIO that writes to this object, which outlives it. The caller owns it. Null if there is no
  // memory.
  [[nodiscard]] BIO* make_bio();
  // Gives the system what waits, as far as it takes it at once. To be called after each call of OpenSSL that
  // may have written, before another connection writes. Returns 0, or errno's value; then the bytes are
  // dropped, and every later call fails too, because the peer would miss them.
  [[nodiscard]] int send(int socket);
  // What has failed; 0 if nothing has.
  [[nodiscard]] int problem() const { return problem_; }
  void clear();

  [[nodiscard]] bool empty() const { return collected_ == sent_; }
  // The bytes that OpenSSL has written so far, and those of them that the system has taken.
  [[nodiscard]] std::uint64_t collected() const { return collected_; }
  [[nodiscard]] std::uint64_t sent() const { return sent_; }
  // The bytes of memory that this object owns.
  [[nodiscard]] std::size_t memory() const { return rest_.capacity(); }

 private:
  static int write(BIO* bio, const char* bytes, std::size_t size, std::size_t* written);
  void collect(std::span<const std::uint8_t> bytes);

  Bytes rest_;               // what the system did not take
  std::size_t rest_at_ = 0;  // the first of these bytes that still waits
  std::uint64_t collected_ = 0;
  std::uint64_t sent_ = 0;
  int problem_ = 0;
};

}  // namespace vlk::relay
