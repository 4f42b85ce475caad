// Implements WebSocketLink in place of relay/net/websocket_link.cpp.
#include "world/scripted_link.h"

#include <algorithm>
#include <utility>

#include <boost/asio/as_tuple.hpp>
#include <boost/asio/use_awaitable.hpp>

#include "require.h"
#include "wire/messages.h"

namespace asio = boost::asio;

namespace vlk::relay {
namespace {

constexpr std::size_t kQueueBytes = 2048;
constexpr auto kAsTuple = asio::as_tuple(asio::use_awaitable);

}  // namespace

struct WebSocketLink::Socket {
  asio::any_io_executor executor;
  std::shared_ptr<fuzz::Inbox> inbox;
};

WebSocketLink::WebSocketLink(std::unique_ptr<Socket> socket, const Settings& settings)
    : socket_(std::move(socket)),
      channel_(std::make_shared<Channel>(socket_->executor, settings.queue_bytes, settings.division)),
      deadline_(socket_->executor) {}

WebSocketLink::~WebSocketLink() = default;

void WebSocketLink::expect_much() {}

void WebSocketLink::set_read_limit(std::size_t bytes) {
  socket_->inbox->read_limit = bytes;
}

asio::awaitable<WebSocketLink::Keep> WebSocketLink::decide(Incoming& incoming) {
  const Keep answer = keep_(incoming);
  REQUIRE(answer != Keep::Later);  // the messages of an input fit into the memory
  co_return answer;
}

// Each message arrives in two runs of bytes.
asio::awaitable<std::optional<Incoming>> WebSocketLink::read() {
  const auto self = shared_from_this();
  fuzz::Inbox& inbox = *socket_->inbox;
  while (inbox.messages.empty() && !inbox.closed && !channel_->closing())
    co_await inbox.changed.async_wait(kAsTuple);
  if (channel_->closing()) co_return std::nullopt;
  if (inbox.messages.empty()) {
    channel_->end("closed by the peer");
    co_return std::nullopt;
  }
  Incoming whole = std::move(inbox.messages.front());
  inbox.messages.pop_front();
  channel_->count_as_heard(Clock::now());
  if (inbox.read_limit > 0 && whole.bytes.size() > inbox.read_limit) {
    channel_->end("The message is too long.");
    co_return std::nullopt;
  }
  Incoming incoming{.text = whole.text};
  for (const std::size_t size : {whole.bytes.size() / 2, whole.bytes.size()}) {
    incoming.size = size;
    if (!incoming.kept) continue;
    incoming.bytes.assign(whole.bytes.begin(), whole.bytes.begin() + static_cast<std::ptrdiff_t>(size));
    if (!keep_ || co_await decide(incoming) == Keep::Yes) continue;
    incoming.kept = false;
    incoming.bytes.resize(std::min(incoming.bytes.size(), kEnvelopeHeaderSize));
  }
  co_return incoming;
}

namespace fuzz {

// The peer closes the connection as soon as it is asked to.
ScriptedLink make_scripted_link(const asio::any_io_executor& executor) {
  const auto inbox = std::make_shared<Inbox>(executor);
  WebSocketLink::Settings settings;
  settings.queue_bytes = kQueueBytes;
  settings.division.parts = true;
  auto socket = std::make_unique<WebSocketLink::Socket>(WebSocketLink::Socket{executor, inbox});
  auto link = std::make_shared<WebSocketLink>(std::move(socket), settings);
  link->channel()->on_request([inbox, weak = std::weak_ptr(link->channel())] {
    const auto channel = weak.lock();
    if (!channel) return;
    if (channel->close_request() && !channel->is_cut()) channel->cut(channel->end_reason());
    if (channel->is_cut()) inbox->changed.cancel();
    if (channel->ping_requested()) channel->ping_sent();
  });
  return {std::move(link), inbox};
}

}  // namespace fuzz
}  // namespace vlk::relay
