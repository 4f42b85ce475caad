// A TLS connection over loopback: the agent's client end, and a server that discards what it reads.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <thread>

#include "net/socket.h"
#include "net/tls_connection.h"
#include "net/tls_context.h"
#include "platform/win32/handles_win32.h"
#include "wire/messages.h"

namespace vantelink_bench {

class LoopbackLink {
 public:
  LoopbackLink();
  ~LoopbackLink();
  LoopbackLink(const LoopbackLink&) = delete;
  LoopbackLink& operator=(const LoopbackLink&) = delete;

  bool connected() const { return connected_; }
  bool Send(vlk::Msg type, const unsigned char* data, std::size_t length, std::uint8_t flags);
  // The CPU time of the server's thread so far.
  double reader_milliseconds();

 private:
  void Read();

  vlk::agent::SslContext server_, client_;
  vlk::SocketHandle socket_ = vlk::kInvalidSocket;
  vlk::SocketHandle peer_ = vlk::kInvalidSocket;
  vlk::UniqueKernelHandle reader_handle_;
  std::thread reader_;
  std::unique_ptr<vlk::agent::TlsConnection> connection_;
  bool connected_ = false;
};

}  // namespace vantelink_bench
