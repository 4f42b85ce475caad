// The socket, the TLS connection and the stream of an AgentClient.
#pragma once

#include <memory>

#include "net/socket.h"
#include "net/tls_connection.h"
#include "net/tls_context.h"
#include "platform/threads/mutex.h"
#include "stream/streamer.h"
#include "wire/websocket.h"

namespace vlk::agent {

struct LinkState {
  SslContext ssl_ctx;  // kept for all connections of the client

  // Lets only one thread write at a time, and prevents `ssl` from being destroyed during a write.
  Mutex write_lock;
  std::unique_ptr<TlsConnection> ssl VLK_GUARDED_BY(write_lock);  // null without a connection
  // The object that `ssl` owns. Only the connection thread uses this pointer: it reads without write_lock,
  // because it would otherwise wait for a blocked writer.
  TlsConnection* incoming = nullptr;

  // Needs no lock: stop() must not wait for a blocked reader or writer.
  SharedSocket socket;
  WsParser parser;                           // connection thread only; a new one after each upgrade
  std::unique_ptr<ScreenStreamer> streamer;  // connection thread only; at most one

  // Both functions are callable on any thread and return false without a connection. A message that was not
  // sent is lost, so most callers ignore the result.
  bool write_locked(const unsigned char* data, std::size_t length) VLK_EXCLUDES(write_lock);
  bool send(Msg type, std::uint32_t session_id, const unsigned char* data, std::size_t length,
            std::uint8_t flags) VLK_EXCLUDES(write_lock);
};

}  // namespace vlk::agent
