// TLS over a TCP socket, without buffers of its own while nothing waits: an idle connection costs little more
// than OpenSSL's state.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <type_traits>
#include <utility>

#include <boost/asio/any_io_executor.hpp>
#include <boost/asio/buffer.hpp>
#include <boost/asio/compose.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/beast/websocket/teardown.hpp>
#include <openssl/ssl.h>

#include "relay/net/tls/outgoing_records.h"
#include "relay/net/tls/steps.h"

namespace vlk::relay {

// A stream as Boost.Beast needs it. Used on the relay's one thread. At most one read at a time; the bytes of
// several writes are sent in the order in which the writes began, each whole.
class TlsStream {
 public:
  using Error = boost::system::error_code;
  using executor_type = boost::asio::any_io_executor;

  // `context` is used only during the call.
  TlsStream(boost::asio::ip::tcp::socket socket, SSL_CTX* context);

  [[nodiscard]] executor_type get_executor() { return state_->socket.get_executor(); }
  [[nodiscard]] boost::asio::ip::tcp::socket& socket() { return state_->socket; }
  void close() { state_->close(); }
  // Lets each read of the system get several records, in a buffer that exists while it holds bytes.
  void expect_much();
  // Sends what ends the TLS connection if that is possible at once, and closes the sending direction. Every
  // later read and write fails.
  void finish() { state_->finish(); }

  // Encrypts all these bytes and gives the system as many as it takes at once. The rest waits here, so call
  // this again only after async_sent(). Returns the problem that ends the connection, if there is one.
  [[nodiscard]] Error write(std::span<const boost::asio::const_buffer> buffers) {
    return state_->write(buffers);
  }
  // True if no bytes wait for the system.
  [[nodiscard]] bool all_sent() const { return state_->records.empty(); }

  // Completes when the system has taken all bytes that were written before this call.
  template <class Token>
  auto async_sent(Token&& token) {
    const auto attempt = [end = state_->records.collected()](State& state) { return state.send(end); };
    return compose<void(Error), false>(attempt, std::forward<Token>(token));
  }
  template <class Token>
  auto async_handshake(Token&& token) {
    const auto attempt = [](State& state) { return state.handshake(); };
    return compose<void(Error), false>(attempt, std::forward<Token>(token));
  }
  // Completes within the turn of the read before, if one is running, otherwise from the context: callers do
  // not recurse.
  template <class Buffers, class Token>
  // NOLINTNEXTLINE(misc-no-recursion)
  auto async_read_some(const Buffers& buffers, Token&& token) {
    const auto attempt = [buffer = first_of<boost::asio::mutable_buffer>(buffers)](State& state) {
      return state.read(buffer);
    };
    return compose<void(Error, std::size_t), true>(attempt, std::forward<Token>(token));
  }
  template <class Buffers, class Token>
  // Completes from the context, so callers do not recurse.
  // NOLINTNEXTLINE(misc-no-recursion)
  auto async_write_some(const Buffers& buffers, Token&& token) {
    const auto attempt = [run = run_of(buffers), write = WriteSome{}](State& state) mutable {
      return write(state, run);
    };
    return compose<void(Error, std::size_t), false>(attempt, std::forward<Token>(token));
  }

 private:
  static constexpr std::size_t kRun = 4;  // buffers of one write
  using Run = std::array<boost::asio::const_buffer, kRun>;

  // What one attempt to read or write came to: it is done, or waits for the socket.
  struct Step {
    enum class Wait { None, Read, Write } wait = Wait::None;
    Error error{};
    std::size_t size = 0;
  };
  struct State {
    State(boost::asio::ip::tcp::socket its_socket, SSL_CTX* context);
    Step handshake();
    Step read(const boost::asio::mutable_buffer& buffer);
    // Completes when the system has taken so many of the collected bytes.
    Step send(std::uint64_t end);
    Error write(std::span<const boost::asio::const_buffer> buffers);
    void close();
    void finish();

    boost::asio::ip::tcp::socket socket;
    OutgoingRecords records;  // outlives `ssl`
    std::unique_ptr<SSL, decltype(&SSL_free)> ssl;
    Steps reads;
    std::uint64_t answers_end = 0;  // of the collected bytes: what OpenSSL wrote while it read

   private:
    [[nodiscard]] bool usable() const { return ssl && socket.is_open(); }
    [[nodiscard]] Step outcome(int result, std::size_t size);
    [[nodiscard]] Error send_some();
    [[nodiscard]] Error encrypt(std::span<const boost::asio::const_buffer> buffers);
    [[nodiscard]] Error write_record(const char* bytes, std::size_t size);
  };

  // One write of Boost.Beast: of at most a record, so a peer that does not read makes no more bytes wait.
  struct WriteSome {
    Step operator()(State& state, const Run& run);
    bool begun = false;
    std::size_t size = 0;
    std::uint64_t end = 0;
  };

  // Repeats an attempt until it is done. Completes never within the call that began the operation.
  template <class Attempt, bool with_size, bool in_turn>
  struct Operation {
    std::shared_ptr<State> state;
    Attempt attempt;
    Step step{};
    bool waited = false;
    bool posted = false;

    template <class Self>
    // NOLINTNEXTLINE(misc-no-recursion)
    void operator()(Self& self, Error error = {}) {
      if (!posted) {
        step = error ? Step{Step::Wait::None, error, 0} : attempt(*state);
        if (step.wait != Step::Wait::None) {
          waited = true;
          const auto what = step.wait == Step::Wait::Read ? boost::asio::socket_base::wait_read
                                                          : boost::asio::socket_base::wait_write;
          return state->socket.async_wait(what, std::move(self));
        }
        if (!waited) {
          posted = true;
          const auto owner = state;
          if constexpr (in_turn) {
            if (owner->reads.keep(self, step.size)) return;
          }
          return boost::asio::post(owner->socket.get_executor(), std::move(self));
        }
      }
      const Step done = step;
      const auto owner = std::move(state);
      const auto complete = [&] {  // NOLINT(misc-no-recursion)
        if constexpr (with_size) {
          self.complete(done.error, done.size);
        } else {
          self.complete(done.error);
        }
      };
      if constexpr (in_turn) {
        owner->reads.run(complete);
      } else {
        complete();
      }
    }
  };
  template <class Signature, bool in_turn, class Attempt, class Token>
  // NOLINTNEXTLINE(misc-no-recursion)
  auto compose(Attempt attempt, Token&& token) {
    constexpr bool with_size = !std::is_same_v<Signature, void(Error)>;
    return boost::asio::async_compose<Token, Signature>(
        Operation<Attempt, with_size, in_turn>{state_, std::move(attempt)}, token, state_->socket);
  }

  template <class Buffer, class Buffers>
  static Buffer first_of(const Buffers& buffers) {
    const auto end = boost::asio::buffer_sequence_end(buffers);
    for (auto at = boost::asio::buffer_sequence_begin(buffers); at != end; ++at) {
      const Buffer buffer(*at);
      if (buffer.size() > 0) return buffer;
    }
    return {};
  }
  template <class Buffers>
  static Run run_of(const Buffers& buffers) {
    Run run{};
    std::size_t count = 0;
    const auto end = boost::asio::buffer_sequence_end(buffers);
    for (auto at = boost::asio::buffer_sequence_begin(buffers); at != end && count < kRun; ++at) {
      const boost::asio::const_buffer buffer(*at);
      if (buffer.size() > 0) run[count++] = buffer;
    }
    return run;
  }

  std::shared_ptr<State> state_;
};

// Boost.Beast calls these functions to close a connection.
inline void beast_close_socket(TlsStream& stream) {
  stream.close();
}
template <class Handler>
void async_teardown(boost::beast::role_type, TlsStream& stream, Handler&& handler) {
  stream.finish();
  boost::asio::post(stream.get_executor(),
                    boost::beast::bind_front_handler(std::forward<Handler>(handler), TlsStream::Error()));
}

}  // namespace vlk::relay
