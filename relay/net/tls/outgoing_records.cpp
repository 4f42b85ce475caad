// Collects what OpenSSL writes, and sends it.
#include "relay/net/tls/outgoing_records.h"

#include <sys/socket.h>

#include <cerrno>

namespace vlk::relay {
namespace {

// What one connection has written since its last send(). Keeps its memory.
struct Shared {
  Bytes bytes{};
  const OutgoingRecords* owner = nullptr;  // of the bytes
};
Shared& shared() {
  thread_local Shared buffer;
  return buffer;
}

long control(BIO*, int command, long, void*) {
  return command == BIO_CTRL_FLUSH ? 1 : 0;
}

}  // namespace

BIO* OutgoingRecords::make_bio() {
  static BIO_METHOD* const method = [] {
    BIO_METHOD* const made = BIO_meth_new(BIO_get_new_index() | BIO_TYPE_SOURCE_SINK, "records");
    BIO_meth_set_write_ex(made, &OutgoingRecords::write);
    BIO_meth_set_ctrl(made, &control);
    return made;
  }();
  BIO* const bio = BIO_new(method);
  if (!bio) return nullptr;
  BIO_set_data(bio, this);
  BIO_set_init(bio, 1);
  return bio;
}

int OutgoingRecords::write(BIO* bio, const char* bytes, std::size_t size, std::size_t* written) {
  BIO_clear_retry_flags(bio);
  static_cast<OutgoingRecords*>(BIO_get_data(bio))
      ->collect({reinterpret_cast<const std::uint8_t*>(bytes), size});
  *written = size;
  return 1;
}

void OutgoingRecords::collect(std::span<const std::uint8_t> bytes) {
  if (rest_.empty() && shared().owner != this) {
    shared().bytes.clear();
    shared().owner = this;
  }
  // A rest that always gets more before the system has taken all of it does not keep what was taken.
  if (rest_at_ > rest_.size() / 2) {
    rest_.erase(rest_.begin(), rest_.begin() + static_cast<std::ptrdiff_t>(rest_at_));
    rest_at_ = 0;
  }
  Bytes& buffer = rest_.empty() ? shared().bytes : rest_;
  buffer.insert(buffer.end(), bytes.begin(), bytes.end());
  collected_ += bytes.size();
}

int OutgoingRecords::send(int socket) {
  if (problem_ == 0 && !empty() && rest_.empty() && shared().owner != this) problem_ = ECONNABORTED;
  if (problem_ != 0 || empty()) return problem_;
  const Bytes& buffer = rest_.empty() ? shared().bytes : rest_;
  const auto waiting = std::span(buffer).subspan(rest_at_);
  const ssize_t result = ::send(socket, waiting.data(), waiting.size(), MSG_NOSIGNAL);
  if (result < 0 && errno != EAGAIN && errno != EINTR) {
    problem_ = errno;
    clear();
    return problem_;
  }
  const std::size_t taken = result < 0 ? 0 : static_cast<std::size_t>(result);
  sent_ += taken;
  if (empty()) {
    clear();
  } else if (rest_.empty()) {
    const auto rest = waiting.subspan(taken);
    rest_.assign(rest.begin(), rest.end());
    shared().owner = nullptr;
  } else {
    rest_at_ += taken;
  }
  return 0;
}

void OutgoingRecords::clear() {
  if (shared().owner == this) shared().owner = nullptr;
  Bytes().swap(rest_);
  rest_at_ = 0;
  sent_ = collected_;
}

}  // namespace vlk::relay
