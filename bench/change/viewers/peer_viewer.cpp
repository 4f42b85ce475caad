// Starts the program and runs the library's client.
#include "viewers/peer_viewer.h"

#include <linux/tcp.h>
#include <netinet/in.h>
#include <rfb/rfbclient.h>
#include <sys/socket.h>

#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "support/waiting.h"
#include "tests/doubles/scripted_picture.h"

namespace vantelink_bench {
namespace {

constexpr int kLoopMicroseconds = 100000;  // the longest wait until the thread looks whether it has to end

char client_tag;  // its address is the key of the viewer in the client's data

std::uint64_t bytes_received(int socket) {
  tcp_info info{};
  socklen_t size = sizeof info;
  if (::getsockopt(socket, IPPROTO_TCP, TCP_INFO, &info, &size) != 0)
    throw std::runtime_error("the system counts no bytes of a connection");
  return info.tcpi_bytes_received;
}

}  // namespace

PeerViewer::PeerViewer(const std::string& display, const Peer& peer) : process_(display, peer) {
  rfbEnableClientLogging = FALSE;
  if (!vantelink_test::eventually([&] {
        connect(process_.port());
        return client_ != nullptr;
      }))
    throw std::runtime_error(peer.name + " accepts no connection");
  thread_ = std::thread([this] { run(); });
}

PeerViewer::~PeerViewer() {
  ending_ = true;
  if (thread_.joinable()) thread_.join();
  if (client_ == nullptr) return;
  std::free(client_->frameBuffer);  // NOLINT(cppcoreguidelines-no-malloc): the library has allocated it
  rfbClientCleanup(client_);
}

// Leaves client_ null if the program does not listen yet. The library frees a client that cannot connect.
void PeerViewer::connect(unsigned short port) {
  rfbClient* const client = rfbGetClient(8, 3, 4);
  client->serverHost = ::strdup("127.0.0.1");
  client->serverPort = port;
  client->FinishedFrameBufferUpdate = &PeerViewer::on_update;
  rfbClientSetClientData(client, &client_tag, this);
  if (rfbInitClient(client, nullptr, nullptr)) client_ = client;
}

void PeerViewer::run() {
  try {
    while (!ending_) {
      const int waiting = WaitForMessage(client_, kLoopMicroseconds);
      if (waiting == 0) continue;
      const std::lock_guard lock(mutex_);
      if (waiting < 0 || !HandleRFBServerMessage(client_)) throw std::runtime_error("the connection ended");
    }
  } catch (const std::exception& failure) {
    if (!ending_) fail(std::string("a peer's viewer: ") + failure.what());
  }
}

void PeerViewer::on_update(rfbClient* client) {
  auto* const viewer = static_cast<PeerViewer*>(rfbClientGetClientData(client, &client_tag));
  std::vector<std::uint8_t> green(vantelink_doubles::kSquare * static_cast<std::size_t>(client->width));
  for (std::size_t i = 0; i < green.size(); ++i)
    green[i] = client->frameBuffer[i * 4 + 1];
  viewer->see(vantelink_doubles::read_number(green.data(), static_cast<std::size_t>(client->width)),
              bytes_received(client->sock));
}

double PeerViewer::similarity(const vantelink_test::PngPicture& screen) const {
  const std::lock_guard lock(mutex_);
  if (client_->width != screen.width || client_->height != screen.height)
    throw std::runtime_error("the peer's picture has another size than the screen");
  return likeness(screen, client_->frameBuffer);
}

// The library writes from the reading thread too, so the two take turns.
void PeerViewer::press_key() {
  const std::lock_guard lock(mutex_);
  for (const bool down : {true, false}) {
    if (!SendKeyEvent(client_, XK_a, static_cast<rfbBool>(down ? TRUE : FALSE)))
      throw std::runtime_error("a peer takes no key");
  }
}

}  // namespace vantelink_bench
