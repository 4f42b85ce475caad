// What an AgentClient holds at the level of socket, TLS and stream.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>

#include "net/socket.h"
#include "net/tls_connection.h"
#include "net/tls_context.h"
#include "stream/streamer.h"
#include "wire/websocket.h"

namespace vlk::agent {

struct LinkState {
  SslContext ssl_ctx;  // one for the client's whole life
  std::unique_ptr<TlsConnection>
      ssl;  // null when there is no connection to write on; changed under write_lock
  // Atomic, so that stop() can close it without a lock: it must not wait for anything that a blocked read may
  // hold.
  std::atomic<SocketHandle> socket{kInvalidSocket};
  WsParser parser;        // connection thread only; a fresh one after each upgrade
  std::mutex write_lock;  // orders all writers; guards `ssl` against being cleared under one
  std::unique_ptr<ScreenStreamer> streamer;  // connection thread only; at most one

  // Both are callable from any thread and false with no connection.
  bool write_locked(const unsigned char* data, std::size_t length);
  bool send(Msg type, std::uint32_t session_id, const unsigned char* data, std::size_t length,
            std::uint8_t flags);
};

}  // namespace vlk::agent
