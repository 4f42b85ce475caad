// TLS over memory buffers, with the blocking socket calls outside the lock.
#include "net/tls_connection.h"

#include <algorithm>
#include <vector>

#include <openssl/err.h>
#include <openssl/x509v3.h>

namespace vlk::agent {
namespace {

constexpr std::size_t kReceiveSize = 16384;  // bytes per read from the socket: about one TLS record
constexpr std::size_t kRecordSize = 16384;   // largest plain text of a record, RFC 8446 section 5.1
constexpr std::size_t kSendBatch = 4;        // records encrypted between two calls to the socket

}  // namespace

TlsConnection::TlsConnection(SSL_CTX* context, SocketHandle socket, const std::string& host)
    : socket_(socket), ssl_(SSL_new(context)) {
  if (!ssl_) return;
  input_ = BIO_new(BIO_s_mem());
  output_ = BIO_new(BIO_s_mem());
  BIO_set_mem_eof_return(input_, -1);  // an empty buffer means "wait", not "end"
  BIO_set_mem_eof_return(output_, -1);
  SSL_set_bio(ssl_.get(), input_, output_);
  SSL_set_tlsext_host_name(ssl_.get(), host.c_str());
  SSL_set_hostflags(ssl_.get(), X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS);
  SSL_set1_host(ssl_.get(), host.c_str());
}

bool TlsConnection::connect() {
  const MutexLock lock(lock_);
  if (!ssl_) return false;
  for (;;) {
    ERR_clear_error();
    const int result = SSL_connect(ssl_.get());
    const bool wants_input = SSL_get_error(ssl_.get(), result) == SSL_ERROR_WANT_READ;
    if (!flush(true) || result == 1) return result == 1;
    if (!wants_input || !pump_input()) return false;
  }
}

std::ptrdiff_t TlsConnection::read(unsigned char* buffer, std::size_t size) {
  const MutexLock lock(lock_);
  for (;;) {
    ERR_clear_error();
    const int result = SSL_read(ssl_.get(), buffer, static_cast<int>(size));
    const bool wants_input = SSL_get_error(ssl_.get(), result) == SSL_ERROR_WANT_READ;
    flush(false);
    if (result > 0) return result;
    if (!wants_input || !pump_input()) return -1;
  }
}

bool TlsConnection::write(const unsigned char* data, std::size_t length) {
  const MutexLock lock(lock_);
  std::size_t done = 0;
  while (done < length) {
    const std::size_t batch_end = std::min(length, done + kSendBatch * kRecordSize);
    bool wants_input = false;
    while (done < batch_end && !wants_input) {
      ERR_clear_error();
      const int piece = static_cast<int>(std::min(batch_end - done, kRecordSize));
      const int result = SSL_write(ssl_.get(), data + done, piece);
      wants_input = result <= 0 && SSL_get_error(ssl_.get(), result) == SSL_ERROR_WANT_READ;
      if (result <= 0 && !wants_input) return false;
      if (result > 0) done += static_cast<std::size_t>(result);
    }
    if (!flush(true)) return false;
    // Only a renegotiation by a TLS 1.2 server makes a write wait for input.
    if (wants_input && !pump_input()) return false;
  }
  return true;
}

void TlsConnection::shutdown() {
  const MutexLock lock(lock_);
  ERR_clear_error();
  SSL_shutdown(ssl_.get());
  flush(false);
}

bool TlsConnection::pump_input() {
  if (input_ended_) return false;
  if (receiving_) {
    // Another thread already reads from the socket. OpenSSL gets its bytes, so this thread waits for them.
    const std::uint64_t seen = input_count_;
    while (input_count_ == seen && !input_ended_ && receiving_)
      changed_.wait(lock_);
    return !input_ended_;
  }
  receiving_ = true;
  lock_.unlock();
  unsigned char bytes[kReceiveSize];
  const std::ptrdiff_t count = receive_some(socket_, bytes, sizeof bytes);
  lock_.lock();
  receiving_ = false;
  if (count > 0) {
    BIO_write(input_, bytes, static_cast<int>(count));
    ++input_count_;
  } else {
    input_ended_ = true;
  }
  changed_.notify_all();
  return !input_ended_;
}

bool TlsConnection::flush(bool everything) {
  while (everything && sending_)
    changed_.wait(lock_);
  // The thread that is sending also sends whatever is in the buffer before it stops.
  if (sending_) return true;
  std::vector<unsigned char> bytes;
  sending_ = true;
  while (!output_failed_ && BIO_pending(output_) > 0) {
    bytes.resize(static_cast<std::size_t>(BIO_pending(output_)));
    BIO_read(output_, bytes.data(), static_cast<int>(bytes.size()));
    lock_.unlock();
    const bool sent = send_all(socket_, bytes.data(), bytes.size());
    lock_.lock();
    if (!sent) output_failed_ = true;
    // The reader returns to reading. Output that OpenSSL has produced meanwhile belongs to a waiting writer,
    // which sends it.
    if (!everything) break;
  }
  sending_ = false;
  changed_.notify_all();
  return !output_failed_;
}

}  // namespace vlk::agent
