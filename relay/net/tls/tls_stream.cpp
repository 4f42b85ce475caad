// Reads and writes TLS records on a socket that does not block.
#include "relay/net/tls/tls_stream.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

#include <boost/asio/error.hpp>
#include <boost/asio/ssl/error.hpp>
#include <openssl/err.h>

namespace asio = boost::asio;

namespace vlk::relay {
namespace {

constexpr std::size_t kRecord = 16 * 1024;  // bytes; the largest content of a TLS record
constexpr std::size_t kManyRecords = 64 * 1024;

}  // namespace

TlsStream::TlsStream(asio::ip::tcp::socket socket, SSL_CTX* context)
    : state_(std::make_shared<State>(std::move(socket), context)) {}

TlsStream::State::State(asio::ip::tcp::socket its_socket, SSL_CTX* context)
    : socket(std::move(its_socket)), ssl(SSL_new(context), &SSL_free) {
  Error error;
  socket.native_non_blocking(true, error);
  if (error || !ssl || SSL_set_fd(ssl.get(), socket.native_handle()) != 1)
    throw std::runtime_error("cannot prepare a TLS connection");
  SSL_set_accept_state(ssl.get());
}

void TlsStream::expect_much() {
  if (state_->ssl) SSL_set_default_read_buffer_len(state_->ssl.get(), kManyRecords);
}

// OpenSSL knows the socket by its number, which the system gives to another connection after the close. No
// function may therefore call OpenSSL for a closed socket. finish() frees OpenSSL's state.
TlsStream::Step TlsStream::State::handshake() {
  if (!ssl || !socket.is_open()) return {Step::Wait::None, asio::error::operation_aborted, 0};
  ERR_clear_error();
  return outcome(SSL_do_handshake(ssl.get()), 0);
}

TlsStream::Step TlsStream::State::read(const asio::mutable_buffer& buffer) {
  if (!ssl || !socket.is_open()) return {Step::Wait::None, asio::error::operation_aborted, 0};
  if (buffer.size() == 0) return {};
  std::size_t size = 0;
  ERR_clear_error();
  const int result = SSL_read_ex(ssl.get(), buffer.data(), buffer.size(), &size);
  return outcome(result, size);
}

// Several small buffers, such as a frame's header and its content, go out in one record.
TlsStream::Step TlsStream::State::write(const Run& run) {
  if (!ssl || !socket.is_open()) return {Step::Wait::None, asio::error::operation_aborted, 0};
  if (run[0].size() == 0) return {};
  char joined[kRecord];
  asio::const_buffer bytes = run[0];
  if (run[1].size() > 0 && run[0].size() < kRecord) {
    std::size_t size = 0;
    for (const asio::const_buffer& buffer : run) {
      const std::size_t count = std::min(buffer.size(), kRecord - size);
      if (count > 0) std::memcpy(joined + size, buffer.data(), count);
      size += count;
    }
    bytes = asio::buffer(joined, size);
  }
  std::size_t size = 0;
  ERR_clear_error();
  const int result = SSL_write_ex(ssl.get(), bytes.data(), bytes.size(), &size);
  return outcome(result, size);
}

TlsStream::Step TlsStream::State::outcome(int result, std::size_t size) {
  if (result > 0) return {Step::Wait::None, {}, size};
  const int saved = errno;
  switch (SSL_get_error(ssl.get(), result)) {
    case SSL_ERROR_WANT_READ:
      return {Step::Wait::Read, {}, 0};
    case SSL_ERROR_WANT_WRITE:
      return {Step::Wait::Write, {}, 0};
    case SSL_ERROR_SSL: {
      const unsigned long code = ERR_get_error();
      if (ERR_GET_REASON(code) == SSL_R_UNEXPECTED_EOF_WHILE_READING)
        return {Step::Wait::None, asio::ssl::error::stream_truncated, 0};
      return {Step::Wait::None, Error(static_cast<int>(code), asio::error::get_ssl_category()), 0};
    }
    case SSL_ERROR_SYSCALL:
      if (saved != 0) return {Step::Wait::None, Error(saved, boost::system::system_category()), 0};
      return {Step::Wait::None, asio::ssl::error::stream_truncated, 0};
    default:
      return {Step::Wait::None, asio::error::eof, 0};
  }
}

void TlsStream::State::close() {
  Error ignored;
  socket.close(ignored);
}

// The state is freed here because a peer that got a close frame may stay for a second, and thousands may do
// so at once with a record of up to 16 KiB half received.
void TlsStream::State::finish() {
  if (!ssl || !socket.is_open()) return;
  ERR_clear_error();
  if (SSL_is_init_finished(ssl.get())) SSL_shutdown(ssl.get());
  ssl.reset();
  Error ignored;
  socket.shutdown(asio::socket_base::shutdown_send, ignored);
}

}  // namespace vlk::relay
