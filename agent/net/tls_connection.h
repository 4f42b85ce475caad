// One TLS connection over one socket, on which one thread reads while others write.
//
// OpenSSL allows one thread at a time inside an SSL object, and on a connection that lasts for months session
// tickets and key updates arrive during writes. Each OpenSSL call therefore runs under a lock of the
// connection's own, which is never held during a wait: OpenSSL works on memory, and the blocking socket calls
// happen outside the lock. A reader never waits for a blocked writer, nor a writer for a blocked reader.
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
  // Borrows the socket. `host` is sent as server name and is the name that the certificate must carry; a
  // wildcard for part of a label does not match. Without a context every handshake fails.
  TlsConnection(SSL_CTX* context, SocketHandle socket, const std::string& host);

  // The handshake; false if it fails, also for a certificate that does not verify.
  [[nodiscard]] bool connect() VLK_EXCLUDES(lock_);

  // Blocks for the next bytes; below 1 when the connection has ended. One thread at a time.
  [[nodiscard]] std::ptrdiff_t read(unsigned char* buffer, std::size_t size) VLK_EXCLUDES(lock_);

  // Blocks until the system has taken all of `data`; false if it did not. The caller makes sure that one
  // message is written at a time.
  [[nodiscard]] bool write(const unsigned char* data, std::size_t length) VLK_EXCLUDES(lock_);

  // Sends the closing alert, once. A failure is ignored.
  void shutdown() VLK_EXCLUDES(lock_);

 private:
  // Waits for bytes from the socket and gives them to OpenSSL; false at the end of the stream. Unlocks while
  // it waits.
  [[nodiscard]] bool pump_input() VLK_REQUIRES(lock_);
  // Sends what OpenSSL has put out; false once sending has failed. With `everything` it returns only when all
  // of it is sent, by this thread or another. Unlocks while it sends.
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
  bool receiving_ VLK_GUARDED_BY(lock_) = false;  // a thread waits in the socket for input
  bool sending_ VLK_GUARDED_BY(lock_) =
      false;  // a thread sends output, in the order in which OpenSSL made it
  bool input_ended_ VLK_GUARDED_BY(lock_) = false;
  bool output_failed_ VLK_GUARDED_BY(lock_) = false;
  std::uint64_t input_count_ VLK_GUARDED_BY(lock_) = 0;  // batches of input received
};

}  // namespace vlk::agent
