// One TLS connection over one socket, read by one thread while others write.
//
// OpenSSL allows one thread at a time inside an SSL object, and a connection that lives for months meets
// session tickets and key updates while it writes. So the object keeps a small lock of its own around each
// OpenSSL call and never holds it while it waits: OpenSSL works on memory, and the socket's blocking calls
// happen outside the lock. A reader never waits for a blocked writer, nor a writer for a blocked reader.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include <openssl/ssl.h>

#include "net/socket.h"

namespace vlk::agent {

class TlsConnection {
 public:
  // Borrows the socket. `host` goes out as server name and is what the certificate must be for; a wildcard
  // that stands for part of a label does not count. Without a context no handshake succeeds.
  TlsConnection(SSL_CTX* context, SocketHandle socket, const std::string& host);

  // The handshake; false when it failed, a certificate that does not verify included.
  bool connect();

  // Blocks for the next bytes; below 1 when the connection has ended. One thread at a time.
  std::ptrdiff_t read(unsigned char* buffer, std::size_t size);

  // Blocks until all of `data` is handed to the system; false when it could not be. The caller sees to it
  // that one message is written at a time.
  bool write(const unsigned char* data, std::size_t length);

  // Sends the closing alert, once; the result is not looked at.
  void shutdown();

 private:
  using Lock = std::unique_lock<std::mutex>;

  // Waits for bytes from the socket and gives them to OpenSSL; false at the end of the stream.
  bool pump_input(Lock& lock);
  // Sends what OpenSSL has put out. `everything`: wait until it is all sent, by whichever thread.
  bool flush(Lock& lock, bool everything);

  struct SslDeleter {
    void operator()(SSL* ssl) const { SSL_free(ssl); }
  };

  const SocketHandle socket_;
  std::mutex lock_;  // guards all below
  std::unique_ptr<SSL, SslDeleter> ssl_;
  BIO* input_ = nullptr;   // from the network to OpenSSL; owned by ssl_
  BIO* output_ = nullptr;  // from OpenSSL to the network; owned by ssl_
  std::condition_variable changed_;
  bool receiving_ = false;  // a thread waits in the socket for input
  bool sending_ = false;    // a thread is sending output, in the order in which OpenSSL made it
  bool input_ended_ = false;
  bool output_failed_ = false;
  std::uint64_t input_count_ = 0;  // batches of input taken in
};

}  // namespace vlk::agent
