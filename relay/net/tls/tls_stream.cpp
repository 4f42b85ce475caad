// Reads and writes TLS records on a socket that does not block.
#include "relay/net/tls/tls_stream.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>

#include <boost/asio/error.hpp>
#include <boost/asio/ssl/error.hpp>
#include <openssl/err.h>

#include "relay/net/tls/handles.h"

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
  Bio reading(BIO_new_socket(socket.native_handle(), BIO_NOCLOSE)), writing(records.make_bio());
  if (error || !ssl || !reading || !writing) throw std::runtime_error("cannot prepare a TLS connection");
  SSL_set0_rbio(ssl.get(), reading.release());
  SSL_set0_wbio(ssl.get(), writing.release());
  SSL_set_accept_state(ssl.get());
  // A read returns after the messages that it has answered, so the answers are bounded by its buffer.
  SSL_clear_mode(ssl.get(), SSL_MODE_AUTO_RETRY);
}

void TlsStream::expect_much() {
  if (state_->ssl) SSL_set_default_read_buffer_len(state_->ssl.get(), kManyRecords);
}

// OpenSSL knows the socket by its number, which the system gives to another connection after the close. No
// function may therefore call OpenSSL for a closed socket. finish() frees OpenSSL's state.
TlsStream::Step TlsStream::State::handshake() {
  if (!usable()) return {Step::Wait::None, asio::error::operation_aborted, 0};
  ERR_clear_error();
  const Step step = outcome(SSL_do_handshake(ssl.get()), 0);
  // What the peer has to get before it goes on; also the alert that says why the handshake failed.
  const Error error = send_some();
  if (step.error) return step;
  if (error) return {Step::Wait::None, error, 0};
  return records.empty() ? step : Step{Step::Wait::Write, {}, 0};
}

// OpenSSL answers some messages of the peer while it reads. Nothing more is read until the system has taken
// the answers, so a peer that reads nothing gets no more of them.
TlsStream::Step TlsStream::State::read(const asio::mutable_buffer& buffer) {
  if (!usable()) return {Step::Wait::None, asio::error::operation_aborted, 0};
  if (buffer.size() == 0) return {};
  if (const Step answers = send(answers_end); answers.wait != Step::Wait::None || answers.error)
    return answers;
  const std::uint64_t before = records.collected();
  std::size_t size = 0;
  ERR_clear_error();
  const int result = SSL_read_ex(ssl.get(), buffer.data(), buffer.size(), &size);
  const Step step = outcome(result, size);
  if (records.collected() == before) return step;
  answers_end = records.collected();
  const Error error = send_some();
  if (step.wait == Step::Wait::None) return step;
  if (error) return {Step::Wait::None, error, 0};
  return records.empty() ? step : Step{Step::Wait::Write, {}, 0};
}

TlsStream::Step TlsStream::State::send(std::uint64_t end) {
  if (!usable()) return {Step::Wait::None, asio::error::operation_aborted, 0};
  if (records.sent() >= end && records.problem() == 0) return {};
  if (const Error error = send_some()) return {Step::Wait::None, error, 0};
  return {records.sent() >= end ? Step::Wait::None : Step::Wait::Write, {}, 0};
}

TlsStream::Error TlsStream::State::send_some() {
  const int problem = records.send(socket.native_handle());
  return problem == 0 ? Error() : Error(problem, boost::system::system_category());
}

// Also sends what was encrypted before a problem: no other connection may write before the call of send().
TlsStream::Error TlsStream::State::write(std::span<const asio::const_buffer> buffers) {
  if (!usable()) return asio::error::operation_aborted;
  const Error problem = encrypt(buffers), error = send_some();
  return problem ? problem : error;
}

// Small buffers, such as a frame's header and its content, or several frames, become one record.
TlsStream::Error TlsStream::State::encrypt(std::span<const asio::const_buffer> buffers) {
  char joined[kRecord];
  std::size_t size = 0;
  for (const asio::const_buffer& buffer : buffers) {
    const auto* bytes = static_cast<const char*>(buffer.data());
    for (std::size_t left = buffer.size(); left > 0;) {
      const std::size_t count = std::min(left, kRecord - size);
      if (count == kRecord) {
        if (const Error error = write_record(bytes, count)) return error;
      } else {
        std::memcpy(joined + size, bytes, count);
        size += count;
      }
      if (size == kRecord) {
        if (const Error error = write_record(joined, size)) return error;
        size = 0;
      }
      bytes += count;
      left -= count;
    }
  }
  return size > 0 ? write_record(joined, size) : Error();
}

TlsStream::Error TlsStream::State::write_record(const char* bytes, std::size_t size) {
  // A peer may have asked for shorter records.
  while (size > 0) {
    std::size_t written = 0;
    ERR_clear_error();
    const int result = SSL_write_ex(ssl.get(), bytes, size, &written);
    const Step step = outcome(result, written);
    if (step.error) return step.error;
    if (step.wait != Step::Wait::None) return asio::error::try_again;
    bytes += written;
    size -= written;
  }
  return {};
}

TlsStream::Step TlsStream::WriteSome::operator()(State& state, const Run& run) {
  if (!begun) {
    begun = true;
    Run record{};
    for (std::size_t i = 0; i < run.size() && size < kRecord; ++i) {
      record[i] = asio::buffer(run[i], kRecord - size);
      size += record[i].size();
    }
    if (size == 0) return {};
    if (const Error error = state.write(record)) return {Step::Wait::None, error, 0};
    end = state.records.collected();
  }
  Step step = state.send(end);
  if (step.wait == Step::Wait::None && !step.error) step.size = size;
  return step;
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
  (void)send_some();
  ssl.reset();
  records.clear();
  Error ignored;
  socket.shutdown(asio::socket_base::shutdown_send, ignored);
}

}  // namespace vlk::relay
