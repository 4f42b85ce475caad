// The GET request, with a new socket and a new TLS connection for each call.
#include "update/https.h"

#include <memory>

#include <openssl/ssl.h>

#include "net/socket.h"
#include "net/tls_context.h"
#include "update/response.h"

namespace vlk::agent {
namespace {

constexpr std::size_t kReadSize = 8192;  // bytes per read

struct SslDeleter {
  void operator()(SSL* ssl) const {
    SSL_shutdown(ssl);
    SSL_free(ssl);
  }
};

// Keeps the platform's socket library started.
struct [[nodiscard]] SocketLibrary {
  SocketLibrary() { start_sockets(); }
  ~SocketLibrary() { end_sockets(); }
  SocketLibrary(const SocketLibrary&) = delete;
  SocketLibrary& operator=(const SocketLibrary&) = delete;
};

class Socket {
 public:
  Socket(const std::string& host, std::uint32_t port) : handle_(connect_socket(host, port)) {}
  ~Socket() {
    if (handle_ != kInvalidSocket) close_socket(handle_);
  }
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;
  SocketHandle get() const { return handle_; }

 private:
  const SocketHandle handle_;
};

// The Host line never contains the port, and the path is not encoded.
std::string request_text(const std::string& host, const std::string& path) {
  return "GET " + path + " HTTP/1.1\r\nHost: " + host +
         "\r\nUser-Agent: Vantelink\r\nConnection: close\r\n\r\n";
}

// Reads everything that the server sends until the connection ends, for whatever reason.
std::string read_to_end(SSL* ssl) {
  std::string response;
  char buffer[kReadSize];
  for (;;) {
    const int count = SSL_read(ssl, buffer, sizeof buffer);
    if (count <= 0) return response;
    response.append(buffer, static_cast<std::size_t>(count));
  }
}

}  // namespace

bool https_get(const std::string& host, std::uint32_t port, const std::string& path, std::string& body) {
  const SocketLibrary library;
  const Socket socket(host, port);
  if (socket.get() == kInvalidSocket) return false;
  // The server's certificate is not verified: the context has no trusted roots and any certificate is
  // accepted.
  const SslContext context(SSL_CTX_new(TLS_client_method()));
  if (!context) return false;
  const std::unique_ptr<SSL, SslDeleter> ssl(SSL_new(context.get()));
  SSL_set_fd(ssl.get(), static_cast<int>(socket.get()));
  SSL_set_tlsext_host_name(ssl.get(), host.c_str());
  if (SSL_connect(ssl.get()) != 1) return false;

  const std::string request = request_text(host, path);
  SSL_write(ssl.get(), request.data(), static_cast<int>(request.size()));
  std::string response = read_to_end(ssl.get());
  const auto begin = find_body(response);
  if (!begin) return false;
  response.erase(0, *begin);
  body = std::move(response);
  return true;
}

}  // namespace vlk::agent
