// One TLS connection over one socket, on which one thread reads while others write.
//
// OpenSSL allows only one thread at a time to use an SSL object. On a connection that lasts for months,
// session tickets and key updates arrive during writes. Each OpenSSL call therefore runs under a lock that
// belongs to the connection and is never held during a wait: OpenSSL works on memory, and the blocking socket
// calls happen outside the lock. A reader never waits for a blocked writer, nor a writer for a blocked
// reader.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include <openssl/ssl.h>

#include "net/socket.h"
#include "platform/threads/mutex.h"

namespace vlk::agent {

class TlsConnection {
 public:
  // Does not own the socket. `host` is sent as the server name, and the certificate must be valid for it; a
  // wildcard for part of a label does not match. If the context is null, every handshake fails.
  TlsConnection(SSL_CTX* context, SocketHandle socket, const std::string& host);

  // Performs the handshake. False if it fails, which includes a certificate that cannot be verified.
  [[nodiscard]] bool connect() VLK_EXCLUDES(lock_);

  // Waits for the next bytes and returns their number; below 1 when the connection has ended. Only one thread
  // at a time may read.
  [[nodiscard]] std::ptrdiff_t read(unsigned char* buffer, std::size_t size) VLK_EXCLUDES(lock_);

  // Sends all of `data`. Blocks until the system has accepted it; false on failure. The caller makes sure
  // that only one message is written at a time.
  [[nodiscard]] bool write(const unsigned char* data, std::size_t length) VLK_EXCLUDES(lock_);

  // Sends the alert that ends the connection. Called once. A failure is ignored.
  void shutdown() VLK_EXCLUDES(lock_);

 private:
  // Waits for bytes from the socket and gives them to OpenSSL; false at the end of the stream. Releases the
  // lock while it waits.
  [[nodiscard]] bool pump_input() VLK_REQUIRES(lock_);
  // Sends the bytes that OpenSSL has produced; false once sending has failed. If `everything` is true,
  // returns only when all of them are sent, by this thread or another. Releases the lock while it sends.
  bool flush(bool everything) VLK_REQUIRES(lock_);

  struct SslDeleter {
    void operator()(SSL* ssl) const { SSL_free(ssl); }
  };

  const SocketHandle socket_;
  Mutex lock_;
  std::unique_ptr<SSL, SslDeleter> ssl_ VLK_GUARDED_BY(lock_);
  BIO* input_ VLK_GUARDED_BY(lock_) = nullptr;   // from the network to OpenSSL; owned by ssl_
  BIO* output_ VLK_GUARDED_BY(lock_) = nullptr;  // from OpenSSL to the network; owned by ssl_
  ConditionVariable changed_;
  bool receiving_ VLK_GUARDED_BY(lock_) = false;  // a thread is waiting for input from the socket
  bool sending_ VLK_GUARDED_BY(lock_) = false;    // a thread is sending OpenSSL's output
  bool input_ended_ VLK_GUARDED_BY(lock_) = false;
  bool output_failed_ VLK_GUARDED_BY(lock_) = false;
  std::uint64_t input_count_ VLK_GUARDED_BY(lock_) = 0;  // batches of input received
};

}  // namespace vlk::agent
